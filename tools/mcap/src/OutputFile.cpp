#include "OutputFile.h"

#include "Crc32.h"
#include "vantrel/mcap/Records.h"

#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace vantrel::mcap::detail {

OutputFile::OutputFile(const std::string& path) : path_(path) {
    file_ = std::fopen(path.c_str(), "wbe");  // e: not inherited by programs the recorder starts
    if (file_ == nullptr) {
        fail("cannot create", errno);
    }
    // Chunks arrive in large writes; the buffer mainly joins the small records around them.
    std::setvbuf(file_, nullptr, _IOFBF, 256 * 1024);
}

OutputFile::~OutputFile() {
    if (file_ != nullptr) {
        std::fclose(file_);
    }
}

void OutputFile::write(const void* data, std::size_t size) {
    if (file_ == nullptr) {
        throw McapError(path_ + ": write after close");
    }
    if (size == 0) {
        return;
    }
    if (std::fwrite(data, 1, size, file_) != size) {
        fail("cannot write to", errno);
    }
    position_ += size;
    crc_ = crc32(crc_, data, size);
}

void OutputFile::flush(bool sync) {
    if (file_ == nullptr) {
        throw McapError(path_ + ": flush after close");
    }
    if (std::fflush(file_) != 0) {
        fail("cannot write to", errno);
    }
    if (sync && ::fdatasync(::fileno(file_)) != 0 && errno != EINVAL) {  // EINVAL: a pipe or device
        fail("cannot sync", errno);
    }
}

void OutputFile::close() {
    if (file_ == nullptr) {
        return;
    }
    std::FILE* f = file_;
    file_ = nullptr;
    const bool flushed = std::fflush(f) == 0;
    const int flushError = errno;
    if (std::fclose(f) != 0 || !flushed) {
        fail("cannot finish writing", flushed ? errno : flushError);
    }
}

void OutputFile::fail(const char* what, int error) const {
    throw McapError(std::string(what) + " " + path_ + ": " + std::strerror(error));
}

}  // namespace vantrel::mcap::detail
