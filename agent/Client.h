#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>

/// Where the library's programs are started. The library runs them through
/// popen(), which this program replaces: each runs in a process group of its own
/// to its end, or to a limit, before the library gets to read what it said. Its
/// sleep(), between two tries while the database is locked, is replaced too:
/// whoever owns the library sees to other things meanwhile.
namespace agent {

class Stage;

/// How long a program may run; then it is killed, with all that it started.
void setClientLimit(std::chrono::seconds limit);

/// Waits for a descriptor to be readable, or just waits where it is -1. May return early, but not
/// later than wanted. @return whether it is readable
using Wait = std::function<bool(int descriptor, std::chrono::steady_clock::time_point until)>;

/// Has this called wherever a program, or the library between two programs, is waited for.
void setWait(Wait wait);

/// Programs that were killed because they hung.
std::uint32_t clientsKilled();

/// How long a client of the database takes on this device; 0 until one has run.
std::chrono::microseconds clientTime();

/// Forgets how long clients took, and times those that a function runs.
/// @return whether the function says that they did what they should; else nothing is forgotten
bool timeClient(const std::function<bool()>& run);

/// Kills the program that runs now, if any.
void killProgram();

/// Runs a command line of the database's client. @return what it said; nothing when it could not be
/// started
std::optional<std::string> runDatabaseClient(const std::string& commandLine);

/// Has no program started for library calls any more once a flag is set, and no pause made, while
/// it lives.
class CutShort {
public:
    explicit CutShort(const bool& flag);
    ~CutShort();
    CutShort(const CutShort&) = delete;
    CutShort& operator=(const CutShort&) = delete;

private:
    const bool* m_before;
};

/// Answers the database commands of library calls from a stage, while it lives.
class OnStage {
public:
    explicit OnStage(Stage& stage);
    ~OnStage();
    OnStage(const OnStage&) = delete;
    OnStage& operator=(const OnStage&) = delete;

private:
    Stage* m_before;
};

} // namespace agent
