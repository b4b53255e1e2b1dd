// The scene sets the accuracy and uncertainty benchmarks run on: the training scenes that
// tuned constants were set on, or the validation scenes that judge them (the default).
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "pyra_sim/scene.hpp"

namespace sceneset {

struct NamedScene {
    std::string name;  // the file's name without .json
    pyra_sim::Scene scene;
};

// Takes `--scenes=train`, `--scenes=validate` or `--scenes=FOLDER` out of the arguments
// (Google Benchmark refuses flags it does not know) and names the folder it means.
inline std::string takeFolder(int& argc, char** argv) {
    std::string chosen = "validate";
    int kept = 1;
    for (int i = 1; i < argc; ++i) {
        if (std::strncmp(argv[i], "--scenes=", 9) == 0) chosen = argv[i] + 9;
        else argv[kept++] = argv[i];
    }
    argc = kept;
    if (chosen == "train" || chosen == "validate") return std::string(HALDEN_SOURCE_DIR) + "/bench/scenes/" + chosen;
    return chosen;
}

// Every *.json scene of `folder`, by name; false (with the file and the reason on
// standard error) when the folder holds none or one of them is not a scene.
inline bool load(const std::string& folder, std::vector<NamedScene>& scenes) {
    std::error_code error;
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error))
        if (entry.path().extension() == ".json") files.push_back(entry.path());
    if (error || files.empty()) {
        std::fprintf(stderr, "%s: no scene files (*.json) to run on\n", folder.c_str());
        return false;
    }
    std::sort(files.begin(), files.end());
    for (const auto& file : files) {
        NamedScene named{file.stem().string(), {}};
        std::string why;
        if (!pyra_sim::loadScene(file.string(), named.scene, &why)) {
            std::fprintf(stderr, "%s\n", why.c_str());
            return false;
        }
        scenes.push_back(std::move(named));
    }
    return true;
}

}  // namespace sceneset
