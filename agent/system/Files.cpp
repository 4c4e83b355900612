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

/// Reads what is open, and closes it.
std::optional<std::string> readAll(int descriptor) {
    std::optional<std::string> text(std::in_place);
    std::array<char, 4096> piece{};
    ssize_t size = 0;
    while ((size = read(descriptor, piece.data(), piece.size())) > 0)
        text->append(piece.data(), static_cast<std::size_t>(size));
    const int error = errno;
    close(descriptor);
    if (size == 0)
        return text;
    errno = error;
    return std::nullopt;
}

/// The folder that a file is in, by a descriptor: it is the same one for all that is done there,
/// even when the folder's name goes and comes back meanwhile.
class Folder {
public:
    explicit Folder(const std::filesystem::path& file)
        : m_descriptor(open(file.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {}
    ~Folder() {
        const int error = errno;
        if (m_descriptor >= 0)
            close(m_descriptor);
        errno = error;
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    explicit operator bool() const { return m_descriptor >= 0; }
    operator int() const { return m_descriptor; }

private:
    const int m_descriptor;
};

std::string nameOf(const std::string& file) {
    return std::filesystem::path(file).filename();
}

} // namespace

std::optional<std::string> textOf(const std::string& file) {
    const int descriptor = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    return descriptor < 0 ? std::nullopt : readAll(descriptor);
}

bool loadFile(const std::string& file, std::optional<std::string>& text) {
    const Folder folder(file);
    if (!folder)
        return false;
    const int descriptor = openat(folder, nameOf(file).c_str(), O_RDONLY | O_CLOEXEC);
    const bool none = descriptor < 0 && errno == ENOENT;
    text = descriptor < 0 ? std::nullopt : readAll(descriptor);
    return text || none;
}

bool replaceFile(const std::string& file, const std::string& text) {
    const std::string beside = file + ".new";
    return writeAll(beside, text) && renameFile(beside, file);
}

bool removeFile(const std::string& file) {
    const Folder folder(file);
    const std::string name = nameOf(file);
    return folder &&
           (unlinkat(folder, name.c_str(), 0) == 0 || errno == ENOENT ||
            (errno == EISDIR && unlinkat(folder, name.c_str(), AT_REMOVEDIR) == 0)) &&
           fsync(folder) == 0;
}

bool renameFile(const std::string& file, const std::string& newName) {
    const Folder folder(newName);
    return folder && renameat(folder, nameOf(file).c_str(), folder, nameOf(newName).c_str()) == 0 &&
           fsync(folder) == 0;
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
