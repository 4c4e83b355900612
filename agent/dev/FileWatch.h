#pragma once

#include "agent/system/System.h"

#include <optional>
#include <string>

namespace agent::dev {

/// Watches a file that changes whenever the configuration does. It may be written, replaced, or go
/// with its folder and come back.
///
/// The file's state decides; it is cheap to look at. Events only say when a look is worth it, and
/// reveal a change that leaves size and time as they were.
class FileWatch {
public:
    FileWatch(System& system, std::string file) : m_system(system), m_file(std::move(file)) {}

    enum class State { same, changed, unreadable };

    /// Whether the file is as it was at the mark that was accepted.
    State look();

    using Mark = std::optional<FileState>; ///< nothing where the file could not be looked at

    /// Takes a mark: what is read from now on includes every change of the file up to it.
    /// @param changed whether anything has, since the mark that was accepted, as far as can be seen
    Mark mark(bool& changed);
    void accept(const Mark& mark) { m_accepted = mark; }

    bool hasEvents() const { return m_system.watchedFileHasEvents(); }
    const std::string& file() const { return m_file; }

private:
    bool isSame(const FileState& now) const;

    System& m_system;
    const std::string m_file;
    bool m_touched = false; ///< since the last mark, by an event
    Mark m_accepted;
};

} // namespace agent::dev
