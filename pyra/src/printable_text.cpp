// Escaping for messages: a UTF-8 decoder that accepts only shortest forms outside the
// surrogates, so what it keeps is exactly what a terminal shows as characters.
#include "printable_text.hpp"

#include <cstdio>

namespace lum {
namespace {

// The length of the well-formed UTF-8 character at `i` that is not a control, or 0.
size_t characterLength(const std::string& text, size_t i) {
    const auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
    const unsigned char lead = byte(i);
    if (lead >= 0x20 && lead < 0x7f) return 1;
    size_t length = 0;
    unsigned long code = 0;
    if (lead >= 0xc2 && lead <= 0xdf) length = 2, code = lead & 0x1f;
    else if (lead >= 0xe0 && lead <= 0xef) length = 3, code = lead & 0x0f;
    else if (lead >= 0xf0 && lead <= 0xf4) length = 4, code = lead & 0x07;
    else return 0;
    if (i + length > text.size()) return 0;
    for (size_t k = 1; k < length; ++k) {
        if ((byte(i + k) & 0xc0) != 0x80) return 0;
        code = (code << 6) | (byte(i + k) & 0x3f);
    }
    const unsigned long smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (code < smallest[length] || code > 0x10ffff || (code >= 0xd800 && code <= 0xdfff)) return 0;
    if (code >= 0x80 && code <= 0x9f) return 0;  // C1 controls act on terminals too
    return length;
}

}  // namespace

std::string printableText(const std::string& raw) {
    std::string out;
    out.reserve(raw.size());
    for (size_t i = 0; i < raw.size();) {
        const size_t length = characterLength(raw, i);
        if (length > 0) {
            out.append(raw, i, length);
            i += length;
            continue;
        }
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned char>(raw[i]));
        out += escaped;
        ++i;
    }
    return out;
}

}  // namespace lum
