#pragma once

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

#include <sys/types.h>

namespace agent {

using Clock = std::chrono::steady_clock;

/// What a file looks like from outside. When two of these differ, the file has changed.
struct FileState {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    timespec modified{};
    timespec changed{};
    bool young = false; ///< changed so short a while ago that another change may not show

    bool operator==(const FileState& other) const { ///< whatever its age
        const auto same = [](const timespec& one, const timespec& two) {
            return one.tv_sec == two.tv_sec && one.tv_nsec == two.tv_nsec;
        };
        return device == other.device && inode == other.inode && size == other.size &&
               same(modified, other.modified) && same(changed, other.changed);
    }
};

/// How a program that was started has ended.
struct ProgramEnd {
    std::string output;
    std::string errors; ///< what it said on standard error
    int status = 0;     ///< its exit status; -1 when it was killed, or said too much
};

/// All that a process of the agent needs of the machine: the time, waiting, programs, files, and
/// messages to the other process. What decides in the agent knows nothing else of the outside, so
/// that a test can play any history of faults with it, in a world of its own.
///
/// One thread uses it. Nothing here throws, unless memory runs out.
class System {
public:
    virtual ~System() = default;

    /// The time, on a clock that nobody sets.
    virtual Clock::time_point now() const = 0;

    struct Events {
        bool message = false; ///< something has come over the link
        bool stop = false;    ///< the process has to stop
        bool program = false; ///< the program that runs may have said something, or ended
        bool file = false;    ///< something may have happened to the watched file
    };

    /// Waits for one of the wanted events, not longer than until a time; may return early.
    /// @return those that there are
    virtual Events wait(const Events& wanted, Clock::time_point until) = 0;

    /// Sends a packet to the other process; drops it when that has fallen far behind.
    virtual void send(const std::string& packet) = 0;

    /// @return the next packet, which may be empty; nothing when there is none for now
    virtual std::optional<std::string> receive() = 0;

    /// Starts a command line's program, in a process group of its own, without a shell; one at a
    /// time.
    /// @return whether it was started
    virtual bool startProgram(const std::string& commandLine) = 0;

    /// Takes in what the program has said. @return how it ended; nothing while it runs
    virtual std::optional<ProgramEnd> collectProgram() = 0;

    /// Ends the program's process group.
    virtual void killProgram() = 0;

    /// Why a program of this name can't be run; empty when it can.
    virtual std::string whyNotRun(const std::string& name) = 0;

    /// Reads a file of the state folder; nothing when there is none.
    /// @return whether it could be looked at; else, with errno, it may be there or not
    virtual bool load(const std::string& name, std::optional<std::string>& content) = 0;

    /// Gives a file of the state folder a new content, which is safely there when this returns
    /// true; on a failure, with errno, the old one may still be.
    virtual bool store(const std::string& name, const std::string& content) = 0;

    /// Removes a file of the state folder, or an empty folder in it, or gives it another name,
    /// likewise. One that isn't there has been removed.
    virtual bool remove(const std::string& name) = 0;
    virtual bool rename(const std::string& name, const std::string& newName) = 0;

    /// The kernel's list of open circuits; nothing when it can't be read.
    virtual std::optional<std::string> circuits() = 0;

    /// The watched file; nothing when it can't be looked at.
    virtual std::optional<FileState> watchedFile() = 0;

    /// Whether something has happened to the watched file since this was asked last.
    virtual bool watchedFileTouched() = 0;

    /// Whether events of the watched file come at all.
    virtual bool watchedFileHasEvents() const = 0;
};

} // namespace agent
