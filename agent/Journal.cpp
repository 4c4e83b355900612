#include "Journal.h"

#include "Log.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

#include <fcntl.h>
#include <unistd.h>

namespace agent {

namespace {

bool failed(const char* what, const std::string& file) {
    log(LOG_ERR, std::string("cannot ") + what + " " + file + ": " + std::strerror(errno));
    return false;
}

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

Journal::Journal(const std::string& folder)
    : m_folder(folder), m_file(folder + "/change.journal") {}

std::optional<Entry> Journal::load() {
    std::ifstream file(m_file, std::ios::binary);
    if (!file.is_open() && access(m_file.c_str(), F_OK) != 0 && errno == ENOENT)
        return std::nullopt; // any other is as good as damaged
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    std::optional<Entry> entry = toEntry(text);
    if (entry)
        return entry;
    const std::string aside = m_file + ".damaged";
    log(LOG_ERR,
        m_file + " is damaged or of another version: a change may be half done; kept as " + aside);
    m_damaged = true;
    if (std::rename(m_file.c_str(), aside.c_str()) != 0 || !syncFolder())
        failed("keep aside", m_file);
    return std::nullopt;
}

bool Journal::save(const Entry& entry) {
    const std::string beside = m_file + ".new";
    if (writeAll(beside, toText(entry)) && std::rename(beside.c_str(), m_file.c_str()) == 0 &&
        syncFolder())
        return true;
    return failed("write", m_file);
}

bool Journal::clear() {
    if ((unlink(m_file.c_str()) == 0 || errno == ENOENT) && syncFolder())
        return true;
    return failed("remove", m_file);
}

bool Journal::syncFolder() const {
    const int descriptor = open(m_folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    const bool synced = fsync(descriptor) == 0;
    close(descriptor);
    return synced;
}

} // namespace agent
