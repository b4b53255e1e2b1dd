// Fusing the bodies several cameras report in the world frame: association by distance,
// covariance-weighted averaging, and fused ids kept stable from one set to the next.
#pragma once

#include <array>
#include <vector>

#include "lum/covariance.hpp"
#include "lum/math.hpp"
#include "lum/records.hpp"

namespace pyra {

// Re-expresses bodies through a linear map (axes and scale) and a translation.
void transformBodies(lum::Bodies& bodies, const lum::Matrix3f& axes, float scale, const lum::Vector3f& offset);

struct FusedBody {
    lum::BodyData body;
    int cameras = 0;  // how many cameras saw it
};

class BodyFuser {
public:
    // `views`: each camera's bodies, already in the world frame; `sameDistance`: how close
    // two bodies' centres must be to count as one person.
    std::vector<FusedBody> fuse(const std::vector<const lum::Bodies*>& views, float sameDistance);

private:
    struct Track {
        int id;
        lum::Vector3f centre;
    };
    std::vector<Track> tracks_;
    int nextId_ = 0;
};

}  // namespace pyra
