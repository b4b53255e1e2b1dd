// Halden's entry point: translation for the user's language, the "Fusion" widget style,
// the look and feel, then the main window. Options can start a room at once.
#include <QApplication>
#include <QCoreApplication>
#include <QCommandLineParser>
#include <QTimer>
#include <QTranslator>

#include "app/application.hpp"
#include "app/gui_prompts.hpp"
#include "app/mainwindow.hpp"
#include "workspace/room_usb.hpp"

namespace {

struct Options {
    QCommandLineOption usb{"usb", "Start at once on the cameras plugged into this computer."};
    QCommandLineOption room{"room", "Start at once on the room file <file>.", "file"};
};

void describe(QCommandLineParser& parser, const Options& options) {
    parser.setApplicationDescription("Finds where several stereo cameras stand in one room.");
    parser.addHelpOption();
    parser.addOption(options.usb);
    parser.addOption(options.room);
}

// Help and bad options are answered before any window exists, so they work without a display.
bool answeredWithoutWindow(int argc, char* argv[]) {
    for (int i = 1; i < argc; ++i) {
        const QByteArray argument(argv[i]);
        if (argument == "-h" || argument == "--help" || argument == "--help-all" || argument == "-?") {
            QCoreApplication app(argc, argv);
            QCoreApplication::setApplicationName("Halden");
            QCommandLineParser parser;
            describe(parser, Options());
            parser.process(app);  // prints and exits
            return true;
        }
    }
    return false;
}

}  // namespace

int main(int argc, char* argv[]) {
    if (answeredWithoutWindow(argc, argv)) return 0;
    QApplication app(argc, argv);
    QApplication::setApplicationName("Halden");
    QTranslator translator;
    installTranslation(app, translator);
    applyLook(app);

    QCommandLineParser parser;
    const Options options;
    describe(parser, options);
    parser.process(app);

    MainWindow window;
    window.show();

    // After the event loop has started, so the window is on screen while the room starts.
    if (parser.isSet(options.room)) {
        const std::string path = parser.value(options.room).toStdString();
        QTimer::singleShot(0, &window, [&window, path] { window.openConfFile(path); });
    } else if (parser.isSet(options.usb)) {
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
