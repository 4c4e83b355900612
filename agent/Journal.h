#pragma once

#include "JournalText.h"

#include <optional>
#include <string>

namespace agent {

/// The file that tells how to take the change back that is under way, or pending.
/// It outlives whatever ends this program: it is there, whole, before the first
/// row changes, and gone before anybody is told that the change stays.
class Journal {
public:
    /// @param folder where it is kept
    explicit Journal(const std::string& folder);

    /// @return nothing when there is none; a damaged one is kept aside
    std::optional<Entry> load();

    /// Replaces the journal. @return whether it is safely there
    bool save(const Entry& entry);

    /// @return whether it is safely gone
    bool clear();

    bool foundDamaged() const { return m_damaged; }

private:
    std::string m_folder;
    std::string m_file;
    bool m_damaged = false;
};

} // namespace agent
