// What the emulated hub accepts as a request body: a JSON object, bounded in size and
// depth before it is parsed, so one request can neither exhaust the stack nor the disk.
#pragma once

#include <nlohmann/json.hpp>

#include <cstddef>
#include <optional>
#include <string>

// The hub's own documents are a few kilobytes and a handful of levels deep.
constexpr std::size_t kMaxBodyBytes = 1 << 20;
constexpr int kMaxBodyNesting = 64;

// True when brackets outside strings nest deeper than `limit`.
bool nestedDeeperThan(const std::string& text, int limit);

// The body as a JSON object, or nullopt with `problem` saying what is wrong with it.
std::optional<nlohmann::json> parseObjectBody(const std::string& text, std::string& problem);
