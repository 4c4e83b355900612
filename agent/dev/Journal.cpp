#include "agent/dev/Journal.h"

#include <cerrno>
#include <cstring>
#include <string>

namespace agent::dev {

namespace {

constexpr const char* kFile = "change.journal";
constexpr const char* kAside = "change.journal.damaged";
constexpr const char* kKept = "change.made";

constexpr std::chrono::minutes kTell{1}; ///< between two lines that say the same

} // namespace

/// @return false
bool Journal::failed(const std::string& what) {
    const std::string line = "cannot " + what + " " + kFile + ": " + std::strerror(errno);
    if (const auto now = m_system.now(); line != m_told || now >= m_tell) {
        m_told = line;
        m_tell = now + kTell;
        m_lines.log(now, LOG_ERR, line);
    }
    return false;
}

bool Journal::load(std::optional<Entry>& entry) {
    std::optional<std::string> text;
    m_there = true; // until it can be looked at
    if (!m_system.load(kFile, text))
        return failed("look for");
    if (text)
        entry = toEntry(*text);
    m_there = entry.has_value();
    if (!text || entry)
        return true;
    m_lines.log(m_system.now(), LOG_ERR,
                std::string(kFile) + " is damaged or of another version: a change may be half " +
                    "done; kept as " + kAside);
    m_damaged = true;
    if (!m_system.rename(kFile, kAside))
        failed("keep aside");
    return true;
}

bool Journal::save(const Entry& entry) {
    if (!m_system.store(kFile, toText(entry)))
        return failed("write");
    m_there = true;
    return true;
}

bool Journal::clear() {
    m_there = !(m_system.remove(kKept) && m_system.remove(kFile));
    if (m_there)
        return failed("remove");
    return true;
}

bool Journal::keep() {
    if (!m_there)
        return true;
    m_there = !m_system.rename(kFile, kKept);
    if (m_there)
        return failed("put aside");
    return true;
}

std::optional<Entry> Journal::kept() {
    std::optional<std::string> text;
    if (!m_system.load(kKept, text) || !text)
        return std::nullopt;
    return toEntry(*text);
}

} // namespace agent::dev
