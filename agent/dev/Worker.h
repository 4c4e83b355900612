#pragma once

#include "agent/dev/Changer.h"

#include <deque>
#include <optional>
#include <string>
#include <variant>

namespace agent {

/// The process that owns the library: it takes in what the other side asks, does what is due, and
/// listens while a program runs. Refresh keeps up with the device, Changer makes changes, which go
/// before what is left of a refresh, and Undo takes them back.
class Worker {
public:
    struct Settings {
        bool verbose;
        bool foreground;
        Refresh::Pace pace;
        std::optional<std::chrono::microseconds> beat; ///< between two signs of life
        std::string state;                             ///< folder of the journal
    };

    /// @param link  to the other side
    /// @param stop  readable when it has to stop
    Worker(Settings settings, Link link, int stop);
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    /// Works until it has to stop. A change that has begun, or is being taken back, then has a
    /// while to end; what it leaves open is left to the journal.
    void run();

private:
    using Job = std::variant<SetRequest, TakeBack>;

    bool wait(int descriptor, Clock::time_point until);
    void greet();
    void beat();
    void take(const Message& message);
    void expire();
    void hurry();
    bool workIsDue();
    void doJob(Job job);

    const Settings m_settings;
    const Link m_link;
    const int m_stop;           ///< readable when it has to stop
    const std::uint64_t m_side; ///< tells it from the one before
    bool m_hurry = false;       ///< stop at once
    Image m_image;              ///< of the database, each table as it was last read
    Board m_board;
    Refresh m_refresh;
    Undo m_undo;
    Changer m_changer;

    std::deque<Job> m_jobs;
    Transaction* m_running = nullptr; ///< the set under way
    Clock::time_point m_beatDue;      ///< the next sign of life, at the latest
    bool m_stopping = false;
    Clock::time_point m_stopBy;
};

} // namespace agent
