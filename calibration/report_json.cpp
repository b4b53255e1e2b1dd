// Writes the report's schema. Each camera is judged here with the same verdict the panel
// and halden-cli show, so a file read on its own says as much as the window did.
#include "calibration/report_json.hpp"

const char* verdictKey(CameraReadiness readiness) {
    switch (readiness) {
        case CameraReadiness::NoData: return "no_data";
        case CameraReadiness::NeedsFrames: return "needs_frames";
        case CameraReadiness::Uncertain: return "settling";
        case CameraReadiness::Moved: return "moved";
        case CameraReadiness::Good: return "good";
    }
    return "no_data";
}

nlohmann::ordered_json toJson(const CalibrationReport& report, const ReadinessThresholds& thresholds) {
    nlohmann::ordered_json cameras = nlohmann::ordered_json::array();
    for (const CameraCalibrationReport& camera : report.cameras) {
        nlohmann::ordered_json shared = nlohmann::ordered_json::object();
        for (const auto& [other, frames] : camera.framesSharedWith) shared[std::to_string(other)] = frames;
        const CameraUncertainty& u = camera.uncertainty;
        const ViewCoverage& view = u.coverage;
        const CameraAssessment assessment = assessCamera(&camera, report, thresholds);
        cameras.push_back(
            {{"camera", camera.camera},
             {"verdict", verdictKey(assessment.readiness)},
             {"advice", assessment.advice},
             {"rotationSigmaDeg", u.rotationSigmaDeg},
             {"positionSigmaMm", u.positionSigmaMm},
             {"formal", {{"rotationSigmaDeg", camera.rotationSigmaDeg}, {"translationSigmaMm", camera.translationSigmaMm}}},
             {"residualBlocks", camera.residualBlocks},
             {"rmsBeforeMm", camera.rmsBeforeMm},
             {"rmsAfterMm", camera.rmsAfterMm},
             {"framesSharedWith", shared},
             {"clockOffsetS", camera.clockOffsetS},
             {"clockOffsetSigmaS", camera.clockOffsetSigmaS},
             {"evidence",
              {{"halvesApartDeg", u.halvesApartDeg},
               {"halvesApartMm", u.halvesApartMm},
               {"residualGrowth", u.residualGrowth},
               {"trackerBiasMm", u.trackerBiasMm},
               {"pullSpreadMm", u.pullSpreadMm},
               {"viewDepthMm", u.viewDepthMm},
               {"viewShares", {{"left", view.left}, {"right", view.right}, {"top", view.top}, {"bottom", view.bottom}}}}}});
    }
    return {{"schema", "halden-calibration-report"},
            {"version", kReportSchemaVersion},
            {"usable", report.usable},
            {"frames", report.frames},
            {"residualBlocks", report.residualBlocks},
            {"solveSeconds", report.solveSeconds},
            {"cameras", cameras}};
}
