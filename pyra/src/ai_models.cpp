// AI model cache: a model counts as downloaded and optimised when its files are in the
// cache folder. Optimising takes a while the first time, as it does on a real GPU.
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

#include "atomic_file.hpp"
#include "lum/camera.hpp"

namespace lum {

namespace {

bool validModel(AI_MODELS model) {
    return model == AI_MODELS::GENERIC_DETECTION || model == AI_MODELS::BODY_FAST ||
           model == AI_MODELS::BODY_MEDIUM || model == AI_MODELS::BODY_ACCURATE;
}

// PYRA_MODEL_CACHE, else ~/.cache/pyra/models.
std::string cacheFolder() {
    if (const char* own = std::getenv("PYRA_MODEL_CACHE"); own && *own) return own;
    const char* home = std::getenv("HOME");
    return std::string(home && *home ? home : "/tmp") + "/.cache/pyra/models";
}

std::string modelFile(AI_MODELS model, int gpuId, const char* suffix) {
    return cacheFolder() + "/model-" + std::to_string(int(model)) + "-gpu" + std::to_string(gpuId) + suffix;
}

bool exists(const std::string& path) {
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0;
}

double optimiseSeconds() {
    const char* text = std::getenv("PYRA_MODEL_OPTIMIZE_SECONDS");
    if (!text || !*text) return 3.0;
    char* end = nullptr;
    double v = std::strtod(text, &end);
    return (end && *end == '\0' && v >= 0.0 && v <= 600.0) ? v : 3.0;
}

}  // namespace

AI_Model_status checkAIModelStatus(AI_MODELS model, int gpuId) {
    AI_Model_status status;
    if (!validModel(model)) return status;
    status.downloaded = exists(modelFile(model, gpuId, ".onnx"));
    status.optimized = status.downloaded && exists(modelFile(model, gpuId, ".engine"));
    return status;
}

ERROR_CODE optimizeAIModel(AI_MODELS model, int gpuId) {
    if (!validModel(model) || gpuId < 0) return ERROR_CODE::INVALID_FUNCTION_PARAMETERS;
    // One optimisation at a time per process; a second caller finds the work done.
    static std::mutex busy;
    std::lock_guard<std::mutex> lock(busy);
    if (checkAIModelStatus(model, gpuId).optimized) return ERROR_CODE::SUCCESS;
    std::string folder = cacheFolder();
    for (size_t i = 1; i <= folder.size(); ++i)
        if (i == folder.size() || folder[i] == '/') ::mkdir(folder.substr(0, i).c_str(), 0755);
    std::string name = toString(model);
    std::string problem;
    if (!exists(modelFile(model, gpuId, ".onnx")) &&
        !replaceFile(modelFile(model, gpuId, ".onnx"), name + " weights\n", problem))
        return ERROR_CODE::FAILURE;
    std::this_thread::sleep_for(std::chrono::duration<double>(optimiseSeconds()));
    if (!replaceFile(modelFile(model, gpuId, ".engine"), name + " optimised\n", problem)) return ERROR_CODE::FAILURE;
    return ERROR_CODE::SUCCESS;
}

}  // namespace lum
