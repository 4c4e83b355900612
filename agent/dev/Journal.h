#pragma once

#include "agent/change/JournalText.h"
#include "agent/system/System.h"

#include <optional>

namespace agent::dev {

/// The file that says how to take back the change that is under way or pending. It survives
/// whatever ends this program: it is completely there before the first row changes, and gone before
/// anybody is told that the change stays.
class Journal {
public:
    explicit Journal(System& system) : m_system(system) {}

    /// @return nothing when there is none; a damaged one is kept aside
    std::optional<Entry> load();

    /// Replaces the journal. @return whether it is safely there
    bool save(const Entry& entry);

    /// @return whether it is safely gone
    bool clear();

    bool foundDamaged() const { return m_damaged; }

    /// Whether a journal is there, as far as is known: one that could not be removed is.
    bool isThere() const { return m_there; }

private:
    System& m_system;
    bool m_damaged = false;
    bool m_there = false;
};

} // namespace agent::dev
