// Body layouts with their bones, and the small behaviour of the transport, input and
// image records.
#include "lum/records.hpp"

namespace lum {
namespace {

template <typename Part>
std::vector<std::pair<Part, Part>> bonesOf(std::initializer_list<std::pair<int, int>> pairs) {
    std::vector<std::pair<Part, Part>> out;
    out.reserve(pairs.size());
    for (const auto& p : pairs) out.emplace_back(static_cast<Part>(p.first), static_cast<Part>(p.second));
    return out;
}

template <typename Part>
std::vector<std::pair<int, int>> asIndices(const std::vector<std::pair<Part, Part>>& bones) {
    std::vector<std::pair<int, int>> out;
    out.reserve(bones.size());
    for (const auto& b : bones) out.emplace_back(static_cast<int>(b.first), static_cast<int>(b.second));
    return out;
}

}  // namespace

const std::vector<std::pair<BODY_18_PARTS, BODY_18_PARTS>> BODY_18_BONES = bonesOf<BODY_18_PARTS>({
    {1, 2}, {2, 3}, {3, 4}, {1, 5}, {5, 6}, {6, 7}, {1, 8}, {8, 9}, {9, 10},
    {1, 11}, {11, 12}, {12, 13}, {1, 0}, {0, 14}, {14, 16}, {0, 15}, {15, 17},
});

const std::vector<std::pair<BODY_34_PARTS, BODY_34_PARTS>> BODY_34_BONES = bonesOf<BODY_34_PARTS>({
    {0, 1}, {1, 2}, {2, 3}, {3, 26}, {26, 27}, {27, 28}, {28, 29}, {27, 30}, {30, 31},
    {2, 4}, {4, 5}, {5, 6}, {6, 7}, {7, 8}, {8, 9}, {7, 10},
    {2, 11}, {11, 12}, {12, 13}, {13, 14}, {14, 15}, {15, 16}, {14, 17},
    {0, 18}, {18, 19}, {19, 20}, {20, 21}, {20, 32},
    {0, 22}, {22, 23}, {23, 24}, {24, 25}, {24, 33},
});

const std::vector<std::pair<BODY_38_PARTS, BODY_38_PARTS>> BODY_38_BONES = bonesOf<BODY_38_PARTS>({
    {0, 1}, {1, 2}, {2, 3}, {3, 4}, {4, 5}, {5, 6}, {5, 7}, {6, 8}, {7, 9},
    {3, 10}, {3, 11}, {10, 12}, {11, 13}, {12, 14}, {13, 15}, {14, 16}, {15, 17},
    {16, 30}, {17, 31}, {16, 32}, {17, 33}, {16, 34}, {17, 35}, {16, 36}, {17, 37},
    {0, 18}, {0, 19}, {18, 20}, {19, 21}, {20, 22}, {21, 23},
    {22, 24}, {23, 25}, {22, 26}, {23, 27}, {22, 28}, {23, 29},
});

int getKeypointCount(BODY_FORMAT format) {
    switch (format) {
        case BODY_FORMAT::BODY_18: return static_cast<int>(BODY_18_PARTS::LAST);
        case BODY_FORMAT::BODY_34: return static_cast<int>(BODY_34_PARTS::LAST);
        case BODY_FORMAT::BODY_38: return static_cast<int>(BODY_38_PARTS::LAST);
        case BODY_FORMAT::LAST: break;
    }
    return 0;
}

std::vector<std::pair<int, int>> getBones(BODY_FORMAT format) {
    switch (format) {
        case BODY_FORMAT::BODY_18: return asIndices(BODY_18_BONES);
        case BODY_FORMAT::BODY_34: return asIndices(BODY_34_BONES);
        case BODY_FORMAT::BODY_38: return asIndices(BODY_38_BONES);
        case BODY_FORMAT::LAST: break;
    }
    return {};
}

// ---- Transport and input ----

void CommunicationParameters::setForSharedMemory() {
    type_ = COMM_TYPE::SHARED_MEMORY;
    port_ = 0;
    ip_.clear();
}

void CommunicationParameters::setForLocalNetwork(int port) { setForLocalNetwork(std::string(), port); }

void CommunicationParameters::setForLocalNetwork(const std::string& ip, int port) {
    type_ = COMM_TYPE::LOCAL_NETWORK;
    ip_ = ip;
    port_ = port;
}

void InputType::setFromCameraID(int id, INPUT_TYPE kind) {
    *this = InputType();
    type_ = kind;
    number_ = id;
    configuration_ = std::to_string(id);
    isInit_ = true;
    bySerialNumber_ = false;
}

void InputType::setFromSerialNumber(unsigned int serial, INPUT_TYPE kind) {
    *this = InputType();
    type_ = kind;
    number_ = static_cast<int>(serial);
    configuration_ = std::to_string(serial);
    isInit_ = true;
    bySerialNumber_ = true;
}

bool InputType::setFromSVOFile(const std::string& path) {
    *this = InputType();
    type_ = INPUT_TYPE::SVO;
    configuration_ = path;
    isLive_ = false;
    isInit_ = !path.empty();
    return isInit_;
}

bool InputType::setFromStream(const std::string& ip, unsigned short port) {
    *this = InputType();
    type_ = INPUT_TYPE::STREAM;
    configuration_ = ip;
    secondConfiguration_ = std::to_string(port);
    number_ = port;
    isInit_ = !ip.empty() && port != 0;
    return isInit_;
}

// ---- Images ----

Mat::Mat(Resolution resolution) { alloc(resolution); }

void Mat::alloc(Resolution resolution) {
    resolution_ = resolution;
    data_ = std::make_shared<std::vector<float4>>(resolution.area());
}

void Mat::free(MEM memory) {
    if (memory == MEM::GPU) return;  // only CPU memory is ever held
    data_.reset();
    resolution_ = Resolution();
}

float4* Mat::getPtr(MEM memory) const {
    if (!data_ || memory == MEM::GPU) return nullptr;
    return data_->data();
}

}  // namespace lum
