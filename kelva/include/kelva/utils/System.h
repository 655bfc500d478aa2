#pragma once
#include <string>

namespace kelva::utils::system {

// The last path component of a file path ('/' and '\\' both separate).
std::string filename(const std::string& path);

void msSleep(int milliseconds);

// Process id of this process.
long processId();

// Host name of this machine ("unknown" if it cannot be read).
std::string hostName();

// The path of this process's program ("" if it cannot be read).
std::string programName();

}  // namespace kelva::utils::system

namespace kelva::utils::string {

// Removes `prefix` from the front of `text` in place if `text` starts with it.
void removePrefixIf(std::string& text, const std::string& prefix);

}  // namespace kelva::utils::string

namespace kelva::utils::time {

// Seconds since the Unix epoch.
long long getCurrentUnixTimestamp();

}  // namespace kelva::utils::time
