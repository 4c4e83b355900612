#pragma once

#include <optional>
#include <string>

#include <sys/stat.h>

namespace agent {

/// Watches a file that changes whenever the configuration does. It may be written, replaced, or go
/// with its folder and come back.
///
/// What decides is the file's state, which is cheap to look at. inotify only tells when it is worth
/// a look, and of a change that leaves size and time as they were.
class FileWatch {
public:
    explicit FileWatch(std::string file);
    ~FileWatch();
    FileWatch(const FileWatch&) = delete;
    FileWatch& operator=(const FileWatch&) = delete;

    enum class State { same, changed, unreadable };

    /// Whether the file is as it was at the mark that was accepted.
    State look();

    struct Mark {
        bool readable = false;
        struct stat state {};
        bool young = false; ///< so near its last change that another may not show
    };

    /// What is read from now on includes all that has happened to the file.
    Mark mark();
    void accept(const Mark& mark) { m_accepted = mark; }

    /// Readable when something has happened in the folder; -1 where there is no inotify.
    int descriptor() const { return m_folderWatch >= 0 ? m_inotify : -1; }

    const std::string& file() const { return m_file; }

private:
    void watchFolder();
    void drain();

    std::string m_file;
    std::string m_folder;
    std::string m_name;
    int m_inotify;
    int m_folderWatch = -1;
    bool m_touched = false; ///< since the last mark, by an event
    std::optional<Mark> m_accepted;
};

/// The text of a file, as one read gives it; nothing when it can't be read.
std::optional<std::string> textOf(const char* file);

} // namespace agent
