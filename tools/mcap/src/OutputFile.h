#pragma once
// The file a writer appends to: counts the bytes written (record offsets) and keeps a running CRC of
// them (the data section CRC). Errors throw McapError naming the file.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

namespace vantrel::mcap::detail {

class OutputFile {
public:
    explicit OutputFile(const std::string& path);
    ~OutputFile();  // closes without checking: call close() to see errors
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;

    void write(const void* data, std::size_t size);
    // Hands what is buffered to the system; with `sync`, also waits until the device holds it.
    void flush(bool sync);
    void close();

    uint64_t position() const { return position_; }
    uint32_t crc() const { return crc_; }
    const std::string& path() const { return path_; }

private:
    [[noreturn]] void fail(const char* what, int error) const;

    std::string path_;
    std::FILE* file_ = nullptr;
    uint64_t position_ = 0;
    uint32_t crc_ = 0;
};

}  // namespace vantrel::mcap::detail
