// The panel beside the 3D view while calibrating: per camera, how far its pose can be
// trusted and which other cameras it still needs to be seen with.
#pragma once

#include <QFrame>

#include <set>
#include <vector>

#include "calibration/body_association.hpp"
#include "calibration/calibration_report.hpp"
#include "calibration/calibration_verdict.hpp"

class QLabel;
class QTableWidget;

class CalibrationPanel : public QFrame {
    Q_OBJECT
public:
    explicit CalibrationPanel(QWidget* parent = nullptr);

    // The serial numbers of the room, so cameras that never took part are listed too.
    void setRoomCameras(std::vector<int> serials);
    // Forgets the last report (a new room or a fresh calibration).
    void clear();
    int rowCount() const;
    // The readiness shown for the room's camera in `row`.
    CameraReadiness readinessAt(int row) const { return readiness_.at(row); }
    QString summaryText() const;
    // The cameras listed whose state is not Good, and whether the last solve was usable.
    std::vector<int> camerasNotGood() const;
    bool hasUsableReport() const { return report_.usable; }
    // Replaces the advice once the calibration is over: where its result went.
    void setConclusion(const QString& text);

public slots:
    void setReport(CalibrationReport report);
    void setFrameCount(int frames);
    void setCameraPeople(std::vector<calib::CameraPeople> cameras);

private:
    void refresh();

    std::vector<int> roomCameras_;
    CalibrationReport report_;
    std::vector<int> rows_;
    std::vector<CameraReadiness> readiness_;
    // Cameras that read Good since the last clear(): they keep it within a margin, so a
    // figure wobbling about a threshold does not flicker the state.
    std::set<int> held_;
    int frames_ = 0;
    // Moments of the walk held back until each person is matched across the cameras; they
    // become frames all at once when the cameras agree, so they are counted meanwhile.
    int heldMoments_ = 0;
    bool concluded_ = false;
    QLabel* summary_ = nullptr;
    QLabel* framesLabel_ = nullptr;
    QLabel* peopleLabel_ = nullptr;
    QLabel* floorLabel_ = nullptr;  // why the world is not levelled, while it is not
    QTableWidget* table_ = nullptr;
};
