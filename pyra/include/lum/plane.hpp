// Plane fit over a point list (principal component analysis).
// first: unit normal of the fitted plane; second: mean point; third: eigenvalues, ascending.
#pragma once

#include <vector>

#include "lum/math.hpp"

namespace plane {

void compute_pca(const std::vector<lum::Vector3f>& points, lum::Vector3f& first, lum::Vector3f& second,
                 lum::Vector3f& third);

}  // namespace plane
