// Request body checks of the hub emulator: depth counted on the raw text, then parsing.
#include "tools/hub_emulator/request_body.hpp"

std::size_t valuesIn(const std::string& text) {
    std::size_t values = 1;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') ++i;
            else if (c == '"') inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{' || c == ',') {
            ++values;
        }
    }
    return values;
}

bool nestedDeeperThan(const std::string& text, int limit) {
    int depth = 0;
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') ++i;
            else if (c == '"') inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > limit) return true;
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return false;
}

std::optional<nlohmann::json> parseObjectBody(const std::string& text, std::string& problem) {
    // Counted before parsing: the parser, every copy and the indented data file would all
    // pay for each level.
    if (text.size() > kMaxBodyBytes) {
        problem = "larger than " + std::to_string(kMaxBodyBytes >> 20) + " MiB";
        return std::nullopt;
    }
    if (nestedDeeperThan(text, kMaxBodyNesting)) {
        problem = "nested deeper than " + std::to_string(kMaxBodyNesting) + " levels";
        return std::nullopt;
    }
    // A megabyte of "[1,1,1,..." parses into half a million nodes of sixteen bytes and
    // more: the size of the text does not bound the size of the tree.
    if (valuesIn(text) > kMaxBodyValues) {
        problem = "holds more than " + std::to_string(kMaxBodyValues) + " values";
        return std::nullopt;
    }
    nlohmann::json body = nlohmann::json::parse(text, nullptr, false);
    if (!body.is_object()) {
        problem = "expected a JSON object";
        return std::nullopt;
    }
    return body;
}
