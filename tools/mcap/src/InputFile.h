#pragma once
// A file read at given offsets. Reads past the end, or that the system refuses, throw McapError naming
// the file and the offset.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vantrel::mcap::detail {

class InputFile {
public:
    explicit InputFile(const std::string& path);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    uint64_t size() const { return size_; }
    const std::string& path() const { return path_; }

    // `what` names what is read, for the error of a read past the end.
    void read(uint64_t offset, void* data, std::size_t size, const char* what) const;
    std::vector<uint8_t> read(uint64_t offset, uint64_t size, const char* what) const;

private:
    void checkRange(uint64_t offset, uint64_t size, const char* what) const;

    std::string path_;
    int fd_ = -1;
    uint64_t size_ = 0;
};

}  // namespace vantrel::mcap::detail
