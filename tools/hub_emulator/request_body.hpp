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
// A room of a thousand cameras is some fifteen thousand values.
constexpr std::size_t kMaxBodyValues = 50000;

// An upper bound of the values a JSON text holds: one more than its brackets and commas
// outside strings.
std::size_t valuesIn(const std::string& text);

// True when brackets outside strings nest deeper than `limit`.
bool nestedDeeperThan(const std::string& text, int limit);

// The body as a JSON object, or nullopt with `problem` saying what is wrong with it.
std::optional<nlohmann::json> parseObjectBody(const std::string& text, std::string& problem);
