// Chunk by chunk reading from a file descriptor or from memory. Non-regular files are
// refused by fstat on a descriptor opened without blocking, so a FIFO cannot hang open().
#include "recording/recording_reader.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace rec {

namespace {

std::string fileKind(mode_t mode) {
    if (S_ISDIR(mode)) return "a folder";
    if (S_ISFIFO(mode)) return "a FIFO";
    if (S_ISCHR(mode) || S_ISBLK(mode)) return "a device";
    if (S_ISSOCK(mode)) return "a socket";
    return "not a regular file";
}

}  // namespace

RecordingReader::~RecordingReader() { closeFile(); }

void RecordingReader::closeFile() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
}

bool RecordingReader::open(const std::string& path, std::string* problem) {
    closeFile();
    name_ = path;
    fromMemory_ = false;
    memory_.clear();
    finished_ = true;
    fd_ = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    struct stat info {};
    std::string fault;
    if (fd_ < 0) {
        fault = std::strerror(errno);
    } else if (::fstat(fd_, &info) != 0) {
        fault = std::strerror(errno);
    } else if (!S_ISREG(info.st_mode)) {
        fault = "is " + fileKind(info.st_mode) + ", not a recording file";
    }
    if (!fault.empty()) {
        closeFile();
        if (problem) *problem = path + ": " + fault;
        return false;
    }
    return start(problem);
}

bool RecordingReader::openBytes(std::string bytes, const std::string& name, std::string* problem) {
    closeFile();
    name_ = name;
    fromMemory_ = true;
    memory_ = std::move(bytes);
    memoryAt_ = 0;
    return start(problem);
}

bool RecordingReader::start(std::string* problem) {
    header_ = RecordingHeader();
    pending_.clear();
    offset_ = chunkIndex_ = bodyChunks_ = entriesRead_ = entriesDecoded_ = 0;
    truncated_ = false;
    problem_.clear();
    finished_ = false;

    auto refuse = [&](const std::string& text) {
        closeFile();
        memory_.clear();
        finished_ = true;
        if (problem) *problem = text;
        return false;
    };
    uint8_t fileHeader[kFileHeaderBytes];
    const size_t got = read(fileHeader, sizeof(fileHeader));
    if (got == 0) return refuse(name_ + ": empty file, not a recording");
    if (std::memcmp(fileHeader, kMagic.data(), std::min(got, kMagic.size())) != 0)
        return refuse(name_ + ": not a recording (wrong magic bytes)");
    if (got < kFileHeaderBytes)
        return refuse(name_ + ": file header cut short (" + std::to_string(got) + " of " +
                      std::to_string(kFileHeaderBytes) + " bytes)");
    uint32_t version = 0;
    decodeFileHeader(fileHeader, version, nullptr);
    if (version == 0) return refuse(name_ + ": format version 0 is not a valid version");
    if (version > kFormatVersion)
        return refuse(name_ + ": format version " + std::to_string(version) + " is newer than this program reads (" +
                      std::to_string(kFormatVersion) + ")");
    offset_ = kFileHeaderBytes;
    header_.version = version;
    // The room is read now, so a file without a usable room is refused rather than cut.
    if (!readChunk()) return refuse(problem_);
    return true;
}

size_t RecordingReader::read(uint8_t* out, size_t size) {
    if (fromMemory_) {
        const size_t n = std::min(size, memory_.size() - memoryAt_);
        if (n) std::memcpy(out, memory_.data() + memoryAt_, n);
        memoryAt_ += n;
        return n;
    }
    size_t done = 0;
    while (fd_ >= 0 && done < size) {
        const ssize_t n = ::read(fd_, out + done, size - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        done += size_t(n);
    }
    return done;
}

bool RecordingReader::stop(const std::string& text) {
    truncated_ = true;
    finished_ = true;
    problem_ = name_ + ": " + text;
    closeFile();
    memory_.clear();
    return false;
}

bool RecordingReader::readChunk() {
    const std::string where = "chunk " + std::to_string(chunkIndex_) + " at byte " + std::to_string(offset_);
    uint8_t fixed[kChunkHeaderBytes];
    const size_t got = read(fixed, sizeof(fixed));
    if (got == 0) {
        if (chunkIndex_ == 0) return stop("no room chunk after the file header");
        return stop("ends after " + std::to_string(entriesDecoded_) + " entries at byte " + std::to_string(offset_) +
                    " without its closing chunk (the recording was cut or not closed)");
    }
    if (got < kChunkHeaderBytes) return stop(where + ": cut short in its header");
    ChunkHeader header;
    std::string why;
    if (!decodeChunkHeader(fixed, header, &why)) return stop(where + ": " + why);
    Bytes stored(header.storedBytes);
    const size_t payload = read(stored.data(), stored.size());
    if (payload < stored.size())
        return stop(where + ": cut short (" + std::to_string(payload) + " of " + std::to_string(stored.size()) +
                    " payload bytes)");
    Bytes raw;
    if (!unpackChunk(header, stored.data(), raw, &why)) return stop(where + ": " + why);
    const bool first = chunkIndex_ == 0;
    if (first != (header.kind == ChunkKind::Room))
        return stop(where + (first ? ": the first chunk is not the room" : ": a second room chunk"));
    offset_ += kChunkHeaderBytes + header.storedBytes;
    ++chunkIndex_;
    switch (header.kind) {
        case ChunkKind::Room:
            if (!decodeRoom(raw, header_, &why)) return stop(where + ": room: " + why);
            return true;
        case ChunkKind::Bodies: {
            std::vector<RecordedBodies> entries;
            if (!decodeEntries(raw, entries, &why)) return stop(where + ": " + why);
            entriesDecoded_ += entries.size();
            ++bodyChunks_;
            for (RecordedBodies& entry : entries) pending_.push_back(std::move(entry));
            return true;
        }
        case ChunkKind::End: {
            RecordingSummary summary;
            if (!decodeSummary(raw, summary, &why)) return stop(where + ": " + why);
            if (summary.entries != entriesDecoded_ || summary.bodyChunks != bodyChunks_)
                return stop(where + ": the closing chunk counts " + std::to_string(summary.entries) + " entries in " +
                            std::to_string(summary.bodyChunks) + " chunks, the file holds " +
                            std::to_string(entriesDecoded_) + " in " + std::to_string(bodyChunks_));
            uint8_t extra = 0;
            if (read(&extra, 1) != 0) return stop("bytes after the closing chunk at byte " + std::to_string(offset_));
            finished_ = true;
            closeFile();
            memory_.clear();
            return false;
        }
    }
    return stop(where + ": unknown chunk kind");
}

std::optional<RecordedBodies> RecordingReader::next() {
    while (pending_.empty()) {
        if (finished_ || !readChunk()) return std::nullopt;
    }
    RecordedBodies entry = std::move(pending_.front());
    pending_.pop_front();
    ++entriesRead_;
    return entry;
}

CaptureSpan captureSpan(const std::string& path) {
    CaptureSpan span;
    RecordingReader reader;
    if (!reader.open(path, nullptr)) return span;
    while (const std::optional<RecordedBodies> entry = reader.next()) {
        const uint64_t capture = entry->bodies.timestamp.getNanoseconds();
        if (span.firstNs == 0 || capture < span.firstNs) span.firstNs = capture;
        span.lastNs = std::max(span.lastNs, capture);
    }
    return span;
}

}  // namespace rec
