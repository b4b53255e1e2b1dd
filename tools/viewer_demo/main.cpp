// halden-viewer-demo: shows the 3D viewer on the simulated room with people walking, so
// the view can be seen (and photographed) without the main window.
#include <QApplication>
#include <QCommandLineParser>
#include <QTimer>

#include <iostream>

#include "core/shared_records.hpp"
#include "pyra_sim/scene.hpp"
#include "tools/viewer_demo/demo_room.hpp"
#include "viewer/gl_viewer.hpp"

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName("halden-viewer-demo");
    QCommandLineParser parser;
    parser.setApplicationDescription("The Halden 3D viewer on the simulated room.");
    parser.addHelpOption();
    const QCommandLineOption people("people", "Number of people walking in the room (default 3).", "count", "3");
    const QCommandLineOption noRaw("no-raw", "Hide each camera's own skeletons.");
    const QCommandLineOption noMetrics("no-metrics", "Hide the fusion metrics overlay.");
    const QCommandLineOption screenshot("screenshot", "Save the view to this PNG file and quit.", "file");
    const QCommandLineOption after("after", "Seconds to wait before the screenshot (default 4).", "seconds", "4");
    const QCommandLineOption size("size", "Window size (default 1280x800).", "WxH", "1280x800");
    parser.addOptions({people, noRaw, noMetrics, screenshot, after, size});
    parser.process(app);

    pyra_sim::Scene scene = pyra_sim::activeScene();
    bool ok = false;
    const int count = parser.value(people).toInt(&ok);
    if (!ok || count < 0 || count > 20) {
        std::cerr << "--people wants a number from 0 to 20, not \"" << parser.value(people).toStdString() << "\""
                  << std::endl;
        return 2;
    }
    scene.people.count = count;
    pyra_sim::setActiveScene(scene);
    const QStringList dimensions = parser.value(size).split('x');
    const int width = dimensions.size() == 2 ? dimensions[0].toInt() : 0;
    const int height = dimensions.size() == 2 ? dimensions[1].toInt() : 0;
    if (width < 64 || height < 64) {
        std::cerr << "--size wants WIDTHxHEIGHT, e.g. 1280x800" << std::endl;
        return 2;
    }

    SharedData::getInstance().showRawData = !parser.isSet(noRaw);
    SharedData::getInstance().showMetrics = !parser.isSet(noMetrics);

    GlViewer viewer;
    viewer.setWindowTitle("Halden viewer demo");
    viewer.resize(width, height);
    viewer.show();

    DemoRoom room;
    std::string message;
    const bool started = room.start(
        [&viewer] { QMetaObject::invokeMethod(&viewer, "updateData", Qt::QueuedConnection); }, &message);
    if (!started) {
        std::cerr << message << std::endl;
        return 1;
    }
    std::cout << "Viewing " << room.cameraCount() << " cameras and " << count << " people." << std::endl;

    QTimer repaint;
    QObject::connect(&repaint, &QTimer::timeout, &viewer, QOverload<>::of(&GlViewer::update));
    repaint.start(50);

    int status = 0;
    if (parser.isSet(screenshot)) {
        const double seconds = parser.value(after).toDouble();
        QTimer::singleShot(int(seconds * 1000.0), &viewer, [&] {
            const QString file = parser.value(screenshot);
            if (!viewer.grabFramebuffer().save(file)) {
                std::cerr << "Could not write " << file.toStdString() << std::endl;
                status = 1;
            }
            app.quit();
        });
    }
    const int code = app.exec();
    room.stop();
    return status ? status : code;
}
