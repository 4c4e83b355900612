#pragma once

#include "agent/Log.h"
#include "agent/change/Stage.h"
#include "agent/system/System.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace agent::dev {

/// Runs the library's programs, one at a time, each to its end or to a time limit, before the
/// library reads its output. Other events are handled meanwhile.
class Programs {
public:
    /// Waits until a time, or until the program that runs may have said something.
    using Wait = std::function<void(Clock::time_point until)>;

    /// @param limit  how long a program may run; then it is killed, with its process group
    Programs(System& system, std::chrono::seconds limit, Wait wait);
    Programs(const Programs&) = delete;
    Programs& operator=(const Programs&) = delete;

    /// Answers a command line of the library's: the database's from a stage, where there is one.
    /// @return what the program said; nothing when it could not be started, or a tool has failed
    std::optional<std::string> answer(const std::string& commandLine);

    /// Runs a command line of the database's client. @return likewise
    std::optional<std::string> runClient(const std::string& commandLine);

    /// Waits, as the library does between two tries while the database is locked.
    void pause(std::chrono::seconds time);

    /// Kills the program that runs now, if any.
    void kill();

    std::uint32_t killed() const { return m_killed; } ///< programs that hung

    /// How long a client of the database takes on this device; 0 until one has run.
    std::chrono::microseconds clientTime() const;

    /// Replaces the time that a client takes by that of the clients which a function runs.
    /// @return whether they succeeded, as the function says; else the time stays as it was
    bool timeClient(const std::function<bool()>& run);

    /// While it exists, no program is started and no pause is made once a flag is set.
    class CutShort {
    public:
        CutShort(Programs& programs, const bool& flag);
        ~CutShort();
        CutShort(const CutShort&) = delete;
        CutShort& operator=(const CutShort&) = delete;

    private:
        Programs& m_programs;
        const bool* m_before;
    };

    /// While it exists, the database commands of library calls are answered from a stage.
    class OnStage {
    public:
        OnStage(Programs& programs, Stage& stage);
        ~OnStage();
        OnStage(const OnStage&) = delete;
        OnStage& operator=(const OnStage&) = delete;

    private:
        Programs& m_programs;
        Stage* m_before;
    };

private:
    bool isCutShort() const { return m_cutShort != nullptr && *m_cutShort; }
    std::optional<ProgramEnd> run(const std::string& commandLine);
    void report(const std::string& commandLine, const ProgramEnd& end);

    System& m_system;
    const std::chrono::seconds m_limit;
    const Wait m_wait;
    std::uint32_t m_killed = 0;
    Clock::duration m_meanTime{0};
    bool m_running = false;
    Stage* m_stage = nullptr;
    const bool* m_cutShort = nullptr;
    std::map<std::string, std::string> m_told; ///< why which program could not be run
    LineLimit m_toldLines;                     ///< of that: told once, or never
    LineLimit m_lines;                         ///< of what programs say on standard error
};

} // namespace agent::dev
