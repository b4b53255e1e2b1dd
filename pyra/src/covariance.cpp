// Keypoint covariances through a linear change of frame: the cameras report them in their
// own frame and unit, the fusion and the calibration want them in the caller's.
#include "lum/covariance.hpp"

namespace lum {

std::array<float, 6> transformCovariance(const lum::Matrix3f& c, float scale, const std::array<float, 6>& cov) {
    const float s[3][3] = {{cov[0], cov[1], cov[2]}, {cov[1], cov[3], cov[4]}, {cov[2], cov[4], cov[5]}};
    float out[3][3];
    for (int r = 0; r < 3; ++r)
        for (int k = 0; k < 3; ++k) {
            float sum = 0.f;
            for (int i = 0; i < 3; ++i)
                for (int j = 0; j < 3; ++j) sum += c(r, i) * s[i][j] * c(k, j);
            out[r][k] = sum * scale * scale;
        }
    return {out[0][0], out[0][1], out[0][2], out[1][1], out[1][2], out[2][2]};
}

}  // namespace lum
