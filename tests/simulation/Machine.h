#pragma once

#include "Database.h"
#include "Disk.h"

#include "agent/Options.h"
#include "agent/link/Messages.h"
#include "agent/system/System.h"

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <random>
#include <string>

namespace simulation {

using Time = agent::Clock::time_point;
using std::chrono::milliseconds;
using std::chrono::seconds;

/// How a client of the database fails. A killed one may have done its work.
enum class ClientFault {
    none,
    killedBefore,
    killedAfter,
    hangsBefore,
    hangsAfter,
    empty,
    cut,
    notStarted,
    lies,    ///< says that it has done what it has not
    dawdles, ///< works, longer than a set may take
};

constexpr const char* kJournal = "/simulated/change.journal"; ///< of the change under way

/// A machine on which both processes of the agent run, one step at a time: a call of the process
/// that owns the device is where everything else happens, whatever the history says is due.
///
/// A process that is killed goes on without any effect until it stops, for an exception could not
/// pass through the library.
class Machine {
public:
    explicit Machine(bool reusesIds);

    Database database;
    Disk disk;
    agent::Options options;

    /// Called before each step of the device's process: what is due happens there.
    std::function<void()> onStep;
    /// Called when packets or time may have come for the other process.
    std::function<void()> onNetwork;
    std::function<void(const std::string&)> trace;
    std::function<void(const agent::Message&)> onSent;     ///< by the device's process
    std::function<void(const agent::Message&)> onReceived; ///< likewise
    std::function<void(const agent::Message&)> onAsked;    ///< by the other process
    std::function<Writer()> writer;                        ///< whose commands come now

    Time now() const { return m_now; }
    /// Lets time pass for everybody but the device's process.
    void pass(agent::Clock::duration time);
    std::string stamp() const; ///< the time, for a trace
    std::uint64_t steps() const { return m_steps; }
    std::uint64_t operations() const { return m_operations; }

    // What can happen.
    Time lockedUntil{};
    milliseconds clientTime{3};
    ClientFault nextClient = ClientFault::none;
    bool lied = false;           ///< a client, at any time
    bool lookFailed = false;     ///< of the process: for a file, as it began or later
    bool journalRemoved = false; ///< likewise, last of all
    bool lineFails = false;
    agent::Clock::duration timeOfWait{
        -1};     ///< that the wait of this step takes; below 0: as it likes
    void kill(); ///< the device's process
    /// Kills it once its journal is gone: put aside, since a set stays, or removed, since nothing
    /// is left to take back; after it was frozen for this time.
    std::optional<seconds> killsOnceGone;
    void askToStop() { m_stops = true; }
    void restart(); ///< it begins anew, or the machine does
    void forgetPackets();
    void touchDatabaseFile();

    bool killed() const { return m_killed; }
    bool hasFileEvents = true; ///< of the database's file

    agent::System& device() { return m_device; }
    agent::System& network() { return m_network; }
    bool hasPacketsForNetwork() const { return !m_toNetwork.empty(); }

private:
    /// What the processes have of it in common.
    class Door : public agent::System {
    public:
        explicit Door(Machine& machine) : m(machine) {}
        Time now() const override { return m.m_now; }
        Events wait(const Events& wanted, Time until) override;
        bool startProgram(const std::string& commandLine) override;
        std::optional<agent::ProgramEnd> collectProgram() override;
        void killProgram() override;
        std::string whyNotRun(const std::string&) override { return ""; }
        bool load(const std::string& name, std::optional<std::string>& content) override;
        bool store(const std::string& name, const std::string& content) override;
        bool remove(const std::string& name) override;
        bool rename(const std::string& name, const std::string& newName) override;
        std::optional<std::string> circuits() override { return ""; }
        std::optional<agent::FileState> watchedFile() override;
        bool watchedFileTouched() override;
        bool watchedFileHasEvents() const override { return m.hasFileEvents; }

    protected:
        Machine& m;
    };
    class DeviceDoor : public Door {
    public:
        using Door::Door;
        Time now() const override { return m.m_killed ? m.m_deadNow : m.m_now; }
        void send(const std::string& packet) override;
        std::optional<std::string> receive() override;
    };
    class NetworkDoor : public Door {
    public:
        using Door::Door;
        Events wait(const Events&, Time) override { return {}; }
        void send(const std::string& packet) override;
        std::optional<std::string> receive() override;
    };
    struct Program {
        agent::ProgramEnd end;
        Time ends;
    };

    void step();
    void journalGoes(const std::string& name);
    void runClient(const std::string& command);

    Time m_now{std::chrono::hours(1)};
    Time m_deadNow{}; ///< for a process that was killed, which needs an end of its waiting
    DeviceDoor m_device{*this};
    NetworkDoor m_network{*this};
    std::deque<std::string> m_toDevice;
    std::deque<std::string> m_toNetwork;
    std::optional<Program> m_program;
    bool m_killed = false;
    bool m_stops = false;
    bool m_stepping = false;
    std::uint64_t m_steps = 0;
    int m_waits = 0;
    std::uint64_t m_operations = 0;
    Time m_fileChanged{};
    std::uint64_t m_fileSize = 0;
    std::uint64_t m_fileWrites = 0;
    bool m_fileTouched = false;
};

} // namespace simulation
