#include "agent/dev/Watch.h"

#include <array>
#include <ctime>
#include <filesystem>

#include <fcntl.h>
#include <sys/inotify.h>
#include <unistd.h>

namespace agent {

namespace {

constexpr std::uint32_t kEvents = IN_MODIFY | IN_ATTRIB | IN_CREATE | IN_DELETE | IN_MOVED_FROM |
                                  IN_MOVED_TO | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr std::uint32_t kFolderGone = IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_UNMOUNT;

constexpr long kClockStep = 20000000; ///< nanoseconds; file times move on in steps below this

bool sameTime(const timespec& one, const timespec& other) {
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

bool sameState(const struct stat& one, const struct stat& other) {
    return one.st_dev == other.st_dev && one.st_ino == other.st_ino &&
           one.st_size == other.st_size && sameTime(one.st_mtim, other.st_mtim) &&
           sameTime(one.st_ctim, other.st_ctim);
}

bool isYoung(const struct stat& state) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const auto seconds = now.tv_sec - state.st_ctim.tv_sec;
    const long age =
        seconds > 1 ? 2000000000L : seconds * 1000000000L + now.tv_nsec - state.st_ctim.tv_nsec;
    return age < kClockStep;
}

} // namespace

FileWatch::FileWatch(std::string file)
    : m_file(std::move(file)), m_inotify(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    const std::filesystem::path path = std::filesystem::absolute(m_file);
    m_file = path.string(); // whatever folder this program goes to
    m_folder = path.parent_path().string();
    m_name = path.filename().string();
    watchFolder();
}

FileWatch::~FileWatch() {
    if (m_inotify >= 0)
        close(m_inotify);
}

void FileWatch::watchFolder() {
    if (m_inotify >= 0 && m_folderWatch < 0)
        m_folderWatch = inotify_add_watch(m_inotify, m_folder.c_str(), kEvents | IN_ONLYDIR);
}

void FileWatch::drain() {
    alignas(inotify_event) std::array<char, 16384> buffer{};
    ssize_t size = 0;
    while (m_inotify >= 0 && (size = read(m_inotify, buffer.data(), buffer.size())) > 0) {
        for (ssize_t at = 0; at < size;) {
            const auto& event = *reinterpret_cast<const inotify_event*>(buffer.data() + at);
            at += static_cast<ssize_t>(sizeof event + event.len);
            if ((event.mask & kFolderGone) != 0 && event.wd == m_folderWatch) {
                inotify_rm_watch(m_inotify, m_folderWatch); // one that was moved is still watched
                m_folderWatch = -1;
                m_touched = true;
            }
            if ((event.mask & IN_Q_OVERFLOW) != 0 || (event.len > 0 && m_name == event.name))
                m_touched = true;
        }
    }
    watchFolder();
}

FileWatch::State FileWatch::look() {
    drain();
    struct stat now {};
    if (stat(m_file.c_str(), &now) != 0)
        return State::unreadable;
    const bool same = m_accepted && m_accepted->readable && sameState(now, m_accepted->state) &&
                      !m_touched && (descriptor() >= 0 || !m_accepted->young);
    return same ? State::same : State::changed;
}

FileWatch::Mark FileWatch::mark() {
    drain();
    m_touched = false;
    Mark mark;
    mark.readable = stat(m_file.c_str(), &mark.state) == 0;
    mark.young = mark.readable && isYoung(mark.state);
    return mark;
}

std::optional<std::string> textOf(const char* file) {
    const int descriptor = open(file, O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return std::nullopt;
    std::string text;
    std::array<char, 4096> piece{};
    for (ssize_t size; (size = read(descriptor, piece.data(), piece.size())) > 0;)
        text.append(piece.data(), static_cast<std::size_t>(size));
    close(descriptor);
    return text;
}

} // namespace agent
