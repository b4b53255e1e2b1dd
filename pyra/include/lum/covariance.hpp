// Keypoint covariances, stored as the six upper-triangle terms (xx, xy, xz, yy, yz, zz),
// re-expressed when their points change frame or unit, by the fusion and by Halden alike.
#pragma once

#include <array>

#include "lum/math.hpp"

namespace lum {

// C * cov * C^T * scale^2 on the six upper-triangle terms.
std::array<float, 6> transformCovariance(const lum::Matrix3f& c, float scale, const std::array<float, 6>& cov);

}  // namespace lum
