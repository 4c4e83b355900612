#include "agent/system/FolderWatch.h"

#include <array>
#include <cstdint>
#include <filesystem>

#include <sys/inotify.h>
#include <unistd.h>

namespace agent {

namespace {

constexpr std::uint32_t kEvents = IN_MODIFY | IN_ATTRIB | IN_CREATE | IN_DELETE | IN_MOVED_FROM |
                                  IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr std::uint32_t kFolderGone = IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT;

} // namespace

FolderWatch::FolderWatch(const std::string& file)
    : m_inotify(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    const std::filesystem::path path = std::filesystem::absolute(file);
    m_file = path.string(); // whatever folder this program goes to
    m_folder = path.parent_path().string();
    m_name = path.filename().string();
    watchFolder();
}

FolderWatch::~FolderWatch() {
    if (m_inotify >= 0)
        close(m_inotify);
}

void FolderWatch::watchFolder() {
    if (m_inotify >= 0 && m_folderWatch < 0)
        m_folderWatch = inotify_add_watch(m_inotify, m_folder.c_str(), kEvents | IN_ONLYDIR);
}

bool FolderWatch::touched() {
    bool touched = false;
    alignas(inotify_event) std::array<char, 16384> buffer{};
    ssize_t size = 0;
    while (m_inotify >= 0 && (size = read(m_inotify, buffer.data(), buffer.size())) > 0) {
        for (ssize_t at = 0; at < size;) {
            const auto& event = *reinterpret_cast<const inotify_event*>(buffer.data() + at);
            at += static_cast<ssize_t>(sizeof event + event.len);
            if ((event.mask & kFolderGone) != 0 && event.wd == m_folderWatch) {
                inotify_rm_watch(m_inotify, m_folderWatch); // one that was moved is still watched
                m_folderWatch = -1;
                touched = true;
            }
            if ((event.mask & IN_Q_OVERFLOW) != 0 || (event.len > 0 && m_name == event.name))
                touched = true;
        }
    }
    watchFolder();
    return touched;
}

} // namespace agent
