// Per camera pair moment sums of the refined calibration's weighted residuals, and the
// Ceres cost that turns them into the pair's Gauss-Newton block at any evaluation point.
#include "calibration/refined_moments.hpp"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <map>
#include <thread>

#include <Eigen/Eigenvalues>
#include <Eigen/Geometry>

namespace calib {

namespace {

constexpr int kCoefficients = 14;  // c = (a, rayA, 1, -b, -rayB, -1)
constexpr int kPacked = kCoefficients * (kCoefficients + 1) / 2;
constexpr int kTangent = 14;       // turn, shift and bias of A, then of B
constexpr int kRows = kTangent + 1;

// Sums of c_k c_l (k <= l, row by row) times each of the six distinct entries of G.
using Accumulator = PackedMoments;
static_assert(kPacked == PackedMoments::RowsAtCompileTime, "one packed layout");

struct CameraState {
    Eigen::Matrix3d rotation;
    Eigen::Vector3d translation;
    double bias;
};

Eigen::Matrix3d skew(const Eigen::Vector3d& v) {
    Eigen::Matrix3d m;
    m << 0, -v.z(), v.y(), v.z(), 0, -v.x(), -v.y(), v.x(), 0;
    return m;
}

void accumulate(const FramePair& pair, const CameraState& a, const CameraState& b, const RefinedOptions& options,
                MomentWeights weights, Accumulator& sums) {
    Eigen::Matrix<double, kCoefficients, 1> c;
    Eigen::Matrix<double, kPacked, 1> packed;
    Eigen::Matrix<double, 6, 1> g;
    for (const JointPair& joint : pair.joints) {
        if (weights == MomentWeights::Refined) {
            const JointTerms terms =
                jointTerms(joint, a.rotation, a.translation, a.bias, b.rotation, b.translation, b.bias, options);
            const Eigen::Matrix3d& G = terms.information;
            g << G(0, 0), G(0, 1), G(0, 2), G(1, 1), G(1, 2), G(2, 2);
            c << joint.a, terms.rayA, 1.0, -joint.b, -terms.rayB, -1.0;
        } else {
            g << 1, 0, 0, 1, 0, 1;  // biases are held: the rays do not matter
            c << joint.a, joint.rayA, 1.0, -joint.b, -joint.rayB, -1.0;
        }
        int index = 0;
        for (int k = 0; k < kCoefficients; ++k) {
            const int n = kCoefficients - k;
            packed.segment(index, n) = c(k) * c.tail(n);
            index += n;
        }
        for (int entry = 0; entry < 6; ++entry) sums.col(entry).noalias() += g(entry) * packed;
    }
}

MomentMatrix unpack(const Accumulator& sums) {
    const int entry[3][3] = {{0, 1, 2}, {1, 3, 4}, {2, 4, 5}};
    MomentMatrix q;
    int index = 0;
    for (int k = 0; k < kCoefficients; ++k) {
        for (int l = k; l < kCoefficients; ++l, ++index) {
            for (int i = 0; i < 3; ++i) {
                for (int j = 0; j < 3; ++j) {
                    q(3 * k + i, 3 * l + j) = sums(index, entry[i][j]);
                    q(3 * l + j, 3 * k + i) = sums(index, entry[i][j]);
                }
            }
        }
    }
    return q;
}

}  // namespace

namespace {

using PairKey = std::pair<int, int>;
using PartSums = std::map<PairKey, PackedMoments>;

bool near(const CameraUnknowns& kept, const CameraUnknowns& now, const RefinedOptions& options) {
    const double dot = std::abs(kept.q[0] * now.q[0] + kept.q[1] * now.q[1] + kept.q[2] * now.q[2] + kept.q[3] * now.q[3]);
    const double turn = 2.0 * std::acos(std::min(1.0, dot));
    const double shift = std::sqrt((kept.t[0] - now.t[0]) * (kept.t[0] - now.t[0]) +
                                   (kept.t[1] - now.t[1]) * (kept.t[1] - now.t[1]) +
                                   (kept.t[2] - now.t[2]) * (kept.t[2] - now.t[2]));
    return turn <= options.keepSumsTurn && shift <= options.keepSumsShift &&
           std::abs(kept.bias - now.bias) <= options.keepSumsShift;
}

}  // namespace

// Sums one stretch of a part: from its cache where the cameras stayed close, anew elsewhere.
struct MomentSummer {
    const std::map<int, CameraUnknowns>& cameras;
    const std::map<int, CameraState>& states;
    const RefinedOptions& options;
    MomentWeights weights;

    PartSums sum(const MomentPart& part, size_t begin, size_t end) const {
        PartSums out;
        std::unique_lock<std::mutex> lock;
        if (part.kept) lock = std::unique_lock<std::mutex>(part.kept->mutex_);
        std::map<PairKey, bool> fresh;  // true: summed here, false: taken as kept
        for (size_t i = begin; i < end; ++i) {
            const FramePair& pair = part.pairs[i];
            const PairKey key{pair.cameraA, pair.cameraB};
            auto a = states.find(pair.cameraA), b = states.find(pair.cameraB);
            if (a == states.end() || b == states.end()) continue;
            auto known = fresh.find(key);
            if (known == fresh.end()) known = fresh.emplace(key, !takeKept(part, key, out)).first;
            if (!known->second) continue;
            auto slot = out.try_emplace(key, PackedMoments::Zero()).first;
            accumulate(pair, a->second, b->second, options, weights, slot->second);
        }
        if (!part.kept) return out;
        for (const auto& [key, summed] : fresh) {
            if (!summed) continue;
            if (weights == MomentWeights::Identity) {
                part.kept->identity_[key] = out.at(key);
            } else {
                MomentCache::Entry& entry = part.kept->refined_[key];
                entry.a = cameras.at(key.first);
                entry.b = cameras.at(key.second);
                entry.jointSigma = options.jointSigma;
                entry.huberSigmas = options.huberSigmas;
                entry.sums = out.at(key);
            }
        }
        return out;
    }

private:
    bool takeKept(const MomentPart& part, const PairKey& key, PartSums& out) const {
        if (!part.kept) return false;
        if (weights == MomentWeights::Identity) {
            auto found = part.kept->identity_.find(key);
            if (found == part.kept->identity_.end()) return false;
            out[key] = found->second;
            return true;
        }
        auto found = part.kept->refined_.find(key);
        if (found == part.kept->refined_.end()) return false;
        const MomentCache::Entry& entry = found->second;
        if (entry.jointSigma != options.jointSigma || entry.huberSigmas != options.huberSigmas ||
            !near(entry.a, cameras.at(key.first), options) || !near(entry.b, cameras.at(key.second), options))
            return false;
        out[key] = entry.sums;
        return true;
    }
};

std::vector<PairMoments> sumMoments(const std::vector<MomentPart>& parts, const std::map<int, CameraUnknowns>& cameras,
                                    const RefinedOptions& options, MomentWeights weights, int threads) {
    std::map<int, CameraState> states;
    for (const auto& [camera, u] : cameras)
        states[camera] = {Eigen::Quaterniond(u.q[3], u.q[0], u.q[1], u.q[2]).toRotationMatrix(),
                          Eigen::Vector3d(u.t[0], u.t[1], u.t[2]), u.bias};

    // Fixed stretches: a kept part whole (its cache is per part), any other in two halves.
    struct Stretch {
        const MomentPart* part;
        size_t begin, end;
    };
    std::vector<Stretch> stretches;
    for (const MomentPart& part : parts) {
        const size_t end = std::min(part.end, part.pairs.size()), begin = std::min(part.begin, end);
        if (begin == end) continue;
        if (part.kept) {
            stretches.push_back({&part, begin, end});
        } else {
            const size_t middle = begin + (end - begin) / 2;
            stretches.push_back({&part, begin, middle});
            stretches.push_back({&part, middle, end});
        }
    }
    const MomentSummer summer{cameras, states, options, weights};
    std::vector<PartSums> sums(stretches.size());
    std::atomic<size_t> next{0};
    auto work = [&] {
        for (size_t i = next++; i < stretches.size(); i = next++)
            sums[i] = summer.sum(*stretches[i].part, stretches[i].begin, stretches[i].end);
    };
    if (threads > 1 && stretches.size() > 1) {
        std::thread helper(work);
        work();
        helper.join();
    } else {
        work();
    }

    std::map<PairKey, PackedMoments> total;
    for (const PartSums& part : sums)
        for (const auto& [key, packed] : part) {
            auto slot = total.try_emplace(key, PackedMoments::Zero()).first;
            slot->second += packed;
        }
    std::vector<PairMoments> out;
    out.reserve(total.size());
    for (const auto& [key, packed] : total) {
        out.emplace_back();
        out.back().cameraA = key.first;
        out.back().cameraB = key.second;
        out.back().q = unpack(packed);
    }
    return out;
}

std::vector<PairMoments> sumMoments(const FramePairList& pairs, size_t begin, size_t end,
                                    const std::map<int, CameraUnknowns>& cameras, const RefinedOptions& options,
                                    MomentWeights weights, int threads) {
    return sumMoments({MomentPart{pairs, begin, end, nullptr}}, cameras, options, weights, threads);
}

PairMomentCost::PairMomentCost(const PairMoments& moments) : moments_(moments) {
    set_num_residuals(kRows);
    *mutable_parameter_block_sizes() = {4, 3, 1, 4, 3, 1};
}

bool PairMomentCost::Evaluate(double const* const* parameters, double* residuals, double** jacobians) const {
    const double* qA = parameters[0];
    const double* qB = parameters[3];
    const Eigen::Matrix3d rA = Eigen::Quaterniond(qA[3], qA[0], qA[1], qA[2]).toRotationMatrix();
    const Eigen::Matrix3d rB = Eigen::Quaterniond(qB[3], qB[0], qB[1], qB[2]).toRotationMatrix();
    const double bA = parameters[2][0], bB = parameters[5][0];
    Eigen::Matrix<double, kMomentSize, 1> z;
    for (int k = 0; k < 3; ++k) {
        z.segment<3>(3 * k) = rA.col(k);
        z.segment<3>(9 + 3 * k) = bA * rA.col(k);
        z.segment<3>(21 + 3 * k) = rB.col(k);
        z.segment<3>(30 + 3 * k) = bB * rB.col(k);
    }
    z.segment<3>(18) = Eigen::Map<const Eigen::Vector3d>(parameters[1]);
    z.segment<3>(39) = Eigen::Map<const Eigen::Vector3d>(parameters[4]);
    const Eigen::Matrix<double, kMomentSize, 1> qz = moments_.q * z;
    const double cost = 0.5 * z.dot(qz);
    std::fill(residuals, residuals + kRows, 0.0);
    if (!std::isfinite(cost)) return false;
    if (!jacobians) {
        residuals[0] = std::sqrt(std::max(0.0, 2.0 * cost));
        return true;
    }

    // dz/d(tangent): a turn exp(d) q moves each column x by -2 [x]x d.
    Eigen::Matrix<double, kMomentSize, kTangent> dz = Eigen::Matrix<double, kMomentSize, kTangent>::Zero();
    for (int k = 0; k < 3; ++k) {
        dz.block<3, 3>(3 * k, 0) = -2.0 * skew(rA.col(k));
        dz.block<3, 3>(9 + 3 * k, 0) = -2.0 * bA * skew(rA.col(k));
        dz.block<3, 1>(9 + 3 * k, 6) = rA.col(k);
        dz.block<3, 3>(21 + 3 * k, 7) = -2.0 * skew(rB.col(k));
        dz.block<3, 3>(30 + 3 * k, 7) = -2.0 * bB * skew(rB.col(k));
        dz.block<3, 1>(30 + 3 * k, 13) = rB.col(k);
    }
    dz.block<3, 3>(18, 3).setIdentity();
    dz.block<3, 3>(39, 10).setIdentity();
    const Eigen::Matrix<double, kTangent, kTangent> hessian = dz.transpose() * moments_.q * dz;
    const Eigen::Matrix<double, kTangent, 1> gradient = dz.transpose() * qz;
    if (!hessian.allFinite() || !gradient.allFinite()) return false;

    // H = V diag(l) V^T: rows sqrt(l_i) v_i^T with residuals v_i.g / sqrt(l_i) give back H
    // and g; the last row carries the rest of the cost, with no Jacobian.
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix<double, kTangent, kTangent>> eigen(hessian);
    const double largest = eigen.eigenvalues().maxCoeff();
    Eigen::Matrix<double, kRows, kTangent> tangent = Eigen::Matrix<double, kRows, kTangent>::Zero();
    double modelled = 0;
    for (int i = 0; i < kTangent; ++i) {
        const double l = eigen.eigenvalues()(i);
        if (!(l > 1e-12 * largest)) continue;
        tangent.row(i) = std::sqrt(l) * eigen.eigenvectors().col(i).transpose();
        residuals[i] = eigen.eigenvectors().col(i).dot(gradient) / std::sqrt(l);
        modelled += residuals[i] * residuals[i];
    }
    residuals[kTangent] = std::sqrt(std::max(0.0, 2.0 * cost - modelled));

    // Back to the parameters: J_ambient = J_tangent P^T, P the quaternion's plus-Jacobian.
    double plusA[12], plusB[12];
    ceres::EigenQuaternionManifold manifold;
    manifold.PlusJacobian(qA, plusA);
    manifold.PlusJacobian(qB, plusB);
    const Eigen::Map<const Eigen::Matrix<double, 4, 3, Eigen::RowMajor>> pA(plusA), pB(plusB);
    const Eigen::Matrix<double, kRows, 16> ambient =
        (Eigen::Matrix<double, kRows, 16>() << tangent.middleCols<3>(0) * pA.transpose(), tangent.middleCols<3>(3),
         tangent.col(6), tangent.middleCols<3>(7) * pB.transpose(), tangent.middleCols<3>(10), tangent.col(13))
            .finished();
    const int sizes[6] = {4, 3, 1, 4, 3, 1};
    for (int block = 0, column = 0; block < 6; column += sizes[block++]) {
        if (!jacobians[block]) continue;
        for (int row = 0; row < kRows; ++row)
            for (int col = 0; col < sizes[block]; ++col)
                jacobians[block][row * sizes[block] + col] = ambient(row, column + col);
    }
    return true;
}

}  // namespace calib
