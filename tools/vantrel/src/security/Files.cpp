#include "Files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>

#include "vantrel/tool/Errors.h"

namespace vantrel::tool::security {

void makeDirectory(const std::string& directory) {
    std::error_code error;
    std::filesystem::create_directories(directory, error);
    if (error) throw InputError(directory + ": cannot make the directory (" + error.message() + ")");
}

void writeFile(const std::string& path, const std::string& content, bool force, bool secret) {
    const int flags = O_WRONLY | O_CREAT | (force ? O_TRUNC : O_EXCL);
    const int fd = ::open(path.c_str(), flags, secret ? 0600 : 0644);
    if (fd < 0) {
        if (errno == EEXIST) throw InputError(path + ": exists (--force replaces it)");
        throw InputError(path + ": cannot write (" + std::strerror(errno) + ")");
    }
    // A replaced key keeps no wider mode than a new one.
    if (secret && ::fchmod(fd, 0600) != 0) {
        ::close(fd);
        throw std::runtime_error(path + ": cannot restrict access (" + std::strerror(errno) + ")");
    }
    std::size_t done = 0;
    while (done < content.size()) {
        const ssize_t n = ::write(fd, content.data() + done, content.size() - done);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) {
            const std::string reason = std::strerror(errno);
            ::close(fd);
            throw std::runtime_error(path + ": cannot write (" + reason + ")");
        }
        done += static_cast<std::size_t>(n);
    }
    if (::close(fd) != 0) throw std::runtime_error(path + ": cannot write (" + std::strerror(errno) + ")");
}

std::string caCertificatePath(const std::string& directory) { return directory + "/ca.pem"; }
std::string caKeyPath(const std::string& directory) { return directory + "/ca.key"; }

kelva::security::Authority loadAuthority(const std::string& directory) {
    return kelva::security::Authority::read(caCertificatePath(directory), caKeyPath(directory));
}

}  // namespace vantrel::tool::security
