// Calibration model menu: an exclusive pair of checkable actions backed by QSettings.
#include "app/calibration_model_menu.hpp"

#include <QActionGroup>
#include <QMainWindow>
#include <QMenuBar>
#include <QSettings>

#include "fusion/fusion_worker.hpp"

namespace {

constexpr const char* kModelKey = "calibration/model";

}  // namespace

QActionGroup* installCalibrationModelMenu(QMainWindow& window, FusionWorker& worker) {
    QMenu* menu = window.menuBar()->addMenu(QObject::tr("Calibration"));
    auto* group = new QActionGroup(menu);
    group->setExclusive(true);
    QAction* refined = menu->addAction(QObject::tr("Refined model (level floor, depth bias, aligned clocks)"));
    QAction* classic = menu->addAction(QObject::tr("Classic model (poses only)"));
    for (QAction* action : {refined, classic}) {
        action->setCheckable(true);
        group->addAction(action);
    }
    refined->setObjectName("refined_model_action");
    classic->setObjectName("classic_model_action");

    const bool useClassic = QSettings().value(kModelKey).toString() == "classic";
    (useClassic ? classic : refined)->setChecked(true);
    worker.setCalibrationModel(useClassic ? SkeletonMulticameraCalibration::Model::Classic
                                          : SkeletonMulticameraCalibration::Model::Refined);
    QObject::connect(group, &QActionGroup::triggered, &window, [&worker, classic](QAction* chosen) {
        const bool isClassic = chosen == classic;
        QSettings().setValue(kModelKey, isClassic ? "classic" : "refined");
        worker.setCalibrationModel(isClassic ? SkeletonMulticameraCalibration::Model::Classic
                                             : SkeletonMulticameraCalibration::Model::Refined);
    });
    return group;
}
