// Request body checks of the hub emulator: depth counted on the raw text, then parsing.
#include "tools/hub_emulator/request_body.hpp"

namespace {

// Calls `visit` with each character of `text` that stands outside its strings, until
// `visit` returns false.
template <typename Visit>
void forEachOutsideStrings(const std::string& text, Visit visit) {
    bool inString = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\') ++i;
            else if (c == '"') inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (!visit(c)) {
            return;
        }
    }
}

}  // namespace

std::size_t valuesIn(const std::string& text) {
    std::size_t values = 1;
    forEachOutsideStrings(text, [&values](char c) {
        if (c == '[' || c == '{' || c == ',') ++values;
        return true;
    });
    return values;
}

bool nestedDeeperThan(const std::string& text, int limit) {
    int depth = 0;
    bool deeper = false;
    forEachOutsideStrings(text, [&](char c) {
        if (c == '[' || c == '{') deeper = ++depth > limit;
        else if (c == ']' || c == '}') --depth;
        return !deeper;
    });
    return deeper;
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
