#include "agent/dev/Journal.h"

#include "agent/Log.h"

#include <cerrno>
#include <cstring>
#include <string>

namespace agent {

namespace {

constexpr const char* kFile = "change.journal";
constexpr const char* kAside = "change.journal.damaged";

bool failed(const char* what) {
    log(LOG_ERR, std::string("cannot ") + what + " " + kFile + ": " + std::strerror(errno));
    return false;
}

} // namespace

std::optional<Entry> Journal::load() {
    const auto text = m_system.load(kFile);
    if (!text)
        return std::nullopt;
    std::optional<Entry> entry = toEntry(*text);
    if (entry)
        return entry;
    log(LOG_ERR, std::string(kFile) + " is damaged or of another version: a change may be half " +
                     "done; kept as " + kAside);
    m_damaged = true;
    if (!m_system.rename(kFile, kAside))
        failed("keep aside");
    return std::nullopt;
}

bool Journal::save(const Entry& entry) {
    return m_system.store(kFile, toText(entry)) || failed("write");
}

bool Journal::clear() {
    return m_system.remove(kFile) || failed("remove");
}

} // namespace agent
