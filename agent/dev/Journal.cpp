#include "agent/dev/Journal.h"

#include "agent/Log.h"

#include <cerrno>
#include <cstring>
#include <string>

namespace agent::dev {

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
    m_there = entry.has_value();
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
    if (!m_system.store(kFile, toText(entry)))
        return failed("write");
    m_there = true;
    return true;
}

bool Journal::clear() {
    if (!m_system.remove(kFile))
        return failed("remove");
    m_there = false;
    return true;
}

} // namespace agent::dev
