// Cross-camera body association: pose-free rigid-track pairing, pairing through known
// transforms, per-instant checks of every pairing, and person identity over time.
#include "calibration/body_association.hpp"

#include <algorithm>
#include <cmath>
#include <functional>
#include <set>

#include <Eigen/SVD>

namespace calib {

namespace {

bool finite(const lum::Vector3f& p) { return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z); }

Eigen::Isometry3d toIsometry(const lum::Transform& t) {
    Eigen::Isometry3d out = Eigen::Isometry3d::Identity();
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 4; ++c) out.matrix()(r, c) = t(r, c);
    return out;
}

// The joints both bodies report, as matching columns. Bodies of two layouts share none: the
// same index names another joint in each.
int sharedJoints(const lum::BodyData& a, const lum::BodyData& b, Eigen::Matrix3Xd& pa, Eigen::Matrix3Xd& pb) {
    const size_t n = a.keypoint.size() == b.keypoint.size() ? a.keypoint.size() : 0;
    pa.resize(3, Eigen::Index(n));
    pb.resize(3, Eigen::Index(n));
    int count = 0;
    for (size_t k = 0; k < n; ++k) {
        if (!finite(a.keypoint[k]) || !finite(b.keypoint[k])) continue;
        pa.col(count) << a.keypoint[k].x, a.keypoint[k].y, a.keypoint[k].z;
        pb.col(count) << b.keypoint[k].x, b.keypoint[k].y, b.keypoint[k].z;
        ++count;
    }
    pa.conservativeResize(3, count);
    pb.conservativeResize(3, count);
    return count;
}

// Mean difference of every joint-to-joint distance: zero for one rigid body seen twice,
// whatever the cameras' poses; large for two people of other sizes or in other steps.
double shapeDifference(const Eigen::Matrix3Xd& a, const Eigen::Matrix3Xd& b) {
    double sum = 0;
    int count = 0;
    for (Eigen::Index i = 0; i < a.cols(); ++i)
        for (Eigen::Index j = i + 1; j < a.cols(); ++j) {
            sum += std::abs((a.col(i) - a.col(j)).norm() - (b.col(i) - b.col(j)).norm());
            ++count;
        }
    return count > 0 ? sum / count : 1e9;
}

double meanDistance(const Eigen::Matrix3Xd& a, const Eigen::Matrix3Xd& b, const Eigen::Isometry3d& bToA) {
    if (a.cols() == 0) return 1e9;
    return ((bToA * b) - a).colwise().norm().mean();
}

}  // namespace

std::string describe(const std::vector<CameraPeople>& cameras) {
    std::string out;
    for (const CameraPeople& c : cameras) {
        if (!out.empty()) out += "; ";
        out += std::to_string(c.camera) + ": ";
        if (c.people == 0) {
            out += "nobody";
            continue;
        }
        out += c.people == 1 ? "1 person" : std::to_string(c.people) + " people";
        out += c.used ? ", used" : ", not paired yet";
    }
    return out;
}

BodyAssociator::BodyAssociator(Options options) : options_(options) {}

void BodyAssociator::setPoses(const std::map<int, lum::Transform>& cameraToWorld) {
    poses_.clear();
    for (const auto& [camera, pose] : cameraToWorld) poses_[camera] = toIsometry(pose);
}

void BodyAssociator::clear() { *this = BodyAssociator(options_); }

void BodyAssociator::forgetCamera(int camera) {
    poses_.erase(camera);
    for (auto it = pairTransforms_.begin(); it != pairTransforms_.end();)
        it = it->first.first == camera || it->first.second == camera ? pairTransforms_.erase(it) : std::next(it);
    const auto involves = [camera](const LinkKey& key) { return key.first.first == camera || key.second.first == camera; };
    for (auto it = candidates_.begin(); it != candidates_.end();)
        it = involves(it->first) ? candidates_.erase(it) : std::next(it);
    for (auto it = links_.begin(); it != links_.end();) it = involves(it->first) ? links_.erase(it) : std::next(it);
}

bool BodyAssociator::transformFor(int cameraA, int cameraB, Eigen::Isometry3d& bToA) const {
    auto a = poses_.find(cameraA);
    auto b = poses_.find(cameraB);
    if (a != poses_.end() && b != poses_.end()) {
        bToA = a->second.inverse() * b->second;
        return true;
    }
    auto pair = pairTransforms_.find({cameraA, cameraB});
    if (pair == pairTransforms_.end()) return false;
    bToA = pair->second;
    return true;
}

bool BodyAssociator::linked(const TrackKey& track, int otherCamera) const {
    for (const auto& [key, misses] : links_) {
        if (key.first == track && key.second.first == otherCamera) return true;
        if (key.second == track && key.first.first == otherCamera) return true;
    }
    return false;
}

std::vector<PersonFrame> BodyAssociator::associate(const SeenBodies& seen) {
    ++instant_;
    std::map<int, std::vector<Body>> byCamera;
    std::vector<Body> all;
    use_.clear();
    for (const auto& [camera, bodies] : seen) {
        use_[camera] = {camera, int(bodies.size()), false};
        if (int(bodies.size()) > options_.maxBodies) continue;
        for (const lum::BodyData& body : bodies) {
            int joints = 0;
            for (const lum::Vector3f& p : body.keypoint) joints += finite(p);
            if (joints < options_.minJoints) continue;
            byCamera[camera].push_back({{camera, body.id}, &body});
            all.push_back(byCamera[camera].back());
        }
    }

    std::vector<LinkKey> valid;
    for (auto a = byCamera.begin(); a != byCamera.end(); ++a)
        for (auto b = std::next(a); b != byCamera.end(); ++b) associatePair(a->first, a->second, b->first, b->second, valid);

    // Forget pairings and candidates whose tracks have not been seen together for a while:
    // a track id that comes back later may belong to someone else.
    for (auto it = candidates_.begin(); it != candidates_.end();) {
        if (instant_ - it->second.lastInstant > 2 * options_.historySamples) {
            links_.erase(it->first);
            it = candidates_.erase(it);
        } else {
            ++it;
        }
    }
    return framesOf(all, valid);
}

void BodyAssociator::associatePair(int cameraA, const std::vector<Body>& bodiesA, int cameraB,
                                   const std::vector<Body>& bodiesB, std::vector<LinkKey>& valid) {
    Eigen::Isometry3d bToA;
    const bool known = transformFor(cameraA, cameraB, bToA);
    const size_t na = bodiesA.size(), nb = bodiesB.size();
    std::vector<double> distance(na * nb, 1e9);
    std::vector<LinkKey> present;
    for (size_t i = 0; i < na; ++i)
        for (size_t j = 0; j < nb; ++j) {
            const LinkKey key{bodiesA[i].first, bodiesB[j].first};
            Sample sample;
            if (sharedJoints(*bodiesA[i].second, *bodiesB[j].second, sample.a, sample.b) < options_.minJoints) continue;
            if (known) distance[i * nb + j] = meanDistance(sample.a, sample.b, bToA);
            sample.shapeDifference = shapeDifference(sample.a, sample.b);
            sample.instant = instant_;
            sample.bodyA = *bodiesA[i].second;
            sample.bodyB = *bodiesB[j].second;
            Candidate& candidate = candidates_[key];
            candidate.lastInstant = instant_;
            candidate.samples.push_back(std::move(sample));
            if (int(candidate.samples.size()) > options_.historySamples) candidate.samples.pop_front();
            present.push_back(key);
        }

    if (known) {
        for (size_t i = 0; i < na; ++i)
            for (size_t j = 0; j < nb; ++j) {
                const LinkKey key{bodiesA[i].first, bodiesB[j].first};
                auto candidate = candidates_.find(key);
                if (candidate == candidates_.end()) continue;
                const double d = distance[i * nb + j];
                // Unambiguous: inside the gate, and every other body of either camera is
                // clearly further from both, so two people standing close count for nobody.
                bool clear = d < options_.gate;
                for (size_t k = 0; k < na && clear; ++k)
                    if (k != i) clear = distance[k * nb + j] > std::max(d + options_.margin, 2 * d);
                for (size_t k = 0; k < nb && clear; ++k)
                    if (k != j) clear = distance[i * nb + k] > std::max(d + options_.margin, 2 * d);
                candidate->second.agreements = clear ? candidate->second.agreements + 1 : 0;

                auto link = links_.find(key);
                if (link != links_.end()) {
                    link->second = clear ? 0 : link->second + 1;
                    if (clear) {
                        valid.push_back(key);
                        candidate->second.usedUntil = instant_;
                    }
                    else if (link->second >= options_.missesToDrop) links_.erase(link);
                } else if (clear && candidate->second.agreements >= options_.agreementsToConfirm &&
                           !linked(key.first, cameraB) && !linked(key.second, cameraA)) {
                    confirm(key, bToA);
                    valid.push_back(key);
                }
            }
        return;
    }
    confirmWithoutPoses(cameraA, cameraB, present);
}

BodyAssociator::Fit BodyAssociator::fit(const Candidate& candidate) const {
    Fit result;
    Eigen::Index columns = 0;
    for (const Sample& s : candidate.samples) columns += s.a.cols();
    if (int(candidate.samples.size()) < options_.minSamples || columns < 3) return result;

    Eigen::Matrix3Xd a(3, columns), b(3, columns);
    std::vector<Eigen::Vector3d> centres;
    std::vector<double> shapes;
    Eigen::Index at = 0;
    for (const Sample& s : candidate.samples) {
        a.middleCols(at, s.a.cols()) = s.a;
        b.middleCols(at, s.b.cols()) = s.b;
        at += s.a.cols();
        centres.push_back(s.a.rowwise().mean());
        shapes.push_back(s.shapeDifference);
    }
    for (size_t i = 0; i < centres.size(); ++i)
        for (size_t j = i + 1; j < centres.size(); ++j)
            result.travel = std::max(result.travel, (centres[i] - centres[j]).norm());
    std::nth_element(shapes.begin(), shapes.begin() + long(shapes.size() / 2), shapes.end());
    result.shape = shapes[shapes.size() / 2];
    result.eligible = result.travel >= options_.minTravel;
    result.bToA.matrix() = Eigen::umeyama(b, a, false);
    result.rms = std::sqrt(((result.bToA * b) - a).colwise().squaredNorm().mean());
    return result;
}

void BodyAssociator::confirmWithoutPoses(int cameraA, int cameraB, const std::vector<LinkKey>& present) {
    std::map<LinkKey, Fit> fits;
    for (const LinkKey& key : present) fits[key] = fit(candidates_[key]);
    for (const auto& [key, f] : fits) {
        // Written so that a fit gone NaN on absurd coordinates never passes.
        if (!f.eligible || !(f.rms <= options_.maxFitRms) || !(f.shape <= options_.maxShapeDifference)) continue;
        if (linked(key.first, cameraB) || linked(key.second, cameraA)) continue;
        // A rival sharing either track that fits nearly as well means two people who moved
        // alike (side by side, in step): nobody is paired until their paths part.
        bool rivalled = false;
        for (const auto& [other, g] : fits)
            if (other != key && (other.first == key.first || other.second == key.second) && g.eligible)
                rivalled = rivalled || g.rms < options_.rivalRatio * f.rms;
        for (const auto& [other, candidate] : candidates_) {
            if (rivalled || other == key || fits.count(other)) continue;
            if (other.first.first != cameraA || other.second.first != cameraB) continue;
            if (other.first != key.first && other.second != key.second) continue;
            const Fit g = fit(candidate);
            rivalled = g.eligible && g.rms < options_.rivalRatio * f.rms;
        }
        if (rivalled) continue;
        pairTransforms_[{cameraA, cameraB}] = f.bToA;
        confirm(key, f.bToA);
        return;  // the next instant pairs the rest through this transform
    }
}

bool BodyAssociator::poseContradicted(int camera) const {
    auto own = poses_.find(camera);
    if (own == poses_.end()) return false;
    for (const auto& [key, candidate] : candidates_) {
        if (key.first.first != camera && key.second.first != camera) continue;
        auto a = poses_.find(key.first.first);
        auto b = poses_.find(key.second.first);
        if (a == poses_.end() || b == poses_.end()) continue;
        if (instant_ - candidate.lastInstant > options_.missesToDrop) continue;
        // Only the latest instants: the pose may have been right for the older ones.
        Candidate recent;
        const size_t keep = std::min(candidate.samples.size(), size_t(std::max(options_.minSamples, 1)));
        recent.samples.assign(candidate.samples.end() - long(keep), candidate.samples.end());
        const Fit f = fit(recent);
        if (!f.eligible || !(f.rms <= options_.maxFitRms) || !(f.shape <= options_.maxShapeDifference)) continue;
        const Eigen::Isometry3d throughPoses = a->second.inverse() * b->second;
        std::vector<double> distances;
        for (const Sample& s : recent.samples) distances.push_back(meanDistance(s.a, s.b, throughPoses));
        std::nth_element(distances.begin(), distances.begin() + long(distances.size() / 2), distances.end());
        if (distances[distances.size() / 2] > options_.gate) return true;
    }
    return false;
}

void BodyAssociator::confirm(const LinkKey& key, const Eigen::Isometry3d& bToA) {
    links_[key] = 0;
    Candidate& candidate = candidates_[key];
    for (const Sample& s : candidate.samples)
        if (s.instant > candidate.usedUntil && s.instant < instant_ && meanDistance(s.a, s.b, bToA) < options_.gate)
            released_.push_back({{key.first.first, s.bodyA}, {key.second.first, s.bodyB}});
    candidate.usedUntil = instant_;
}

std::vector<CameraPeople> BodyAssociator::cameraPeople() const {
    std::vector<CameraPeople> out;
    for (const auto& [camera, people] : use_) out.push_back(people);
    return out;
}

std::vector<PersonFrame> BodyAssociator::takeReleased() { return std::exchange(released_, {}); }

std::vector<PersonFrame> BodyAssociator::framesOf(const std::vector<Body>& bodies, const std::vector<LinkKey>& valid) {
    // Identity follows every confirmed pairing; frames only the ones that held this instant,
    // so a person keeps its number while two people stand too close to be told apart.
    auto groupsOf = [&bodies](const std::vector<LinkKey>& links) {
        std::map<TrackKey, TrackKey> parent;
        for (const Body& body : bodies) parent[body.first] = body.first;
        std::function<TrackKey(const TrackKey&)> root = [&](const TrackKey& k) {
            return parent[k] == k ? k : parent[k] = root(parent[k]);
        };
        for (const LinkKey& link : links)
            if (parent.count(link.first) && parent.count(link.second)) parent[root(link.first)] = root(link.second);
        std::map<TrackKey, std::vector<const Body*>> groups;
        for (const Body& body : bodies) groups[root(body.first)].push_back(&body);
        return groups;
    };

    std::vector<LinkKey> confirmed;
    for (const auto& [key, misses] : links_) confirmed.push_back(key);
    std::set<int> taken;
    for (const auto& [rootKey, members] : groupsOf(confirmed)) {
        int person = -1;
        for (const Body* body : members) {
            auto known = personOf_.find(body->first);
            if (known != personOf_.end() && !taken.count(known->second) && (person < 0 || known->second < person))
                person = known->second;
        }
        if (person < 0) person = nextPerson_++;
        taken.insert(person);
        for (const Body* body : members) personOf_[body->first] = person;
    }

    std::vector<PersonFrame> frames;
    for (const auto& [rootKey, members] : groupsOf(valid)) {
        PersonFrame frame;
        bool consistent = true;
        for (const Body* body : members) {
            consistent = consistent && !frame.count(body->first.first);
            frame[body->first.first] = *body->second;
        }
        // Two tracks of one camera in one group means a chain of pairings went wrong
        // somewhere; that group gives no frame rather than a doubtful one.
        if (!consistent || frame.size() < 2) continue;
        for (const auto& [camera, body] : frame) use_[camera].used = true;
        frames.push_back(std::move(frame));
    }
    return frames;
}

}  // namespace calib
