// libFuzzer driver for frames as the calibration takes them: whatever stamps, ids,
// coordinates and covariances a sender puts on the wire, the way in never crashes, the
// calibration keeps only finite, weighted keypoints, and solving and reporting never crash.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

#include "calibration/body_association.hpp"
#include "calibration/capture_gate.hpp"
#include "calibration/frame_assembler.hpp"
#include "calibration/report_json.hpp"
#include "calibration/keypoint_pairs.hpp"
#include "calibration/skeleton_align.hpp"
#include "pyra/src/transport/frame_codec.hpp"

namespace {

// The decoded body walked a little per frame and seen again by a second camera one metre
// to its side, so inputs that decode reach a well-posed solve.
lum::BodyData moved(const lum::BodyData& body, float dx) {
    lum::BodyData copy = body;
    for (lum::Vector3f& p : copy.keypoint) p.x += dx;
    return copy;
}

// The way in the fusion worker takes: the gate (stamps, ids, body counts, keypoints), the
// assembler and the association, with the decoded capture as one camera and a copy a
// metre aside, stamped a frame later, as another.
void enterAsTheWorkerDoes(const lum::Bodies& decoded) {
    calib::CaptureGate gate;
    calib::BodyAssociator associator;
    calib::FrameAssembler assembler;
    assembler.setAssociation([&associator](const calib::BodiesAtInstant& bodies) { return associator.associate(bodies); });
    for (int f = 0; f < 4; ++f) {
        lum::Bodies first = decoded, second = decoded;
        first.is_new = second.is_new = true;
        first.timestamp = lum::Timestamp(decoded.timestamp.getNanoseconds() + uint64_t(f) * 33000000ULL);
        second.timestamp = lum::Timestamp(first.timestamp.getNanoseconds() + 1000000ULL);
        for (lum::BodyData& body : second.body_list) body = moved(body, 1.f);
        std::map<int, lum::Bodies*> captures{{1, &first}, {2, &second}};
        gate.screen(captures, int64_t(f) * 33000000);
        for (auto& [camera, bodies] : captures) {
            if (!bodies->is_new) continue;
            gate.screenKeypoints(camera, *bodies);
            assembler.addBodies(camera, *bodies);
        }
        for (const calib::CameraBodies& person : assembler.assemble())
            if (person.size() < 2) std::abort();
    }
    gate.trouble(1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    pyra::transport::Frame frame;
    if (!pyra::transport::decodeFrame(data, size, frame) || frame.bodies.body_list.empty()) return 0;
    enterAsTheWorkerDoes(frame.bodies);
    SkeletonMulticameraCalibration classic;
    // Crashes hide on the paths, not in convergence: a few iterations per solve walk them
    // all and keep the driver fast enough for a million inputs.
    classic.options.maxIterations = 3;
    classic.options.refined.maxIterations = 3;
    const auto& bodies = frame.bodies.body_list;
    for (int f = 0; f < 6; ++f) {
        const lum::BodyData& body = bodies[size_t(f) % bodies.size()];
        std::map<int, lum::BodyData> seen{{1, moved(body, 0.05f * f)}, {2, moved(body, 0.05f * f + 1.f)}};
        classic.frames.add(lum::Timestamp(uint64_t(1e9) + uint64_t(f) * 500000000ULL), seen);
    }
    calib::forEachKeypointPair(classic.frames.all(), [](lum::Timestamp, int, int, const Eigen::Vector3d& a,
                                                  const Eigen::Vector3d& b, const Eigen::Matrix3d& weight, int) {
        if (!a.allFinite() || !b.allFinite() || !weight.allFinite()) std::abort();
    });
    SkeletonMulticameraCalibration refined = classic;
    refined.options.model = SkeletonMulticameraCalibration::Model::Refined;
    for (SkeletonMulticameraCalibration* calibration : {&classic, &refined}) {
        calibration->calibrate();
        const CalibrationReport report = makeCalibrationReport(*calibration);
        if (toJson(report).dump().empty()) std::abort();
    }
    return 0;
}
