#include "Journal.h"

#include "Log.h"
#include "StateFolder.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

#include <unistd.h>

namespace agent {

namespace {

bool failed(const char* what, const std::string& file) {
    log(LOG_ERR, std::string("cannot ") + what + " " + file + ": " + std::strerror(errno));
    return false;
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
    if (std::rename(m_file.c_str(), aside.c_str()) != 0 || !syncFolder(m_folder))
        failed("keep aside", m_file);
    return std::nullopt;
}

bool Journal::save(const Entry& entry) {
    return replaceFile(m_file, toText(entry)) || failed("write", m_file);
}

bool Journal::clear() {
    if ((unlink(m_file.c_str()) == 0 || errno == ENOENT) && syncFolder(m_folder))
        return true;
    return failed("remove", m_file);
}

} // namespace agent
