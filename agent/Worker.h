#pragma once

#include "Journal.h"
#include "Messages.h"
#include "Watch.h"

#include <deque>
#include <optional>
#include <string>
#include <variant>

namespace agent {

/// A set on its way through the device.
struct Transaction {
    explicit Transaction(SetRequest asked) : request(std::move(asked)) {}

    SetRequest request;
    Outcome outcome = Outcome::refused;
    int status = CORVANTA_OK; ///< a corvanta_status, of what ended it
    std::size_t place = 0;    ///< of the variable that ended it
    Record record;            ///< how to take it back
    bool late = false;        ///< nobody waits any more: run nothing more for it
};

/// The process that owns the library. It refreshes the snapshot at intervals and
/// makes changes, which go before what is left of a refresh. While a program runs
/// it still listens to the other side, tells it what has missed its deadline, and
/// when it has to stop.
///
/// A change is rehearsed on an image of the database first. What it will do to
/// which rows goes into the journal, and only then it is performed. One that is
/// not whole in the end is taken back, by this process or the next.
class Worker {
public:
    struct Settings {
        bool verbose;
        bool foreground;
        std::chrono::seconds interval;
        std::chrono::seconds fullInterval; ///< for everything, whatever the watched file says
        std::chrono::seconds pause;        ///< the shortest between two refreshes of the database
        std::chrono::seconds setDeadline;  ///< that sets come with
        std::optional<std::chrono::microseconds> beat; ///< between two signs of life
        std::string watched; ///< file that changes whenever the database does; empty for none
        std::string state;   ///< folder of the journal
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

    /// What a rehearsal has found that a set takes.
    struct Effort {
        int writes; ///< commands that change something, or try to
        int runs;   ///< of the client, the reading back included
    };

    bool wait(int descriptor, Clock::time_point until);
    void greet();
    void beat();
    void take(const Message& message);
    void expire();
    void hurry();
    Clock::time_point nextDue() const;
    bool workIsDue();

    void doJob(Job job);
    void doSet(Transaction& set);
    Outcome takeBack(std::uint64_t id);
    bool fits(const Transaction& set) const;
    void decide(Transaction& set);
    void extend(Transaction& set);
    int readFor(const Transaction& set);
    int rehearse(Transaction& set, Effort& effort);
    bool hasTime(const Transaction& set, const Effort& effort) const;
    void perform(Transaction& set, const Effort& effort);
    int readBack(const Transaction& set, const Record& done, Image& image, Tables& current) const;
    bool stays(Transaction& set, const Record& done);

    void beginRestore(Record record, RevertReason reason);
    bool restore();
    std::optional<int> restoreRows();

    void look();
    void lookAtDatabase();
    void accept(const FileWatch::Mark& mark);
    bool databaseIsKnown();
    void beginRefresh();
    void refreshStep();
    void endRefresh(bool failed, int status);
    void settle(Tables current);
    void show();
    void publish();

    const Settings m_settings;
    const Link m_link;
    const int m_stop;           ///< readable when it has to stop
    const std::uint64_t m_side; ///< tells it from the one before
    bool m_found = false;       ///< a journal of that one
    Journal m_journal;
    Image m_image;   ///< of the database, each table as it was last read
    Snapshot m_next; ///< what the next snapshot is a copy of
    std::optional<FileWatch> m_watch;
    FileWatch::Mark m_mark;                ///< taken when the refresh under way began
    std::optional<std::string> m_circuits; ///< the kernel's list, as it was last shown
    Tables m_stale = Tables(kAllTables);   ///< that can have changed since they were read
    bool m_reading = false;                ///< whether a refresh is under way
    bool m_readsLine = false;              ///< and what it reads
    Tables m_readsTables;
    bool m_failing = false;       ///< whether the last refresh failed
    bool m_blind = false;         ///< whether the watched file could not be looked at
    Clock::time_point m_due;      ///< the next refresh of the line, at least
    Clock::time_point m_fullDue;  ///< of everything
    Clock::time_point m_lookDue;  ///< when to look at the circuits and the watched file
    Clock::time_point m_staleDue; ///< when to read what is stale, while something is
    Clock::time_point m_begun;    ///< the last refresh of the database
    Clock::time_point m_accepted; ///< the last mark that was accepted
    Record m_record;              ///< of the change that is pending, or being taken back
    RevertReason m_reason{};      ///< why it is being taken back
    Clock::time_point m_retry;    ///< when to try again

    std::deque<Job> m_jobs;
    Transaction* m_running = nullptr; ///< the set under way
    std::uint64_t m_last = 0;         ///< the last set that was made
    Record m_lastRecord;              ///< and how to take it back
    Clock::time_point m_beatDue;      ///< the next sign of life, at the latest
    bool m_stopping = false;
    bool m_hurry = false; ///< stop at once
    Clock::time_point m_stopBy;
};

} // namespace agent
