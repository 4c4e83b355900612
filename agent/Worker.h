#pragma once

#include "Objects.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace agent {

/// One value to write, and how to take that back.
struct Change {
    const Object* object;
    int row;
    Value value;
    Value old{};                      ///< what the database held before
    bool begun = false;               ///< whether the database may have been changed
    std::vector<Change> bystanders{}; ///< what may change with it; only their old values count
};

/// What one set request asks for: changes that are made in order and undone in reverse.
struct Transaction {
    std::vector<Change> changes;
    int status = CORVANTA_OK;             ///< of the change that ended it
    std::atomic<std::size_t> position{0}; ///< of the change that is being made, or was the last
    std::atomic<bool> abandoned{false};   ///< nobody waits any more: begin no further change
    bool undone = true;                   ///< whether all that was begun could be taken back
    bool ended = false;                   ///< guarded by the worker's mutex
};

/**
 * The thread that owns the library. It refreshes the snapshot at intervals and
 * makes changes, which go before what is left of a refresh.
 */
class Worker {
public:
    struct Settings {
        bool verbose;
        bool foreground;
        std::chrono::seconds interval;
    };

    /// @param published called after each new snapshot, on the worker's thread
    Worker(Settings settings, std::function<void()> published);

    void start();

    /// Ends the thread; changes that have begun, or have to be undone, come to their end first.
    /// @return false when it hangs in a refresh, which has nothing to lose: just end the process
    bool stop();

    /// The newest snapshot; never null.
    std::shared_ptr<const Snapshot> snapshot() const { return std::atomic_load(&m_snapshot); }

    /// Makes changes and publishes what the database then says, unless one fails: undo() is next.
    /// @return whether they have ended before the deadline; if not, none that hasn't begun will
    bool make(const std::shared_ptr<Transaction>& transaction, Clock::time_point deadline);

    /// Has the old values written back, behind what is under way, and publishes what the database
    /// then says. @return whether that has ended before the deadline
    bool undo(const std::shared_ptr<Transaction>& transaction, Clock::time_point deadline);

private:
    struct Job {
        std::shared_ptr<Transaction> transaction;
        void (Worker::*run)(Transaction&);
    };

    bool await(Job job, Clock::time_point deadline);
    void run();
    void makeAll(Transaction& transaction);
    void undoAll(Transaction& transaction);
    int remember(Change& change);
    void undo(Transaction& transaction, const Change& change);
    int restore(const Change& change);
    void refreshPart();
    void show(unsigned parts);
    void publish();

    const Settings m_settings;
    const std::function<void()> m_published;
    std::shared_ptr<const Snapshot> m_snapshot; ///< swapped as a whole

    // The worker thread's own.
    Snapshot m_next;         ///< what the next snapshot is a copy of
    unsigned m_toLoad = 0;   ///< parts that the refresh under way has still to load
    bool m_failing = false;  ///< whether the last refresh failed
    Clock::time_point m_due; ///< the next refresh

    std::thread m_thread;
    std::mutex m_mutex;
    std::condition_variable m_changed; ///< one of the following has
    std::deque<Job> m_jobs;
    bool m_working = false; ///< on a job, not on a refresh
    bool m_ended = false;
    std::atomic<bool> m_stopping{false};
};

} // namespace agent
