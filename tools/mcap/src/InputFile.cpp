#include "InputFile.h"

#include "vantrel/mcap/Records.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace vantrel::mcap::detail {

InputFile::InputFile(const std::string& path) : path_(path) {
    fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd_ < 0) {
        throw McapError("cannot open " + path + ": " + std::strerror(errno));
    }
    struct stat st {};
    const char* problem = nullptr;
    if (::fstat(fd_, &st) != 0) {
        problem = std::strerror(errno);
    } else if (!S_ISREG(st.st_mode)) {
        problem = "not a regular file";  // the reader seeks: no pipes or devices
    }
    if (problem != nullptr) {
        ::close(fd_);
        throw McapError("cannot read " + path + ": " + problem);
    }
    size_ = static_cast<uint64_t>(st.st_size);
}

InputFile::~InputFile() {
    ::close(fd_);
}

void InputFile::checkRange(uint64_t offset, uint64_t size, const char* what) const {
    if (offset > size_ || size > size_ - offset) {
        throw McapError(path_ + ": truncated: " + what + " at offset " + std::to_string(offset) + " needs " +
                        std::to_string(size) + " bytes, the file has " + std::to_string(size_));
    }
}

void InputFile::read(uint64_t offset, void* data, std::size_t size, const char* what) const {
    checkRange(offset, size, what);
    auto* p = static_cast<uint8_t*>(data);
    while (size > 0) {
        const ssize_t n = ::pread(fd_, p, size, static_cast<off_t>(offset));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            throw McapError(path_ + ": cannot read " + what + " at offset " + std::to_string(offset) + ": " +
                            (n == 0 ? "the file got shorter" : std::strerror(errno)));
        }
        p += n;
        offset += static_cast<uint64_t>(n);
        size -= static_cast<std::size_t>(n);
    }
}

std::vector<uint8_t> InputFile::read(uint64_t offset, uint64_t size, const char* what) const {
    checkRange(offset, size, what);
    std::vector<uint8_t> out(static_cast<std::size_t>(size));
    read(offset, out.data(), out.size(), what);
    return out;
}

}  // namespace vantrel::mcap::detail
