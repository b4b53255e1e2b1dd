// Feeds arbitrary bytes to the recording reader: it must refuse them at open or give entries
// up to the first damage, never crash, hang or allocate beyond its bounds.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "recording/record_codec.hpp"
#include "recording/recording_reader.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Mutated chunks rarely keep a valid checksum, so the payload decoders also get the
    // bytes directly.
    const rec::Bytes payload(data, data + size);
    std::vector<rec::RecordedBodies> entries;
    rec::decodeEntries(payload, entries, nullptr);
    rec::RecordingHeader header;
    rec::decodeRoom(payload, header, nullptr);
    rec::RecordingSummary summary;
    rec::decodeSummary(payload, summary, nullptr);

    rec::RecordingReader reader;
    std::string problem;
    if (!reader.openBytes(std::string(reinterpret_cast<const char*>(data), size), "fuzz.rec", &problem)) {
        if (problem.empty()) std::abort();
        return 0;
    }
    while (auto entry = reader.next()) {
        // Whatever was decoded encodes and decodes to itself.
        rec::Bytes packed;
        rec::appendEntry(*entry, packed);
        std::vector<rec::RecordedBodies> again;
        if (!rec::decodeEntries(rec::entriesPayload(packed, 1), again, nullptr) || again.size() != 1 ||
            again[0].serial != entry->serial || again[0].bodies.timestamp != entry->bodies.timestamp ||
            again[0].bodies.body_list.size() != entry->bodies.body_list.size())
            std::abort();
    }
    // Reading stops either cleanly or with a reason, never both or neither.
    if (reader.truncated() == reader.problem().empty()) std::abort();
    return 0;
}
