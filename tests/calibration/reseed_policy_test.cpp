// The re-seeding decision on hand-made reports: a moved camera is found anew at once and
// reads Moved until placed again; a residual far above its peers' only once it persists;
// the reference, held still in both halves, reads Moved only when the others move against it.
#include <gtest/gtest.h>

#include "calibration/calibration_verdict.hpp"
#include "calibration/reseed_policy.hpp"

namespace {

CalibrationReport room(double rms41003, double growth41003) {
    CalibrationReport report;
    report.usable = true;
    for (int camera : {41001, 41002, 41003, 41004}) {
        CameraCalibrationReport entry;
        entry.camera = camera;
        entry.residualBlocks = 5000;
        entry.rmsAfterMm = camera == 41003 ? rms41003 : 50.0;
        entry.framesSharedWith = {{camera == 41001 ? 41002 : 41001, 80}};
        entry.uncertainty.residualGrowth = camera == 41003 ? growth41003 : 1.05;
        entry.uncertainty.halvesApartDeg = camera == 41003 ? 3.0 : 0.1;
        entry.uncertainty.halvesApartMm = camera == 41003 ? 90.0 : 5.0;
        report.cameras.push_back(entry);
    }
    return report;
}

CameraReadiness verdictOf(const CalibrationReport& report, int camera) {
    for (const CameraCalibrationReport& entry : report.cameras)
        if (entry.camera == camera) return assessCamera(&entry, report).readiness;
    return assessCamera(nullptr, report).readiness;
}

}  // namespace

TEST(ReseedPolicy, AMovedCameraReadsMovedUntilItIsPlacedAgain) {
    calib::ReseedPolicy policy;
    EXPECT_TRUE(policy.review(room(50.0, 1.0)).empty());
    EXPECT_EQ(policy.review(room(60.0, 2.0)), std::vector<int>{41003});

    // Its frames are gone, so the next solves leave it out: still Moved, and said so.
    CalibrationReport without = room(50.0, 1.0);
    without.cameras.erase(without.cameras.begin() + 2);
    without.unplaced[41003] = "with 41002 it shares 3 of the 12 frames a first pose needs";
    EXPECT_TRUE(policy.review(without).empty());
    policy.annotate(without);
    EXPECT_EQ(verdictOf(without, 41003), CameraReadiness::Moved);
    EXPECT_EQ(without.reseeding, std::vector<int>{41003});
    EXPECT_NE(without.unplaced.at(41003).find("moved"), std::string::npos);

    CalibrationReport placed = room(50.0, 1.0);
    EXPECT_TRUE(policy.review(placed).empty());
    policy.annotate(placed);
    EXPECT_NE(verdictOf(placed, 41003), CameraReadiness::Moved);
    EXPECT_TRUE(placed.reseeding.empty());
}

TEST(ReseedPolicy, AResidualOutlierIsFoundAnewOnlyWhenItPersists) {
    calib::ReseedPolicy policy;
    EXPECT_TRUE(policy.review(room(400.0, 1.0)).empty());
    EXPECT_TRUE(policy.review(room(120.0, 1.0)).empty());  // under the floor of 150 mm
    EXPECT_TRUE(policy.review(room(400.0, 1.0)).empty());
    EXPECT_EQ(policy.review(room(420.0, 1.0)), std::vector<int>{41003});
}

// The reference has no halves of its own to compare, so its residual growing most is not
// enough: some camera's always does. It moved when the others, seen from it, did.
TEST(ReseedPolicy, TheReferenceReadsMovedOnlyWhenTheOthersMoveAgainstIt) {
    CalibrationReport report = room(50.0, 1.0);
    CameraCalibrationReport& reference = report.cameras.front();
    reference.uncertainty.residualGrowth = 1.6;
    reference.uncertainty.halvesApartDeg = reference.uncertainty.halvesApartMm = CameraUncertainty::kUnknown;
    report.cameras[2].uncertainty.halvesApartDeg = 0.1;
    report.cameras[2].uncertainty.halvesApartMm = 5.0;
    EXPECT_NE(verdictOf(report, 41001), CameraReadiness::Moved);
    EXPECT_TRUE(calib::ReseedPolicy().review(report).empty());

    for (CameraCalibrationReport& other : report.cameras) {
        if (other.camera == 41001) continue;
        other.uncertainty.halvesApartDeg = 1.5;
        other.uncertainty.halvesApartMm = 60.0;
    }
    EXPECT_EQ(verdictOf(report, 41001), CameraReadiness::Moved);
    for (int camera : {41002, 41003, 41004}) EXPECT_NE(verdictOf(report, camera), CameraReadiness::Moved) << camera;
    EXPECT_EQ(calib::ReseedPolicy().review(report), std::vector<int>{41001});
}
