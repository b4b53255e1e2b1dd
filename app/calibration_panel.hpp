// The panel beside the 3D view while calibrating: per camera, how far its pose can be
// trusted and which other cameras it still needs to be seen with.
#pragma once

#include <QFrame>

#include <vector>

#include "calibration/body_association.hpp"
#include "calibration/calibration_report.hpp"

class QLabel;
class QTableWidget;

// How far one camera of the room has come.
enum class CameraReadiness { NoData, NeedsFrames, Uncertain, Good };

struct CameraAssessment {
    CameraReadiness readiness = CameraReadiness::NoData;
    QString advice;
};

// Thresholds under which a camera's pose is called good. The sigmas only see random
// noise, not the trackers' bias toward the camera, so they are kept well below the
// accuracy wanted, and enough shared frames are asked for to average the bias over
// many viewing directions.
struct ReadinessThresholds {
    int minimumSharedFrames = 60;
    double maximumRotationSigmaDeg = 0.2;
    double maximumTranslationSigmaMm = 5.0;
};

// `camera` is null when the last solve did not involve that camera at all.
CameraAssessment assessCamera(const CameraCalibrationReport* camera, bool usable,
                              const ReadinessThresholds& thresholds = ReadinessThresholds());

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
    std::vector<CameraReadiness> readiness_;
    int frames_ = 0;
    bool concluded_ = false;
    QLabel* summary_ = nullptr;
    QLabel* framesLabel_ = nullptr;
    QLabel* peopleLabel_ = nullptr;
    QTableWidget* table_ = nullptr;
};
