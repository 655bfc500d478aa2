# Writes OUTPUT, a C++ source with the monitor page's files (FILES, paths separated by "|") as byte arrays
# and findPageFile() over them. Run in script mode by the build whenever a page file changes.
string(REPLACE "|" ";" FILES "${FILES}")
set(arrays "")
set(entries "")
set(index 0)
foreach(path IN LISTS FILES)
  get_filename_component(name "${path}" NAME)
  get_filename_component(ext "${path}" EXT)
  file(READ "${path}" hex HEX)
  string(LENGTH "${hex}" hexLength)
  math(EXPR size "${hexLength} / 2")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${hex}")
  if(ext STREQUAL ".html")
    set(type "text/html; charset=utf-8")
  elseif(ext STREQUAL ".js")
    set(type "text/javascript; charset=utf-8")
  elseif(ext STREQUAL ".css")
    set(type "text/css; charset=utf-8")
  else()
    set(type "application/octet-stream")
  endif()
  string(APPEND arrays "const char kFile${index}[] = {${bytes}'\\0'};\n")
  string(APPEND entries "    {\"/${name}\", \"${type}\", kFile${index}, ${size}},\n")
  math(EXPR index "${index} + 1")
endforeach()
file(WRITE "${OUTPUT}.tmp" "// Generated from tools/vantrel/web by EmbedPage.cmake: do not edit.
#include \"PageFiles.h\"

namespace vantrel::tool::bridge {

namespace {
${arrays}
const PageFile kFiles[] = {
${entries}};
}  // namespace

const PageFile* findPageFile(const std::string& path) {
    for (const auto& file : kFiles)
        if (path == file.path) return &file;
    return nullptr;
}

}  // namespace vantrel::tool::bridge
")
file(COPY_FILE "${OUTPUT}.tmp" "${OUTPUT}" ONLY_IF_DIFFERENT)
