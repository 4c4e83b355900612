#include "Worker.h"

#include "Client.h"
#include "Log.h"
#include "Restore.h"
#include "Stage.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace agent {

namespace {

using std::chrono::seconds;

constexpr seconds kRetry{5};  ///< longest pause after a refresh that failed
constexpr seconds kSettle{1}; ///< from a set to a refresh, which shows what the device made of it
constexpr seconds kLook{1};   ///< between two looks at what has no events
constexpr std::chrono::milliseconds kBurst{100}; ///< for a change to end, once it is seen
constexpr const char* kCircuitList = "/proc/net/atm/pvc";
constexpr seconds kRestoreRetry{1};
constexpr int kRestoreRounds = 10; ///< more than any change needs
constexpr seconds kStop{10};       ///< for what is under way, when stopping
constexpr seconds kHurry{5};       ///< and then for a client to die

constexpr int kTracedLevel = 5; ///< of commands that the library's log shows

std::string statusText(int status) {
    return "status " + std::to_string(status);
}

/// Whether every value of the set is what the image makes the library say.
bool holds(const Transaction& set, Image image) {
    Stage stage(image);
    const OnStage on(stage);
    Snapshot snapshot;
    readConfiguration(snapshot.model);
    for (auto change = set.changes.begin(); change != set.changes.end(); ++change) {
        const auto later = std::find_if(change + 1, set.changes.end(), [&](const Change& other) {
            return other.object == change->object && other.row == change->row;
        });
        Value value;
        if (later == set.changes.end() &&
            !(change->object->read({snapshot}, change->row, value) && value == change->value))
            return false;
    }
    return true;
}

/// Has the library make the changes on a stage.
int play(Transaction& set, Stage& stage) {
    const OnStage on(stage);
    for (const Change& change : set.changes) {
        set.request = change.request;
        update_managed_objects(); // handlers trust the cache, which the one before can have changed
        if (const int status = change.object->write(change.row, change.value);
            status != CORVANTA_OK)
            return status;
    }
    return CORVANTA_OK;
}

/// Whether the change only alters rows that stay where they are.
bool altersOnly(const TableRecord& record) {
    return std::all_of(record.trails.begin(), record.trails.end(),
                       [](const Trail& trail) { return trail.before() && !trail.removed(); });
}

int runCommand(const std::string& command) {
    std::array<char, 64> answer{};
    std::string line = command;
    return call_cmd(line.data(), static_cast<int>(line.size() + 1), static_cast<int>(line.size()),
                    answer.data(), static_cast<int>(answer.size()), kTracedLevel);
}

} // namespace

Worker::Worker(Settings settings, std::function<void()> published)
    : m_settings(std::move(settings)),
      m_published(std::move(published)),
      m_journal(m_settings.state),
      m_due(Clock::now()),
      m_fullDue(m_due),
      m_lookDue(m_due),
      m_staleDue(m_due),
      m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    m_next.refreshed = m_due;
    if (!m_settings.watched.empty())
        m_watch.emplace(m_settings.watched);
    if (auto entry = m_journal.load()) {
        log(LOG_WARNING, entry->pending ? "a change was pending at the end: it is taken back"
                                        : "a change was half done at the end: it is taken back");
        m_record = std::move(entry->record);
        m_reason = RevertReason::restarted;
        m_next.trial.state = ChangeState::restoring;
    }
    m_next.journalsDamaged = m_journal.foundDamaged() ? 1 : 0;
    publish();
}

Worker::~Worker() {
    close(m_wake);
}

void Worker::start() {
    m_thread = std::thread(&Worker::run, this);
}

bool Worker::stop() {
    std::unique_lock lock(m_mutex);
    m_stopping = true;
    wake();
    if (!m_changed.wait_for(lock, kStop, [this] { return m_ended; })) {
        m_hurry = true;
        killProgram();
        if (!m_changed.wait_for(lock, kHurry, [this] { return m_ended; })) {
            m_thread.detach();
            return false;
        }
    }
    lock.unlock();
    m_thread.join();
    return true;
}

bool Worker::make(const std::shared_ptr<Transaction>& set, Clock::time_point deadline) {
    return await({set, &Worker::doSet}, deadline);
}

bool Worker::takeBack(const std::shared_ptr<Transaction>& set, Clock::time_point deadline) {
    return await({set, &Worker::doTakeBack}, deadline);
}

bool Worker::await(const Job& job, Clock::time_point deadline) {
    Transaction& set = *job.transaction;
    std::unique_lock lock(m_mutex);
    set.ended = false;
    m_jobs.push_back(job);
    wake();
    const auto ended = [&set] { return set.ended; };
    if (m_changed.wait_until(lock, deadline, ended))
        return true;
    if (!set.decided) {
        set.abandoned = true;
        ++m_abandoned;
        return false;
    }
    m_changed.wait(lock, ended); // it is there to stay, and about to end
    return true;
}

void Worker::wake() const {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto size = write(m_wake, &one, sizeof one);
}

Clock::time_point Worker::nextDue() const {
    auto due = std::min(m_due, m_lookDue);
    if (!m_stale.empty())
        due = std::min(due, m_staleDue);
    if (m_next.trial.state == ChangeState::pending)
        due = std::min(due, m_next.trial.end);
    if (m_next.trial.state == ChangeState::restoring)
        due = std::min(due, m_retry);
    return due;
}

/// Until something is due or wanted, or happens to the watched file.
void Worker::wait(std::unique_lock<std::mutex>& lock) {
    lock.unlock();
    // What has happened to a file that is to be read anyway can wait: there may be much of it.
    const bool listen = m_watch && m_stale.empty();
    std::array<pollfd, 2> events{
        {{m_wake, POLLIN, 0}, {listen ? m_watch->descriptor() : -1, POLLIN, 0}}};
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(nextDue() - Clock::now()).count();
    poll(events.data(), events.size(), static_cast<int>(std::clamp<long>(left, 0, 60000)));
    std::uint64_t count = 0;
    [[maybe_unused]] const auto size = read(m_wake, &count, sizeof count);
    if ((events[1].revents & POLLIN) != 0)
        lookAtDatabase();
    lock.lock();
}

void Worker::run() {
    if (initialize(m_settings.verbose) != 1)
        log(LOG_ERR, "the library could not be made ready");
    openLog(m_settings.foreground); // the library has opened it without standard error
    readMapping(m_next.model);
    const Trial& trial = m_next.trial;
    std::unique_lock lock(m_mutex);
    for (;;) {
        const auto now = Clock::now();
        const bool restoring = trial.state == ChangeState::restoring;
        if (!m_jobs.empty()) {
            const Job job = std::move(m_jobs.front());
            m_jobs.pop_front();
            lock.unlock();
            (this->*job.run)(*job.transaction);
            lock.lock();
            job.transaction->ended = true;
            m_abandoned -= job.transaction->abandoned ? 1 : 0;
            m_changed.notify_all();
        } else if (restoring && (m_stopping || now >= m_retry) && !m_hurry) {
            lock.unlock();
            const bool restored = restore();
            lock.lock();
            m_hurry = m_hurry || (m_stopping && !restored);
        } else if (m_stopping) {
            m_ended = true;
            m_changed.notify_all();
            return;
        } else if (trial.state == ChangeState::pending && now >= trial.end) {
            lock.unlock();
            log(LOG_NOTICE, "a change was not confirmed in time: it is taken back");
            beginRestore(std::move(m_record), RevertReason::expired);
            lock.lock();
        } else if (now >= m_lookDue) {
            lock.unlock();
            look();
            lock.lock();
        } else if (m_reading || now >= m_due || (!m_stale.empty() && now >= m_staleDue)) {
            lock.unlock();
            refreshStep();
            lock.lock();
        } else {
            wait(lock);
        }
    }
}

// ------------------------------------------------------------------------------ a set's life

void Worker::doSet(Transaction& set) {
    const CutShort cut(set.abandoned);
    const ChangeState state = m_next.trial.state;
    if (set.abandoned)
        return;
    if (set.verdict != Verdict::notGiven)
        return decide(set);
    if (state == ChangeState::restoring ||
        (state == ChangeState::pending && set.trial.count() == 0)) {
        set.outcome = Outcome::unavailable;
        return;
    }
    if (set.changes.empty())
        return extend(set);
    set.request = set.changes.front().request;
    set.status = readFor(set);
    int writes = 0;
    if (set.status == CORVANTA_OK)
        set.status = rehearse(set, writes);
    if (set.status == CORVANTA_OK && !set.abandoned)
        perform(set, writes);
}

void Worker::decide(Transaction& set) {
    if (m_next.trial.state != ChangeState::pending) {
        set.outcome = Outcome::inconsistent;
    } else if (set.verdict == Verdict::none) {
        set.outcome = Outcome::done;
    } else if (set.verdict == Verdict::revert) {
        log(LOG_NOTICE, "the change that is pending is taken back, as a manager wants");
        beginRestore(std::move(m_record), RevertReason::requested);
        set.outcome = m_next.trial.state == ChangeState::idle ? Outcome::done : Outcome::undoing;
    } else if (stays(set, {})) {
        log(LOG_NOTICE, "the change that was pending stays");
        m_record = {};
        m_next.trial = {};
        publish();
        set.outcome = Outcome::done;
    }
}

void Worker::extend(Transaction& set) {
    if (m_next.trial.state != ChangeState::pending) {
        set.outcome = Outcome::inconsistent;
        return;
    }
    m_next.trial.timeout = set.trial;
    m_next.trial.end = Clock::now() + set.trial;
    publish();
    set.outcome = Outcome::done;
}

int Worker::readFor(const Transaction& set) {
    Tables tables;
    for (const Change& change : set.changes)
        if (!change.object->ownRow())
            tables.add(change.object->tables());
    if (databaseIsKnown())
        return CORVANTA_OK;
    for (const Table table : kAllTables) {
        int status = CORVANTA_OK;
        if (tables.has(table))
            status = m_image.read(table);
        else
            for (const Change& change : set.changes)
                if (status == CORVANTA_OK && change.object->tables().has(table))
                    status = m_image.readRow(table, change.row);
        if (status != CORVANTA_OK)
            return status;
    }
    return CORVANTA_OK;
}

/// Finds out what the set does to which rows, without doing it.
int Worker::rehearse(Transaction& set, int& writes) {
    const QuietLibrary quiet;
    Image image = m_image;
    set.record = m_record; // a change on trial goes on from the one that is pending
    Stage stage(image, &set.record);
    if (const int status = play(set, stage); status != CORVANTA_OK)
        return status;
    writes = stage.writes();
    if (!holds(set, image)) // one value of the request undoes another, or a row is missing
        return CORVANTA_FAILED;
    if (!canBeRestored(set.record)) {
        log(LOG_WARNING, "a set is refused: it removes a row that could not be written again");
        return CORVANTA_UNFIT;
    }
    return CORVANTA_OK;
}

void Worker::perform(Transaction& set, int writes) {
    const bool wasPending = m_next.trial.state == ChangeState::pending;
    Record done = m_record;
    Image image = m_image;
    Tables current;
    FileWatch::Mark mark;
    if (writes != 0) {
        if (!m_journal.save({false, set.record})) {
            if (!wasPending)
                m_journal.clear();
            set.status = CORVANTA_FAILED;
            return;
        }
        const unsigned long failures = client_failures();
        Stage stage(image, &done, runDatabaseClient);
        set.status = play(set, stage);
        if (m_watch)
            mark = m_watch->mark();
        if (set.status == CORVANTA_OK)
            set.status = readBack(set, done, image, current);
        if (set.status == CORVANTA_OK && client_failures() != failures)
            set.status = CORVANTA_FAILED; // a step whose failure the library ignores
    }
    if (set.status == CORVANTA_OK && stays(set, done)) {
        m_image = std::move(image);
        set.outcome = Outcome::done;
        if (set.trial.count() != 0) {
            m_record = std::move(done);
            m_next.trial = {ChangeState::pending, set.trial, Clock::now() + set.trial};
        } else {
            set.record = std::move(done);
        }
        show();
        if (writes != 0) {
            accept(mark);
            settle(current);
        }
        return;
    }
    if (writes == 0)
        return;
    log(LOG_WARNING, "a set has failed and is taken back, " + statusText(set.status));
    const std::uint32_t leftBefore = m_next.rowsNotRestored;
    beginRestore(set.record, wasPending ? RevertReason::failed : RevertReason::none);
    set.outcome = m_next.trial.state != ChangeState::idle ? Outcome::undoing
                  : m_next.rowsNotRestored != leftBefore  ? Outcome::notUndone
                                                          : Outcome::refused;
}

/// Reads what the change has touched, and compares: rows, and the values that the library makes of
/// them.
int Worker::readBack(const Transaction& set, const Record& done, Image& image,
                     Tables& current) const {
    const Image wanted = image;
    for (const Table table : kAllTables) {
        const TableRecord& record = done[table];
        if (record.trails.empty())
            continue;
        int status = CORVANTA_OK;
        if (!altersOnly(record)) {
            status = image.read(table);
            current.add(table);
        } else
            for (const Trail& trail : record.trails)
                if (status == CORVANTA_OK)
                    status = image.readRow(table, trail.id);
        if (status != CORVANTA_OK)
            return status;
        for (const Trail& trail : record.trails) {
            const auto want = wanted.find(table, trail.id);
            const auto is = image.find(table, trail.id);
            const bool wantIt = want != wanted[table].end();
            const bool haveIt = is != image[table].end();
            if (wantIt != haveIt || (wantIt && !(*want == *is)))
                return CORVANTA_FAILED;
        }
    }
    return holds(set, image) ? CORVANTA_OK : CORVANTA_FAILED;
}

/// The point of no return: somebody still waits, and the journal no longer takes the change back.
bool Worker::stays(Transaction& set, const Record& done) {
    {
        const std::lock_guard lock(m_mutex);
        if (set.abandoned)
            return false;
        set.decided = true;
    }
    if (set.trial.count() != 0 ? m_journal.save({true, done}) : m_journal.clear())
        return true;
    set.status = CORVANTA_FAILED;
    const std::lock_guard lock(m_mutex);
    set.decided = false;
    return false;
}

void Worker::doTakeBack(Transaction& set) {
    const std::uint32_t leftBefore = m_next.rowsNotRestored;
    if (m_next.trial.state == ChangeState::pending) {
        beginRestore(std::move(m_record), RevertReason::failed);
    } else if (m_next.trial.state == ChangeState::idle && !set.record.empty()) {
        m_journal.save({false, set.record});
        beginRestore(set.record, RevertReason::none);
    }
    set.outcome = m_next.trial.state == ChangeState::idle && m_next.rowsNotRestored == leftBefore
                      ? Outcome::refused
                      : Outcome::notUndone;
}

// --------------------------------------------------------------------------------- taking back

void Worker::beginRestore(Record record, RevertReason reason) {
    m_record = std::move(record);
    m_reason = reason;
    m_next.trial = {};
    m_next.trial.state = ChangeState::restoring;
    publish();
    restore();
}

/// One attempt. @return whether everything is as it was
bool Worker::restore() {
    const CutShort cut(m_hurry);
    const bool restored = restoreRows() && m_journal.clear();
    if (!restored) {
        m_retry = Clock::now() + kRestoreRetry;
        return false;
    }
    log(LOG_NOTICE, "a change has been taken back");
    if (m_reason != RevertReason::none) {
        ++m_next.reverts;
        m_next.revertReason = m_reason;
    }
    m_record = {};
    m_next.trial = {};
    show();
    settle({});
    return true;
}

bool Worker::restoreRows() {
    const Tables tables = tablesToRestore(m_record);
    for (int round = 0; round < kRestoreRounds; ++round) {
        for (const Table table : kAllTables)
            if (tables.has(table) && m_image.read(table) != CORVANTA_OK)
                return false;
        const Restoring next = restoring(m_record, m_image);
        if (next.commands.empty()) {
            if (next.leftAlone != 0)
                log(LOG_WARNING, std::to_string(next.leftAlone) +
                                     " rows are left as they are: others have changed them");
            m_next.rowsNotRestored += static_cast<std::uint32_t>(next.leftAlone);
            return true;
        }
        for (const std::string& command : next.commands) {
            const int status = runCommand(command);
            if (status != CORVANTA_OK && status != CORVANTA_UNKNOWN_ROW)
                return false;
        }
    }
    return false;
}

// ----------------------------------------------------------------------------------- refreshes

/// Looks at what tells of no change by itself.
void Worker::look() {
    m_lookDue = Clock::now() + kLook;
    lookAtDatabase();
    auto circuits = textOf(kCircuitList);
    if (!circuits || circuits == m_circuits || !m_next.complete)
        return;
    m_circuits = std::move(circuits);
    show();
}

void Worker::lookAtDatabase() {
    if (!m_watch)
        return;
    const auto state = m_watch->look();
    const bool blind = state == FileWatch::State::unreadable;
    if (blind != m_blind)
        log(blind ? LOG_WARNING : LOG_INFO,
            m_watch->file() + (blind ? " cannot be watched: everything is read at each interval"
                                     : " is watched again"));
    m_blind = blind;
    if (state != FileWatch::State::changed || m_reading)
        return;
    if (m_stale.empty())
        m_staleDue = std::max(Clock::now() + kBurst, m_begun + m_settings.pause);
    m_stale.add(Tables(kAllTables));
}

void Worker::accept(const FileWatch::Mark& mark) {
    if (m_watch)
        m_watch->accept(mark);
    m_accepted = Clock::now();
}

/// Whether what was read is still what the database holds, as far as anybody can tell.
bool Worker::databaseIsKnown() {
    return m_watch && m_watch->descriptor() >= 0 && m_stale.empty() && !m_failing &&
           m_watch->look() == FileWatch::State::same;
}

void Worker::beginRefresh() {
    const auto now = Clock::now();
    m_readsLine = now >= m_due;
    const bool everything = !m_watch || m_failing || now >= m_fullDue ||
                            (m_readsLine && m_watch->look() == FileWatch::State::unreadable);
    if (m_watch && !everything && m_stale.empty() && m_watch->look() == FileWatch::State::changed)
        m_stale = Tables(kAllTables);
    m_readsTables = everything && m_readsLine ? Tables(kAllTables) : m_stale;
    m_reading = true;
    if (m_readsTables.empty())
        return;
    m_begun = now;
    if (m_watch)
        m_mark = m_watch->mark();
}

/// Reads a table, or the line, so that a set waits for no more than that.
void Worker::refreshStep() {
    const CutShort cut(m_stopping);
    if (!m_reading)
        beginRefresh();
    const unsigned long failures = client_failures();
    int status = CORVANTA_OK;
    const auto* const table = std::find_if(kAllTables.begin(), kAllTables.end(),
                                           [this](Table t) { return m_readsTables.has(t); });
    if (table != kAllTables.end()) {
        status = m_image.read(*table);
        m_readsTables.remove({*table});
        m_stale.remove({*table});
    } else if (m_readsLine && !readLine(m_next.model)) {
        status = CORVANTA_FAILED;
    }
    const bool failed = status != CORVANTA_OK || client_failures() != failures;
    if (failed || table == kAllTables.end())
        endRefresh(failed, status);
}

void Worker::endRefresh(bool failed, int status) {
    const auto now = Clock::now();
    m_reading = false;
    if (failed != m_failing)
        log(failed ? LOG_WARNING : LOG_INFO,
            failed ? "the device cannot be read, " + statusText(status)
                   : "the device can be read again");
    m_failing = failed;
    if (failed) {
        ++m_next.refreshesFailed;
        m_stale = Tables(kAllTables);
        m_due = m_staleDue = now + std::min(m_settings.interval, kRetry);
        publish();
        return;
    }
    if (m_begun > m_accepted) // no set has come between
        accept(m_mark);
    if (m_readsLine) {
        ++m_next.refreshesDone;
        m_next.complete = true;
        m_next.refreshed = now;
        m_due = now + m_settings.interval;
        if (now >= m_fullDue)
            m_fullDue = now + m_settings.fullInterval;
    }
    show();
}

/// After a change of this agent's own: reads again, but not what it has just read.
void Worker::settle(Tables current) {
    const auto now = Clock::now();
    if (!m_watch) {
        m_due = std::min(m_due, now + kSettle);
        return;
    }
    m_stale = Tables(kAllTables);
    m_stale.remove(current);
    m_staleDue = now + kSettle;
}

void Worker::show() {
    Stage stage(m_image);
    const OnStage on(stage);
    readConfiguration(m_next.model);
    publish();
}

void Worker::publish() {
    m_next.instances = listInstances(m_next);
    std::atomic_store(&m_snapshot, std::make_shared<const Snapshot>(m_next));
    m_published();
}

} // namespace agent
