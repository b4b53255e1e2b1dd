// The simulated room against its own settings: noise statistics, swap and missing rates,
// plausible walkers, determinism, and scene files refused with a clear reason.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <map>
#include <fstream>
#include <iterator>

#include "pyra_sim/scene.hpp"

namespace {

// One camera far back with a very wide view: every keypoint is always in view.
pyra_sim::Scene wideScene() {
    pyra_sim::Scene scene;
    std::string error;
    EXPECT_TRUE(pyra_sim::parseScene(R"({"seed": 3, "cameras": [{"serial": 7, "position": [0, 1.2, 6.5],
        "look_at": [0, 1.0, 0], "hfov_deg": 160, "vfov_deg": 160, "max_depth": 20}]})", scene, &error)) << error;
    return scene;
}

TEST(Simulation, NoiseMatchesTheSceneSettings) {
    pyra_sim::Scene scene = pyra_sim::defaultScene();
    for (auto& camera : scene.cameras) camera.tracker = pyra_sim::TrackerSettings::none();
    pyra_sim::ObservationOptions options;
    options.confidenceThreshold = 0.f;
    // Depth errors per keypoint: each joint has a bias of its own, the noise is the spread.
    std::map<size_t, std::array<double, 3>> depthErrors;  // count, sum, sum of squares
    double bias = 0, reportedSigma = 0;
    int nearThree = 0, rays = 0;
    for (int frame = 0; frame < 6000; ++frame) {
        uint64_t t = 1700000000000000000ULL + uint64_t(frame) * 137000000ULL;
        for (const auto& camera : scene.cameras) {
            std::vector<pyra_sim::ObservedTruth> truth;
            lum::Bodies seen = pyra_sim::observe(scene, camera, t, options, &truth);
            for (size_t b = 0; b < seen.body_list.size(); ++b) {
                if (truth[b].swapped) continue;
                const auto& body = seen.body_list[b];
                for (size_t k = 0; k < body.keypoint.size(); ++k) {
                    const lum::Vector3f& p = body.keypoint[k];
                    const lum::Vector3f& q = truth[b].keypoints[k];
                    if (std::isnan(p.x)) continue;
                    lum::Vector3f towardCamera = -q / q.norm();
                    bias += lum::Vector3f::dot(p - q, towardCamera);
                    ++rays;
                    if (std::fabs(-q.z - 3.f) > 0.1f) continue;
                    double e = double(q.z - p.z);  // depth is -z
                    std::array<double, 3>& errors = depthErrors[k];
                    errors[0] += 1;
                    errors[1] += e;
                    errors[2] += e * e;
                    reportedSigma += std::sqrt(body.keypoint_covariances[k][5]);
                    ++nearThree;
                }
            }
        }
    }
    ASSERT_GT(nearThree, 2000);
    double spread = 0;
    for (const auto& [k, errors] : depthErrors) spread += errors[2] - errors[1] * errors[1] / errors[0];
    double sigma = std::sqrt(spread / nearThree);
    EXPECT_NEAR(sigma, 0.015, 0.2 * 0.015);
    EXPECT_NEAR(reportedSigma / nearThree, sigma, 0.2 * sigma);
    EXPECT_NEAR(bias / rays, 0.03, 0.005);

    EXPECT_FLOAT_EQ(pyra_sim::depthSigma(scene.cameras[0].noise, 6.f, lum::DEPTH_MODE::ULTRA), 0.06f);
    EXPECT_FLOAT_EQ(pyra_sim::depthSigma(scene.cameras[0].noise, 3.f, lum::DEPTH_MODE::NEURAL), 0.015f * 0.7f);
}

TEST(Simulation, MissingKeypointsAndSwapsAtTheirRates) {
    pyra_sim::Scene scene = wideScene();
    const auto& camera = scene.cameras[0];
    pyra_sim::ObservationOptions options;
    options.confidenceThreshold = 0.f;
    int frames = 0, swaps = 0, keypoints = 0, missing = 0;
    double towardMirror = 0, towardOwn = 0;
    for (int frame = 0; frame < 30000; ++frame) {
        uint64_t t = 1700000000000000000ULL + uint64_t(frame) * 33333333ULL;
        std::vector<pyra_sim::ObservedTruth> truth;
        lum::Bodies seen = pyra_sim::observe(scene, camera, t, options, &truth);
        ASSERT_EQ(seen.body_list.size(), 1u);
        const auto& body = seen.body_list[0];
        ++frames;
        for (const auto& p : body.keypoint) missing += std::isnan(p.x);
        keypoints += int(body.keypoint.size());
        if (!truth[0].swapped) continue;
        ++swaps;
        // The right shoulder (2) is reported where the left one (5) is.
        if (!std::isnan(body.keypoint[2].x)) {
            towardMirror += (body.keypoint[2] - truth[0].keypoints[5]).norm();
            towardOwn += (body.keypoint[2] - truth[0].keypoints[2]).norm();
        }
    }
    EXPECT_NEAR(double(missing) / keypoints, 0.03, 0.003);
    EXPECT_NEAR(double(swaps) / frames, 0.005, 0.0015);
    EXPECT_LT(towardMirror, 0.5 * towardOwn);

    // Bodies below the detection threshold are dropped.
    options.confidenceThreshold = 100.f;
    EXPECT_TRUE(pyra_sim::observe(scene, camera, 1700000000000000000ULL, options).body_list.empty());
}

TEST(Simulation, WalkersArePlausibleAndDeterministic) {
    pyra_sim::Scene scene = pyra_sim::defaultScene();
    scene.people.count = 3;
    const uint64_t start = 1700000000000000000ULL;
    const double dt = 0.05;
    int stillSamples = 0, samples = 0;
    std::vector<pyra_sim::TrueBody> previous = pyra_sim::peopleAt(scene, start, lum::BODY_FORMAT::BODY_34);
    std::vector<float> thigh;
    for (const auto& b : previous) thigh.push_back((b.keypoints[18] - b.keypoints[19]).norm());
    for (int i = 1; i < 2400; ++i) {
        auto people = pyra_sim::peopleAt(scene, start + uint64_t(i * dt * 1e9), lum::BODY_FORMAT::BODY_34);
        for (size_t p = 0; p < people.size(); ++p) {
            const auto& k = people[p].keypoints;
            EXPECT_GE(people[p].height, 1.5f);
            EXPECT_LE(people[p].height, 1.95f);
            EXPECT_NEAR(k[26].y, 0.93f * people[p].height, 0.05f);  // head
            EXPECT_GE(std::min(k[20].y, k[24].y), 0.f);               // ankles above the floor
            EXPECT_LT(std::max(k[20].y, k[24].y), 0.35f);
            EXPECT_LT(std::fabs(k[0].x), 3.f);
            EXPECT_LT(std::fabs(k[0].z), 3.f);
            EXPECT_NEAR((k[18] - k[19]).norm(), thigh[p], 1e-3f);  // bones keep their length
            float speed = (k[0] - previous[p].keypoints[0]).norm() / float(dt);
            EXPECT_LT(speed, 2.5f);
            stillSamples += speed < 0.05f;
            ++samples;
        }
        previous = people;
    }
    EXPECT_GT(stillSamples, samples / 20);  // people do stop now and then
    EXPECT_LT(stillSamples, samples / 2);

    // Two simulations of one scene agree exactly; another seed does not.
    pyra_sim::Scene twin = scene;
    pyra_sim::ObservationOptions options;
    uint64_t t = start + 12345678901ULL;
    lum::Bodies a = pyra_sim::observe(scene, scene.cameras[1], t, options);
    lum::Bodies b = pyra_sim::observe(twin, twin.cameras[1], t, options);
    ASSERT_EQ(a.body_list.size(), b.body_list.size());
    for (size_t i = 0; i < a.body_list.size(); ++i)
        for (size_t k = 0; k < a.body_list[i].keypoint.size(); ++k) {
            const auto& p = a.body_list[i].keypoint[k];
            const auto& q = b.body_list[i].keypoint[k];
            EXPECT_TRUE((std::isnan(p.x) && std::isnan(q.x)) || p == q);
        }
    twin.seed = 99;
    EXPECT_NE(pyra_sim::peopleAt(twin, t, lum::BODY_FORMAT::BODY_18)[0].keypoints[0],
              pyra_sim::peopleAt(scene, t, lum::BODY_FORMAT::BODY_18)[0].keypoints[0]);
}

TEST(Simulation, SceneFilesAreCheckedFieldByField) {
    pyra_sim::Scene scene;
    std::string error;
    ASSERT_TRUE(pyra_sim::parseScene(R"({"room": {"width": 8}, "people": {"count": 2},
        "cameras": [{"serial": 5, "rotation": [0, 1.5707963, 0], "position": [1, 2, 3], "body_format": 38,
                     "usb": false, "noise": {"missing_rate": 0.1}, "faults": {"sdk_version": "4.0.2",
                     "grab_error_after_s": 2}}]})", scene, &error)) << error;
    ASSERT_EQ(scene.cameras.size(), 1u);
    const auto& c = scene.cameras[0];
    EXPECT_EQ(c.bodyFormat, lum::BODY_FORMAT::BODY_38);
    EXPECT_FALSE(c.pluggedIn);
    EXPECT_FLOAT_EQ(c.noise.missingRate, 0.1f);
    EXPECT_FLOAT_EQ(c.noise.depthSigmaAt3m, 0.015f);
    EXPECT_EQ(c.faults.reportedVersion, (std::array<int, 3>{4, 0, 2}));
    EXPECT_NEAR(c.pose(0, 2), 1.f, 1e-5f);  // camera z turned onto room x
    EXPECT_EQ(c.pose.getTranslation(), lum::Translation(1, 2, 3));
    EXPECT_EQ(pyra_sim::defaultScene().cameras.size(), 4u);

    const std::pair<const char*, const char*> bad[] = {
        {"[1, 2]", "must be a JSON object"},
        {"{\"cameras\": {}}", "\"cameras\" must be an array"},
        {"{\"cameras\": [{}]}", "\"cameras[0].serial\" is missing"},
        {"{\"cameras\": [{\"serial\": \"12\"}]}", "\"cameras[0].serial\" must be a number"},
        {"{\"cameras\": [{\"serial\": 1, \"body_format\": 20}]}", "must be 18, 34 or 38"},
        {"{\"cameras\": [{\"serial\": 1}, {\"serial\": 1}]}", "repeats serial 1"},
        {"{\"cameras\": [{\"serial\": 1, \"position\": [0, 1]}]}", "\"cameras[0].position\" must be an array of 3"},
        {"{\"cameras\": [{\"serial\": 1, \"faults\": {\"sdk_version\": \"five\"}}]}", "sdk_version"},
        {"{\"people\": {\"count\": 1e9}}", "\"people.count\" must be between"},
        {"{\"seed\": -1", "not a JSON document"},
        // What used to be read wrong without a word: truncated, ignored, or the last one kept.
        {"{\"cameras\": [{\"serial\": 41001.7}]}", "\"cameras[0].serial\" must be a whole number"},
        {"{\"cameras\": [{\"serial\": 1, \"noise\": {\"typo_nosie\": 0.1}}]}",
         "\"cameras[0].noise.typo_nosie\" is not a known setting"},
        {"{\"people\": {\"count\": 2}, \"peolpe\": {}}", "\"peolpe\" is not a known setting"},
        {"{\"seed\": 1, \"seed\": 2}", "\"seed\" appears twice"},
    };
    for (const auto& [text, message] : bad) {
        error.clear();
        EXPECT_FALSE(pyra_sim::parseScene(text, scene, &error)) << text;
        EXPECT_NE(error.find(message), std::string::npos) << text << " -> " << error;
    }
    // The documented example stays a valid scene.
    std::ifstream doc(HALDEN_SOURCE_DIR "/docs/scene.md");
    std::string text((std::istreambuf_iterator<char>(doc)), std::istreambuf_iterator<char>());
    size_t begin = text.find("```json\n"), end = text.find("\n```", begin + 1);
    ASSERT_NE(begin, std::string::npos);
    EXPECT_TRUE(pyra_sim::parseScene(text.substr(begin + 8, end - begin - 8), scene, &error)) << error;
    EXPECT_EQ(scene.cameras.size(), 2u);

    EXPECT_FALSE(pyra_sim::loadScene("/nonexistent/scene.json", scene, &error));
    EXPECT_NE(error.find("/nonexistent/scene.json"), std::string::npos);
    // A pipe named as the scene is refused at once, not waited on for ever.
    const std::string pipe = ::testing::TempDir() + "scene_pipe_" + std::to_string(::getpid());
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    EXPECT_FALSE(pyra_sim::loadScene(pipe, scene, &error));
    EXPECT_NE(error.find("not a regular file"), std::string::npos) << error;
    ::unlink(pipe.c_str());
}

}  // namespace
