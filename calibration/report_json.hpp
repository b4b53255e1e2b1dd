// The calibration report as a file: the figures a user should act on first (verdict,
// advice, the 1-sigma that covers systematic error), the solver's own figures named formal.
#pragma once

#include <nlohmann/json.hpp>

#include "calibration/calibration_verdict.hpp"

// Raised whenever a field changes meaning or goes away; docs/report.md keeps the history.
constexpr int kReportSchemaVersion = 2;

// "good", "settling", "needs_frames", "no_data" or "moved".
const char* verdictKey(CameraReadiness readiness);

// Unknown figures (NaN) are written as null.
// Keys in reading order: what to act on first.
nlohmann::ordered_json toJson(const CalibrationReport& report,
                              const ReadinessThresholds& thresholds = ReadinessThresholds());
