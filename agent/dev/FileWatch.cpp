#include "agent/dev/FileWatch.h"

namespace agent::dev {

FileWatch::State FileWatch::look() {
    m_touched = m_system.watchedFileTouched() || m_touched;
    const Mark now = m_system.watchedFile();
    if (!now)
        return State::unreadable;
    const bool same =
        m_accepted && *now == *m_accepted && !m_touched && (hasEvents() || !m_accepted->young);
    return same ? State::same : State::changed;
}

FileWatch::Mark FileWatch::mark() {
    m_system.watchedFileTouched(); // up to now
    m_touched = false;
    return m_system.watchedFile();
}

} // namespace agent::dev
