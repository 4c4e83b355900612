#pragma once

#include "agent/dev/Changer.h"

#include <deque>
#include <optional>
#include <string>
#include <variant>

namespace agent::dev {

/// The process that owns the library. It takes requests from the network process, does what is due,
/// and listens while a program runs. Refresh keeps up with the device. Changer makes changes, which
/// come before the rest of a refresh, and Undo takes them back.
class Worker {
public:
    Worker(const Options& options, System& system);
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// Works until it has to stop. A change that has begun, or is being taken back, then has a
    /// while to end; what it leaves open is left to the journal.
    void run();

private:
    using Job = std::variant<SetRequest, TakeBack>;

    System::Events wait(System::Events wanted, Clock::time_point until);
    void greet();
    void take(const Message& message);
    void expire();
    void stopNow();
    bool workIsDue();
    bool keepUp(Clock::time_point now);
    bool stepUndo();
    void doJob(Job job);

    const Options& m_options;
    System& m_system;
    Link m_link;
    Programs m_programs;
    const std::uint64_t m_incarnation; ///< tells it from the one before
    bool m_stopNow = false;
    Image m_image; ///< of the database, each table as it was last read
    Board m_board;
    Refresh m_refresh;
    Undo m_undo;
    Changer m_changer;

    std::deque<Job> m_jobs;
    LineLimit m_jobLines;             ///< about jobs, which could be asked for without end, and
                                      ///< about taking back what they have changed
    bool m_didJob = false;            ///< just now
    Transaction* m_running = nullptr; ///< the set under way
    bool m_stopping = false;
    Clock::time_point m_stopBy;
};

} // namespace agent::dev
