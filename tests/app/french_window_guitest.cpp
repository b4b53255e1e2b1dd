// The window in French: every text of ours that the window, its menus, the room set-up
// and a busy calibration panel look up has a French translation.
#include <QAbstractButton>
#include <QAction>
#include <QLabel>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTranslator>

#include "app/calibration_advice.hpp"
#include "app/calibration_panel.hpp"
#include "app/mainwindow.hpp"
#include "style/style.hpp"
#include "testing/camera_report.hpp"
#include "tests/app/recording_prompts.hpp"
#include "tests/app/widget_lookup.hpp"
#include "workspace/wscreator.hpp"

namespace {

// The French translation, keeping every text of ours it had nothing for. Qt's own
// classes (contexts "Q...", but for QObject::tr) bring their own translations.
class MissRecorder : public QTranslator {
public:
    QString translate(const char* context, const char* source, const char* disambiguation = nullptr,
                      int n = -1) const override {
        const QString found = QTranslator::translate(context, source, disambiguation, n);
        const QString name = QString::fromLatin1(context);
        if (found.isNull() && (name == "QObject" || !name.startsWith('Q'))) misses << name + ": " + source;
        return found;
    }
    mutable QStringList misses;
};

}  // namespace

class FrenchWindowTest : public QObject {
    Q_OBJECT
private slots:
    void everyTextOfOursHasAFrenchTranslation();
};

void FrenchWindowTest::everyTextOfOursHasAFrenchTranslation() {
    QTemporaryDir home;
    qputenv("HOME", home.path().toLocal8Bit());
    Style::loadResources();
    MissRecorder french;
    QVERIFY(french.load(":/i18n/untitled_fr"));
    QCoreApplication::installTranslator(&french);
    auto prompts = std::make_shared<RecordingPrompts>();
    {
        MainWindow window(nullptr, prompts);
        window.show();
        findWidget<QAction>(&window, "record_walk_action")->trigger();  // no room: said why
        window.onCameraMoved(41001, 2.5, 40.0);
        findWidget<QAbstractButton>(window.workspaceCreator(), "create_toolButton")->click();  // nothing to start

        // A panel with all it can say: a camera being placed anew, clocks, a refused floor,
        // more cameras to advise than the summary lists, people in view.
        auto* panel = findWidget<CalibrationPanel>(&window, "report_panel");
        panel->setRoomCameras({41001, 41002, 41003, 41004, 41005});
        CalibrationReport report;
        report.usable = true;
        report.frames = 40;
        report.floorRefused = "the feet stayed on one spot or one line (0.05 m across); the floor is left unlevelled";
        report.floorRefusedSpanM = 0.05;
        for (int camera = 41001; camera <= 41005; ++camera) {
            report.cameras.push_back(synthetic::cameraReport(camera, {{camera == 41001 ? 41002 : 41001, 30}}, 0.5, 40));
            report.cameras.back().clockOffsetS = 0.012;
            report.cameras.back().clockOffsetSigmaS = 0.001;
        }
        panel->setReport(report);
        panel->setCameraPeople({{41001, 1, true}, {41002, 0, false}});
        panel->setFrameCount(0);
        report.reseeding = {41002};
        report.cameras[1].reseedingAfterMove = true;
        panel->setReport(report);
        report.cameras[1].reseedingAfterMove = false;
        report.cameras[1].uncertainty.residualGrowth = 5.0;
        panel->setReport(report);
        panel->setCameraPeople({{41001, 2, true}, {41002, 1, false}});
        QStringList shown;
        for (const QLabel* label : panel->findChildren<QLabel*>()) shown << label->text();
        const auto* table = panel->findChild<QTableWidget*>();
        for (int row = 0; row < table->rowCount(); ++row) shown << table->item(row, 3)->toolTip();
        for (const char* english : {"see you", "person,", " people", "Cover the", "Walk ", "the feet"})
            QVERIFY2(shown.filter(english).isEmpty(), qPrintable(shown.filter(english).join("\n")));
    }
    // Every piece of advice the panel can give, whatever state the walk is in.
    QStringList advice;
    for (int kind = 0; kind <= static_cast<int>(AdviceKind::WalkNearAndFar); ++kind)
        for (bool apartKnown : {false, true})
            for (int edge = 0; edge <= static_cast<int>(ViewEdge::Bottom); ++edge) {
                Advice facts;
                facts.kind = static_cast<AdviceKind>(kind);
                facts.apartKnown = apartKnown;
                facts.edge = static_cast<ViewEdge>(edge);
                advice << CalibrationAdvice::text(facts);
            }
    advice << CalibrationAdvice::peopleInView({{41001, 0, false}, {41002, 1, true}, {41003, 1, false},
                                               {41004, 2, true}, {41005, 3, false}});
    QCoreApplication::removeTranslator(&french);
    QVERIFY2(french.misses.isEmpty(), qPrintable(french.misses.join("\n")));
    QVERIFY(prompts->titles().contains("Aucune caméra valide"));
    QVERIFY(advice.filter("personnes, pas encore appariées").size() == 1);
}

QTEST_MAIN(FrenchWindowTest)
#include "french_window_guitest.moc"
