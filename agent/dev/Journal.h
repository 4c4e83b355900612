#pragma once

#include "agent/Log.h"
#include "agent/change/JournalText.h"
#include "agent/system/System.h"

#include <optional>

namespace agent::dev {

/// The file that says how to take back the change that is under way or pending. It survives
/// whatever ends this program: it is completely there before the first row changes, and gone before
/// anybody is told that the change stays. That of the last set that stays is kept under another
/// name, for the next process: a manager can still wait for its answer.
class Journal {
public:
    explicit Journal(System& system) : m_system(system) {}

    /// Reads the journal; nothing when there is none. A damaged one is kept aside.
    /// @return whether it could be looked at; else, with errno, it may be there or not
    bool load(std::optional<Entry>& entry);

    /// Replaces the journal. @return whether it is safely there
    bool save(const Entry& entry);

    /// @return whether it is safely gone, and what was put aside before it
    bool clear();

    /// Puts it aside as that of the last set that stays. @return whether it safely is
    bool keep();

    /// What was put aside, by any process; nothing when there is none.
    std::optional<Entry> kept();

    bool foundDamaged() const { return m_damaged; }

    /// Whether a journal is there, as far as is known: one that could not be removed is.
    bool isThere() const { return m_there; }

private:
    bool failed(const std::string& what);

    System& m_system;
    bool m_damaged = false;
    bool m_there = false;
    std::string m_told;       ///< the last line about a failure
    Clock::time_point m_tell; ///< and when to log it again
    LineLimit m_lines;        ///< which are never left out with others
};

} // namespace agent::dev
