// POSIX file writing: whole chunks go out with one write loop each, and fdatasync makes
// them durable. The file is written in place rather than renamed at the end: a recording
// cut by a crash is meant to stay readable up to its last whole chunk.
#include "recording/recording_writer.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

namespace rec {

namespace {

constexpr size_t kHardChunkBytes = 1u << 20;

// The writer refuses what its own reader would refuse, so no file it writes is unreadable.
const char* outOfBounds(const RecordingHeader& header) {
    if (header.room.size() > kMaxCameras) return "more cameras than a recording holds";
    if (header.createdBy.size() > kMaxTextBytes) return "a program name longer than a recording holds";
    for (const lum::FusionConfiguration& camera : header.room)
        if (camera.communication_parameters.getIpAddress().size() > kMaxTextBytes ||
            camera.input_type.configuration_.size() > kMaxTextBytes ||
            camera.input_type.secondConfiguration_.size() > kMaxTextBytes)
            return "a camera address longer than a recording holds";
    return nullptr;
}

const char* outOfBounds(const RecordedBodies& entry) {
    if (entry.bodies.body_list.size() > kMaxBodiesPerEntry) return "more bodies in one frame than a recording holds";
    for (const lum::BodyData& body : entry.bodies.body_list)
        if (body.keypoint.size() > kMaxKeypointsPerBody || body.keypoint_confidence.size() > kMaxKeypointsPerBody ||
            body.keypoint_covariances.size() > kMaxKeypointsPerBody || body.unique_object_id.size() > kMaxTextBytes)
            return "a body larger than a recording holds";
    return nullptr;
}

}  // namespace

RecordingWriter::~RecordingWriter() { close(nullptr); }

bool RecordingWriter::failed(const std::string& what, std::string* problem) {
    if (problem) *problem = path_ + ": " + what;
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    pending_.clear();
    pendingCount_ = 0;
    return false;
}

bool RecordingWriter::open(const std::string& path, const RecordingHeader& header, std::string* problem) {
    if (fd_ >= 0 && !close(problem)) return false;
    path_ = path;
    written_ = RecordingSummary();
    if (const char* fault = outOfBounds(header)) return failed(fault, problem);
    fd_ = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd_ < 0) return failed(std::strerror(errno), problem);
    return writeAll(encodeFileHeader(kFormatVersion), problem) &&
           writeChunk(ChunkKind::Room, encodeRoom(header), problem);
}

bool RecordingWriter::append(const RecordedBodies& entry, std::string* problem) {
    if (fd_ < 0) {
        if (problem) *problem = path_ + ": recording is not open";
        return false;
    }
    const char* fault = outOfBounds(entry);
    const size_t before = pending_.size();
    if (!fault) appendEntry(entry, pending_);
    if (!fault && pending_.size() - before > kHardChunkBytes) fault = "one camera's bodies are too large to record";
    if (fault) {
        // The entry is left out; the recording goes on.
        pending_.resize(before);
        if (problem) *problem = path_ + ": " + fault;
        return false;
    }
    if (pending_.size() > kHardChunkBytes) {
        // The newcomer goes into the next chunk, so no chunk grows past the hard bound.
        Bytes newcomer(pending_.begin() + ptrdiff_t(before), pending_.end());
        pending_.resize(before);
        if (!flush(problem)) return false;
        pending_ = std::move(newcomer);
    }
    ++pendingCount_;
    if (pending_.size() >= std::min(options_.chunkBytes, kHardChunkBytes) || pendingCount_ >= kMaxEntriesPerChunk)
        return flush(problem);
    return true;
}

bool RecordingWriter::flush(std::string* problem) {
    if (fd_ < 0) {
        if (problem) *problem = path_ + ": recording is not open";
        return false;
    }
    if (pendingCount_ == 0) return true;
    if (!writeChunk(ChunkKind::Bodies, entriesPayload(pending_, pendingCount_), problem)) return false;
    written_.entries += pendingCount_;
    ++written_.bodyChunks;
    pending_.clear();
    pendingCount_ = 0;
    return true;
}

bool RecordingWriter::close(std::string* problem) {
    if (fd_ < 0) return true;
    if (!flush(problem) || !writeChunk(ChunkKind::End, encodeSummary(written_), problem)) return false;
    if (::close(fd_) != 0) {
        fd_ = -1;
        return failed(std::strerror(errno), problem);
    }
    fd_ = -1;
    return true;
}

bool RecordingWriter::writeChunk(ChunkKind kind, const Bytes& payload, std::string* problem) {
    if (!writeAll(encodeChunk(kind, payload, std::clamp(options_.compressionLevel, 0, 19)), problem)) return false;
    if (options_.syncEachChunk && ::fdatasync(fd_) != 0) return failed(std::strerror(errno), problem);
    return true;
}

bool RecordingWriter::writeAll(const Bytes& chunk, std::string* problem) {
    size_t done = 0;
    while (done < chunk.size()) {
        const ssize_t n = ::write(fd_, chunk.data() + done, chunk.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return failed(n < 0 ? std::strerror(errno) : "nothing written", problem);
        done += size_t(n);
    }
    return true;
}

}  // namespace rec
