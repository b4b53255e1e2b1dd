// nlohmann's DOM builder behind a SAX front that counts depth and values, so a document is
// refused as soon as it goes over budget rather than after it was built.
#include "pyra_codec/msgpack_reader.hpp"

#include <exception>
#include <string>

namespace pyra_codec {

namespace {

using nlohmann::json;

class BoundedDomParser {
public:
    BoundedDomParser(json& root, size_t maxDepth, size_t maxValues)
        : dom_(root, false), maxDepth_(maxDepth), maxValues_(maxValues) {}

    bool null() { return count() && dom_.null(); }
    bool boolean(bool v) { return count() && dom_.boolean(v); }
    bool number_integer(json::number_integer_t v) { return count() && dom_.number_integer(v); }
    bool number_unsigned(json::number_unsigned_t v) { return count() && dom_.number_unsigned(v); }
    bool number_float(json::number_float_t v, const json::string_t& s) { return count() && dom_.number_float(v, s); }
    bool string(json::string_t& v) { return count() && dom_.string(v); }
    bool binary(json::binary_t& v) { return count() && dom_.binary(v); }
    bool start_object(size_t n) { return count() && ++depth_ <= maxDepth_ && dom_.start_object(n); }
    bool key(json::string_t& v) { return count() && dom_.key(v); }
    bool end_object() { --depth_; return dom_.end_object(); }
    bool start_array(size_t n) { return count() && ++depth_ <= maxDepth_ && dom_.start_array(n); }
    bool end_array() { --depth_; return dom_.end_array(); }
    template <typename Exception>
    bool parse_error(size_t at, const std::string& token, const Exception& e) {
        return dom_.parse_error(at, token, e);
    }

private:
    bool count() { return ++values_ <= maxValues_; }

    nlohmann::detail::json_sax_dom_parser<json> dom_;
    const size_t maxDepth_;
    const size_t maxValues_;
    size_t depth_ = 0;
    size_t values_ = 0;
};

}  // namespace

bool parseBounded(const uint8_t* data, size_t size, size_t maxDepth, size_t maxValues, json& out) {
    try {
        BoundedDomParser sax(out, maxDepth, maxValues);
        return json::sax_parse(data, data + size, &sax, json::input_format_t::msgpack, true);
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace pyra_codec
