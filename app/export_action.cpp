// The window's way to the exporters: two file questions and a message, nothing more; the
// formats and their conventions live in the exporters library and docs/export.md.
#include "app/export_action.hpp"

#include <QDir>
#include <QMainWindow>
#include <QMenu>
#include <QMenuBar>

#include "core/user_prompts.hpp"
#include "exporters/room_export.hpp"

namespace {

std::optional<exporters::Format> formatOf(const QString& file) {
    const QString name = file.toLower();
    if (name.endsWith(".yaml") || name.endsWith(".yml")) return exporters::Format::OpenCv;
    if (name.endsWith(".toml")) return exporters::Format::Toml;
    if (name.endsWith(".xml")) return exporters::Format::Ros2;
    if (name.endsWith(".json")) return exporters::Format::Matrix;
    return std::nullopt;
}

void exportCalibration(UserPrompts& prompts) {
    const QString room = prompts.askOpenFileName(QObject::tr("Room calibration to export"), QDir::homePath(),
                                                 QObject::tr("Pyra Room Calibration files (*.json)"));
    if (room.isEmpty()) return;
    const QString output = prompts.askSaveFileName(
        QObject::tr("Export calibration as"), QDir::home().filePath("room.yaml"),
        QObject::tr("OpenCV FileStorage (*.yaml);;TOML camera tables (*.toml);;ROS 2 launch file (*.launch.xml);;"
                    "Camera-to-room matrices (*.json)"));
    if (output.isEmpty()) return;
    const std::optional<exporters::Format> format = formatOf(output);
    if (!format) {
        prompts.exec({QObject::tr("Calibration not exported"),
                      QObject::tr("%1: end the name with .yaml (OpenCV), .toml, .launch.xml (ROS 2) or .json "
                                  "(matrices) to choose the format.")
                          .arg(output),
                      PromptIcon::Warning});
        return;
    }
    std::string problem;
    if (exporters::exportRoom(room.toStdString(), *format, output.toStdString(), problem) !=
        exporters::ExportStatus::Written) {
        prompts.exec({QObject::tr("Calibration not exported"), QString::fromStdString(problem), PromptIcon::Warning});
        return;
    }
    prompts.exec({QObject::tr("Calibration exported"),
                  QObject::tr("%1 written (%2).").arg(output, exporters::formatName(*format)),
                  PromptIcon::Information});
}

}  // namespace

void installExportAction(QMainWindow& window, UserPrompts& prompts) {
    QMenu* menu = nullptr;
    for (QMenu* candidate : window.menuBar()->findChildren<QMenu*>())
        if (candidate->title() == QObject::tr("Calibration")) menu = candidate;
    if (!menu) menu = window.menuBar()->addMenu(QObject::tr("Calibration"));
    menu->addSeparator();
    QAction* action = menu->addAction(QObject::tr("Export calibration..."));
    action->setObjectName("export_calibration_action");
    QObject::connect(action, &QAction::triggered, &window, [&prompts] { exportCalibration(prompts); });
}
