// Text from files and the network shown to a user: control bytes could drive the
// terminal, and bytes that are not UTF-8 garble it, so both are shown as \xNN.
#pragma once

#include <string>

namespace lum {

// `raw` with control bytes (C0, DEL, C1) and bytes outside valid UTF-8 written as \xNN;
// printable ASCII and well-formed UTF-8 characters are kept as they are.
std::string printableText(const std::string& raw);

}  // namespace lum
