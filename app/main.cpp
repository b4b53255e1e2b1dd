// Halden's entry point: translation for the user's language, the "Fusion" widget style,
// the look and feel, then the main window. Options can start a room at once.
#include <QApplication>
#include <QCommandLineParser>
#include <QTimer>
#include <QTranslator>

#include "app/application.hpp"
#include "app/gui_prompts.hpp"
#include "app/mainwindow.hpp"
#include "workspace/room_usb.hpp"

int main(int argc, char* argv[]) {
    QApplication app(argc, argv);
    QApplication::setApplicationName("Halden");
    QTranslator translator;
    installTranslation(app, translator);
    applyLook(app);

    QCommandLineParser parser;
    parser.setApplicationDescription("Finds where several stereo cameras stand in one room.");
    parser.addHelpOption();
    QCommandLineOption usb("usb", "Start at once on the cameras plugged into this computer.");
    QCommandLineOption room("room", "Start at once on the room file <file>.", "file");
    parser.addOption(usb);
    parser.addOption(room);
    parser.process(app);

    MainWindow window;
    window.show();

    // After the event loop has started, so the window is on screen while the room starts.
    if (parser.isSet(room)) {
        const std::string path = parser.value(room).toStdString();
        QTimer::singleShot(0, &window, [&window, path] { window.openConfFile(path); });
    } else if (parser.isSet(usb)) {
        QTimer::singleShot(0, &window, [&window] {
            roomusb::UsbRoom found = roomusb::discover();
            if (found.configurations.empty())
                GuiPrompts(&window).exec({"No cameras found",
                                          "No camera found plugged on this computer. Please either plug one or "
                                          "use network cameras.",
                                          PromptIcon::Warning});
            else
                window.onFusionConfigReady(found.configurations);
        });
    }
    return app.exec();
}
