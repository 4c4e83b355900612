#pragma once

#include <string>

namespace agent {

/// Watches a file through the events of its folder, so that the file may be replaced, or vanish
/// with its folder and come back.
class FolderWatch {
public:
    explicit FolderWatch(const std::string& file);
    ~FolderWatch();
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;

    /// Whether something has happened to the file since this was asked last.
    bool touched();

    /// Readable when something has happened in the folder; -1 where there is no inotify.
    int descriptor() const { return m_folderWatch >= 0 ? m_inotify : -1; }

    const std::string& file() const { return m_file; }

private:
    void watchFolder();

    std::string m_file;
    std::string m_folder;
    std::string m_name;
    int m_inotify;
    int m_folderWatch = -1;
};

} // namespace agent
