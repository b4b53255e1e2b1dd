// The role table of the 18-, 34- and 38-keypoint layouts, written with the SDK's own
// body-part names so that a misplaced index reads as the wrong joint.
#include "calibration/body_layout.hpp"

namespace calib {

namespace {

template <typename Part>
int at(Part part) {
    return static_cast<int>(part);
}

BodyLayout body18() {
    using P = lum::BODY_18_PARTS;
    BodyLayout l;
    l.format = lum::BODY_FORMAT::BODY_18;
    l.keypoints = size_t(at(P::LAST));
    l.ankles = {at(P::LEFT_ANKLE), at(P::RIGHT_ANKLE)};
    l.hips = {at(P::LEFT_HIP), at(P::RIGHT_HIP)};
    l.neck = at(P::NECK);
    return l;
}

BodyLayout body34() {
    using P = lum::BODY_34_PARTS;
    BodyLayout l;
    l.format = lum::BODY_FORMAT::BODY_34;
    l.keypoints = size_t(at(P::LAST));
    l.ankles = {at(P::LEFT_ANKLE), at(P::RIGHT_ANKLE)};
    l.heels = {at(P::LEFT_HEEL), at(P::RIGHT_HEEL)};
    l.toes = {at(P::LEFT_FOOT), at(P::RIGHT_FOOT)};
    l.hips = {at(P::LEFT_HIP), at(P::RIGHT_HIP)};
    l.pelvis = at(P::PELVIS);
    l.neck = at(P::NECK);
    return l;
}

BodyLayout body38() {
    using P = lum::BODY_38_PARTS;
    BodyLayout l;
    l.format = lum::BODY_FORMAT::BODY_38;
    l.keypoints = size_t(at(P::LAST));
    l.ankles = {at(P::LEFT_ANKLE), at(P::RIGHT_ANKLE)};
    l.heels = {at(P::LEFT_HEEL), at(P::RIGHT_HEEL)};
    l.toes = {at(P::LEFT_BIG_TOE), at(P::RIGHT_BIG_TOE)};
    l.hips = {at(P::LEFT_HIP), at(P::RIGHT_HIP)};
    l.pelvis = at(P::PELVIS);
    l.neck = at(P::NECK);
    return l;
}

const std::array<BodyLayout, 3>& layouts() {
    static const std::array<BodyLayout, 3> all = {body18(), body34(), body38()};
    return all;
}

}  // namespace

const BodyLayout* bodyLayout(lum::BODY_FORMAT format) {
    for (const BodyLayout& layout : layouts())
        if (layout.format == format) return &layout;
    return nullptr;
}

const BodyLayout* layoutOf(const lum::BodyData& body) {
    for (const BodyLayout& layout : layouts())
        if (layout.keypoints == body.keypoint.size()) return &layout;
    return nullptr;
}

}  // namespace calib
