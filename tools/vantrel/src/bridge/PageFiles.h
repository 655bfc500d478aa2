#pragma once
// The monitor page's files (HTML, script, style), embedded in the tool when it is built.
#include <cstddef>
#include <string>

namespace vantrel::tool::bridge {

struct PageFile {
    const char* path;  // "/index.html"
    const char* type;  // the Content-Type
    const char* data;
    std::size_t size;
};

// Null when there is no such file.
const PageFile* findPageFile(const std::string& path);

}  // namespace vantrel::tool::bridge
