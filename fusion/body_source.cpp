// The live body source, and the room-frame transform a played-back source applies the way
// the SDK fusion does, so that both feed the worker the same numbers.
#include "fusion/body_source.hpp"

#include "lum/covariance.hpp"

namespace {

constexpr auto kBaselink = lum::FUSION_REFERENCE_FRAME::BASELINK;
constexpr auto kWorld = lum::FUSION_REFERENCE_FRAME::WORLD;

}  // namespace

void bodiesToRoom(lum::Bodies& bodies, const lum::Transform& pose) {
    const lum::Matrix3f axes = pose.getRotationMatrix();
    const lum::Vector3f offset = pose.getTranslation();
    for (lum::BodyData& b : bodies.body_list) {
        for (lum::Vector3f& p : b.keypoint) p = axes * p + offset;
        for (auto& cov : b.keypoint_covariances) cov = lum::transformCovariance(axes, 1.f, cov);
        b.position = axes * b.position + offset;
        b.position_covariance = lum::transformCovariance(axes, 1.f, b.position_covariance);
        b.velocity = axes * b.velocity;
    }
}

void HeldCapture::handOver(lum::Bodies& bodies) {
    bodies = latest;
    bodiesToRoom(bodies, pose);
    bodies.is_new = unread;
    unread = false;
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
