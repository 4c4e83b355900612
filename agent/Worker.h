#pragma once

#include "Journal.h"
#include "Objects.h"
#include "Watch.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace agent {

/// One value to write.
struct Change {
    const Object* object;
    int row;
    Value value;
    std::size_t request; ///< the place of its variable in the request
};

/// What a manager says of the change that is pending; the numbers are those of the MIB.
enum class Verdict { notGiven = 0, none = 1, confirm = 2, revert = 3 };

/// What became of a set.
enum class Outcome {
    done,
    refused,      ///< nothing has changed, or all of it was taken back; the status tells why
    notUndone,    ///< it failed, and something of it could not be taken back
    undoing,      ///< it failed, and is being taken back
    unavailable,  ///< while another change is pending, or being taken back
    inconsistent, ///< a verdict, or more time, without a change that is pending
};

/// What one set request asks for, all or nothing.
struct Transaction {
    std::vector<Change> changes;   ///< in the order in which they are made
    std::chrono::seconds trial{0}; ///< taken back after this time, unless confirmed; 0: to stay
    Verdict verdict = Verdict::notGiven;

    Outcome outcome = Outcome::refused;
    int status = CORVANTA_OK; ///< a corvanta_status, of what ended it
    std::size_t request = 0;  ///< the place of the variable that ended it
    Record record;            ///< how to take it back

    std::atomic<bool> abandoned{false}; ///< nobody waits any more: run nothing more for it

    // Guarded by the worker's mutex:
    bool decided = false; ///< it stays, whether anybody still waits or not
    bool ended = false;
};

/// The thread that owns the library. It refreshes the snapshot at intervals and
/// makes changes, which go before what is left of a refresh.
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
        std::string watched; ///< file that changes whenever the database does; empty for none
        std::string state;   ///< folder of the journal
    };

    /// @param published called after each new snapshot, on the worker's thread
    Worker(Settings settings, std::function<void()> published);
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void start();

    /// Ends the thread. A change that has begun, or is being taken back, has a while to end; what
    /// it leaves open then is left to the journal.
    /// @return false when the thread hangs: just end the process
    bool stop();

    /// The newest snapshot; never null.
    std::shared_ptr<const Snapshot> snapshot() const { return std::atomic_load(&m_snapshot); }

    /// Makes a change and publishes what the database then says.
    /// @return whether it has ended before the deadline; if not, it comes to nothing
    bool make(const std::shared_ptr<Transaction>& set, Clock::time_point deadline);

    /// Whether a change that missed its deadline is still under way, or being taken back.
    bool undoing() const { return m_abandoned != 0; }

    /// Takes a change back that was made, because others of its request failed.
    /// @return whether it has been taken back before the deadline
    bool takeBack(const std::shared_ptr<Transaction>& set, Clock::time_point deadline);

private:
    struct Job {
        std::shared_ptr<Transaction> transaction;
        void (Worker::*run)(Transaction&);
    };

    bool await(const Job& job, Clock::time_point deadline);
    void run();
    Clock::time_point nextDue() const;

    void doSet(Transaction& set);
    void doTakeBack(Transaction& set);
    void decide(Transaction& set);
    void extend(Transaction& set);
    int readFor(const Transaction& set);
    int rehearse(Transaction& set, int& writes);
    void perform(Transaction& set, int writes);
    int readBack(const Transaction& set, const Record& done, Image& image, Tables& current) const;
    bool stays(Transaction& set, const Record& done);

    void beginRestore(Record record, RevertReason reason);
    bool restore();
    bool restoreRows();

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
    void wait(std::unique_lock<std::mutex>& lock);
    void wake() const;

    const Settings m_settings;
    const std::function<void()> m_published;
    std::shared_ptr<const Snapshot> m_snapshot; ///< swapped as a whole

    // The worker thread's own.
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

    std::thread m_thread;
    std::mutex m_mutex;
    std::condition_variable m_changed; ///< one of the following has
    int m_wake;                        ///< the same, for the worker itself
    std::deque<Job> m_jobs;
    bool m_ended = false;
    std::atomic<int> m_abandoned{0}; ///< jobs that nobody waits for any more
    std::atomic<bool> m_stopping{false};
    std::atomic<bool> m_hurry{false}; ///< stop at once
};

} // namespace agent
