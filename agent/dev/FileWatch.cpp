#include "agent/dev/FileWatch.h"

namespace agent::dev {

FileWatch::State FileWatch::look() {
    m_touched = m_system.watchedFileTouched() || m_touched;
    const Mark now = m_system.watchedFile();
    if (!now)
        return State::unreadable;
    return isSame(*now) ? State::same : State::changed;
}

FileWatch::Mark FileWatch::mark(bool& changed) {
    m_touched = m_system.watchedFileTouched() || m_touched; // up to now
    Mark now = m_system.watchedFile();
    changed = now && !isSame(*now);
    m_touched = false;
    return now;
}

bool FileWatch::isSame(const FileState& now) const {
    return m_accepted && now == *m_accepted && !m_touched && (hasEvents() || !m_accepted->young);
}

} // namespace agent::dev
