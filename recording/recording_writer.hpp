// Writes a recording as it is made: the room first, then the cameras' bodies in chunks that
// are each complete on disk once written, so a session cut short keeps all but its last chunk.
#pragma once

#include <cstddef>
#include <string>

#include "recording/chunk_format.hpp"
#include "recording/record_codec.hpp"
#include "recording/recording.hpp"

namespace rec {

struct RecordingWriterOptions {
    // Bodies are buffered until this many MessagePack bytes are waiting (at most 1 MiB).
    // About 0.3 s of a four-camera room at the default.
    size_t chunkBytes = 256u << 10;
    int compressionLevel = 3;  // zstd's; 0 stores chunks as they are
    // Each chunk reaches the disk before append()/flush() return (fdatasync), so a power
    // cut loses at most the bodies still buffered.
    bool syncEachChunk = true;
};

class RecordingWriter {
public:
    RecordingWriter() = default;
    explicit RecordingWriter(const RecordingWriterOptions& options) : options_(options) {}
    ~RecordingWriter();
    RecordingWriter(const RecordingWriter&) = delete;
    RecordingWriter& operator=(const RecordingWriter&) = delete;

    // Creates (or replaces) the file and writes the room. False with the reason otherwise.
    bool open(const std::string& path, const RecordingHeader& header, std::string* problem);
    // Buffers one camera's bodies; writes a chunk once enough are waiting.
    bool append(const RecordedBodies& entry, std::string* problem);
    // Writes whatever is buffered as a chunk now.
    bool flush(std::string* problem);
    // Flushes, writes the closing chunk and closes the file; idempotent.
    bool close(std::string* problem);
    bool isOpen() const { return fd_ >= 0; }

private:
    bool writeChunk(ChunkKind kind, const Bytes& payload, std::string* problem);
    bool writeAll(const Bytes& bytes, std::string* problem);
    bool failed(const std::string& what, std::string* problem);

    RecordingWriterOptions options_;
    std::string path_;
    int fd_ = -1;
    Bytes pending_;  // packed entries not yet in a chunk
    size_t pendingCount_ = 0;
    RecordingSummary written_;
};

}  // namespace rec
