#include "agent/system/RealSystem.h"

#include "agent/system/Files.h"
#include "agent/system/Spawn.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace agent {

namespace {

constexpr const char* kCircuitList = "/proc/net/atm/pvc";
constexpr int kLinkSize = 128 * 1024; ///< of an end's buffer; a message is shorter
constexpr long kClockStep = 20000000; ///< nanoseconds; file times move on in steps below this

bool isYoung(const struct stat& state) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const auto seconds = now.tv_sec - state.st_ctim.tv_sec;
    const long age =
        seconds > 1 ? 2000000000L : seconds * 1000000000L + now.tv_nsec - state.st_ctim.tv_nsec;
    return age < kClockStep;
}

} // namespace

RealSystem::RealSystem(const Ends& ends, std::chrono::microseconds beat,
                       const std::string& stateFolder, const std::string& watchedFile,
                       int clientLock)
    : m_ends(ends), m_beat(beat), m_folder(stateFolder + "/"), m_clientLock(clientLock) {
    // The process before may have been taken over, and have left its end next to no room.
    setsockopt(ends.link, SOL_SOCKET, SO_SNDBUF, &kLinkSize, sizeof kLinkSize);
    if (!watchedFile.empty())
        m_watch.emplace(watchedFile);
}

void RealSystem::showLife() {
    [[maybe_unused]] const auto size = write(m_ends.alive, "", 1);
    m_beatDue = now() + m_beat;
}

System::Events RealSystem::wait(const Events& wanted, Clock::time_point until) {
    using std::chrono::seconds;
    if (now() >= m_beatDue)
        showLife();
    until = std::min(until, m_beatDue);
    const int program = m_program ? m_program->descriptor() : -1;
    if (wanted.program && m_program)
        until = std::min(until, m_program->lookAgain());
    const auto left = std::max(until - now(), Clock::duration(0));
    const timespec time{left / seconds(1), (left % seconds(1)).count()};
    std::array<pollfd, 4> events{
        {{wanted.message ? m_ends.link : -1, POLLIN, 0},
         {wanted.stop ? m_ends.stop : -1, POLLIN, 0},
         {wanted.program ? program : -1, POLLIN, 0},
         {wanted.file && m_watch ? m_watch->descriptor() : -1, POLLIN, 0}}};
    ppoll(events.data(), events.size(), &time, nullptr);
    return {events[0].revents != 0, events[1].revents != 0, events[2].revents != 0,
            events[3].revents != 0};
}

void RealSystem::send(const std::string& packet) {
    if (::send(m_ends.link, packet.data(), packet.size(), MSG_DONTWAIT | MSG_NOSIGNAL) < 0 &&
        errno != EAGAIN)
        m_lines.log(now(), LOG_ERR,
                    std::string("a message to the other process is lost: ") + std::strerror(errno));
}

std::optional<std::string> RealSystem::receive() {
    const ssize_t size =
        recv(m_ends.link, nullptr, 0, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT); // its whole length
    if (size < 0)
        return std::nullopt;
    // One that is cut is not understood. A buffer can be made to hold much more.
    std::string packet(static_cast<std::size_t>(std::min<ssize_t>(size, kLinkSize)), '\0');
    if (recv(m_ends.link, packet.data(), packet.size(), MSG_DONTWAIT) < 0)
        return std::nullopt;
    return packet; // an empty one is taken out too
}

bool RealSystem::startProgram(const std::string& commandLine) {
    if (m_program.emplace().start(commandLine, m_clientLock))
        return true;
    m_program.reset();
    return false;
}

std::optional<ProgramEnd> RealSystem::collectProgram() {
    auto end = m_program->collect();
    if (end)
        m_program.reset();
    return end;
}

void RealSystem::killProgram() {
    m_program.reset();
}

std::string RealSystem::whyNotRun(const std::string& name) {
    return ProgramFile::find(name).why;
}

bool RealSystem::load(const std::string& name, std::optional<std::string>& content) {
    return loadFile(m_folder + name, content);
}

bool RealSystem::store(const std::string& name, const std::string& content) {
    return replaceFile(m_folder + name, content);
}

bool RealSystem::remove(const std::string& name) {
    return removeFile(m_folder + name);
}

bool RealSystem::rename(const std::string& name, const std::string& newName) {
    return renameFile(m_folder + name, m_folder + newName);
}

std::optional<std::string> RealSystem::circuits() {
    return textOf(kCircuitList);
}

std::optional<FileState> RealSystem::watchedFile() {
    struct stat state {};
    if (!m_watch || stat(m_watch->file().c_str(), &state) != 0)
        return std::nullopt;
    return FileState{state.st_dev,  state.st_ino,  state.st_size,
                     state.st_mtim, state.st_ctim, isYoung(state)};
}

bool RealSystem::watchedFileTouched() {
    return m_watch && m_watch->touched();
}

bool RealSystem::watchedFileHasEvents() const {
    return m_watch && m_watch->descriptor() >= 0;
}

} // namespace agent
