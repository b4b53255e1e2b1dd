// Reads a recording back in file order. A file that is not a recording is refused at open;
// one cut short or damaged later gives every entry before the damage, then says where it is.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

#include "recording/chunk_format.hpp"
#include "recording/record_codec.hpp"
#include "recording/recording.hpp"

namespace rec {

class RecordingReader {
public:
    RecordingReader() = default;
    ~RecordingReader();
    RecordingReader(const RecordingReader&) = delete;
    RecordingReader& operator=(const RecordingReader&) = delete;

    // Refuses (false, and `problem` names the file and the fault) a missing or unreadable
    // file, anything but a regular file (folder, FIFO, device), wrong magic bytes, a format
    // version newer than this one, and a missing, cut or corrupt room.
    bool open(const std::string& path, std::string* problem);
    // The same on bytes in memory; `name` stands for the path in messages.
    bool openBytes(std::string bytes, const std::string& name, std::string* problem);

    const RecordingHeader& header() const { return header_; }
    // Entries in file order; std::nullopt at the end. A chunk cut short or corrupt ends the
    // recording there: truncated() is then true and problem() says where (chunk index,
    // byte offset); every entry before that chunk has been returned.
    std::optional<RecordedBodies> next();
    bool truncated() const { return truncated_; }
    const std::string& problem() const { return problem_; }
    uint64_t entriesRead() const { return entriesRead_; }

private:
    bool start(std::string* problem);
    // Reads up to `size` bytes; fewer only at the end of the data.
    size_t read(uint8_t* out, size_t size);
    // Decodes the next chunk into pending_; false at the end or on damage.
    bool readChunk();
    bool stop(const std::string& text);
    void closeFile();

    std::string name_;
    int fd_ = -1;
    std::string memory_;
    size_t memoryAt_ = 0;
    bool fromMemory_ = false;

    RecordingHeader header_;
    std::deque<RecordedBodies> pending_;
    uint64_t offset_ = 0;        // bytes consumed so far
    uint64_t chunkIndex_ = 0;    // of the next chunk; the room is chunk 0
    uint64_t bodyChunks_ = 0;
    uint64_t entriesRead_ = 0;
    uint64_t entriesDecoded_ = 0;
    bool finished_ = true;
    bool truncated_ = false;
    std::string problem_;
};

// The earliest and the latest capture time of a recording (up to where it is cut short);
// zeros when it cannot be opened or holds no capture. Reads the whole file.
struct CaptureSpan {
    uint64_t firstNs = 0;
    uint64_t lastNs = 0;
};
CaptureSpan captureSpan(const std::string& path);

}  // namespace rec
