#include "agent/system/Files.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

namespace agent {

namespace {

bool writeAll(const std::string& file, const std::string& text) {
    const int descriptor =
        open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (descriptor < 0)
        return false;
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t size = write(descriptor, text.data() + done, text.size() - done);
        if (size < 0 && errno != EINTR)
            break;
        done += size > 0 ? static_cast<std::size_t>(size) : 0;
    }
    const bool whole = done == text.size() && fsync(descriptor) == 0;
    const int error = errno;
    const bool closed = close(descriptor) == 0;
    if (!whole)
        errno = error;
    return whole && closed;
}

} // namespace

std::optional<std::string> textOf(const std::string& file) {
    const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return std::nullopt;
    std::string text;
    std::array<char, 4096> piece{};
    ssize_t size = 0;
    while ((size = read(descriptor, piece.data(), piece.size())) > 0)
        text.append(piece.data(), static_cast<std::size_t>(size));
    const int error = errno;
    close(descriptor);
    errno = error;
    return size == 0 ? std::optional(text) : std::nullopt;
}

bool replaceFile(const std::string& file, const std::string& text) {
    const std::string beside = file + ".new";
    return writeAll(beside, text) && std::rename(beside.c_str(), file.c_str()) == 0 &&
           syncFolder(std::filesystem::path(file).parent_path());
}

bool syncFolder(const std::string& folder) {
    const int descriptor = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    const bool synced = fsync(descriptor) == 0;
    close(descriptor);
    return synced;
}

} // namespace agent
