// The live body source, and the room-frame transform a played-back source applies the way
// the SDK fusion does, so that both feed the worker the same numbers.
#include "fusion/body_source.hpp"

namespace {

constexpr auto kBaselink = lum::FUSION_REFERENCE_FRAME::BASELINK;
constexpr auto kWorld = lum::FUSION_REFERENCE_FRAME::WORLD;

std::array<float, 6> rotateCovariance(const lum::Matrix3f& c, const std::array<float, 6>& cov) {
    const float s[3][3] = {{cov[0], cov[1], cov[2]}, {cov[1], cov[3], cov[4]}, {cov[2], cov[4], cov[5]}};
    float out[3][3];
    for (int r = 0; r < 3; ++r)
        for (int k = 0; k < 3; ++k) {
            float sum = 0.f;
            for (int i = 0; i < 3; ++i)
                for (int j = 0; j < 3; ++j) sum += c(r, i) * s[i][j] * c(k, j);
            out[r][k] = sum;
        }
    return {out[0][0], out[0][1], out[0][2], out[1][1], out[1][2], out[2][2]};
}

}  // namespace

void bodiesToRoom(lum::Bodies& bodies, const lum::Transform& pose) {
    const lum::Matrix3f axes = pose.getRotationMatrix();
    const lum::Vector3f offset = pose.getTranslation();
    for (lum::BodyData& b : bodies.body_list) {
        for (lum::Vector3f& p : b.keypoint) p = axes * p + offset;
        for (auto& cov : b.keypoint_covariances) cov = rotateCovariance(axes, cov);
        b.position = axes * b.position + offset;
        b.position_covariance = rotateCovariance(axes, b.position_covariance);
        b.velocity = axes * b.velocity;
    }
}

lum::FUSION_ERROR_CODE LiveBodySource::process() {
    const lum::FUSION_ERROR_CODE status = fusion_->process();
    if (status != lum::FUSION_ERROR_CODE::SUCCESS || !sink_) return status;
    for (const lum::CameraIdentifier& camera : cameras_) {
        lum::Bodies received;
        if (fusion_->retrieveBodies(received, lum::BodyTrackingFusionRuntimeParameters(), camera, kBaselink) !=
                lum::FUSION_ERROR_CODE::SUCCESS ||
            !received.is_new)
            continue;
        unread_[camera] = true;
        sink_(static_cast<int>(camera.sn), received);
    }
    return status;
}

void LiveBodySource::retrieveBodies(lum::Bodies& bodies, lum::CameraIdentifier camera) {
    fusion_->retrieveBodies(bodies, lum::BodyTrackingFusionRuntimeParameters(), camera, kWorld);
    auto taken = unread_.find(camera);
    if (taken == unread_.end()) return;
    bodies.is_new = bodies.is_new || taken->second;
    unread_.erase(taken);
}

void LiveBodySource::updatePose(lum::CameraIdentifier camera, const lum::Transform& pose) {
    fusion_->updatePose(camera, pose);
}

void LiveBodySource::setSink(CaptureSink sink, std::vector<lum::CameraIdentifier> cameras) {
    sink_ = std::move(sink);
    cameras_ = std::move(cameras);
    unread_.clear();
}
