#include "Worker.h"

#include "Client.h"
#include "Log.h"
#include "Restore.h"
#include "Stage.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include <poll.h>

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
constexpr int kLongestSet = 90;    ///< client runs, more than any single value needs

// Limits for another side that means ill: it could be somebody else by now.
constexpr int kMessagesAtOnce = 16;
constexpr std::size_t kMostJobs = 64;

std::string statusText(int status) {
    return "status " + std::to_string(status);
}

std::string inSeconds(std::chrono::microseconds time) {
    return std::to_string(std::chrono::ceil<seconds>(time).count()) + " s";
}

/// Whether every value of the set is what the image makes the library say.
bool holds(const SetRequest& set, Image image) {
    Stage stage(image);
    const OnStage on(stage);
    Snapshot snapshot;
    readConfiguration(snapshot.model);
    return firstMissing(set.changes, snapshot) == nullptr;
}

/// Has the library make the changes on a stage.
int play(Transaction& set, Stage& stage) {
    const OnStage on(stage);
    for (const Change& change : set.request.changes) {
        set.place = change.place;
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

/// How many client runs it takes to read what a change has touched.
int runsOfReadingBack(const Record& record, const Image& image) {
    std::size_t runs = 0;
    for (const Table table : kAllTables)
        if (const auto& trails = record[table].trails; !trails.empty())
            runs += altersOnly(record[table]) ? trails.size() : image[table].size() + 1;
    return static_cast<int>(runs);
}

/// What writes a row can be longer than call_cmd() takes as a std::string.
int runCommand(const std::string& command) {
    std::array<char, 64> answer{};
    std::string line = command;
    return call_cmd(line.data(), static_cast<int>(line.size() + 1), static_cast<int>(line.size()),
                    answer.data(), static_cast<int>(answer.size()), kTracedLevel);
}

} // namespace

Worker::Worker(Settings settings, Link link, int stop)
    : m_settings(std::move(settings)),
      m_link(link),
      m_stop(stop),
      m_side(static_cast<std::uint64_t>(Clock::now().time_since_epoch().count())),
      m_journal(m_settings.state),
      m_due(Clock::now()),
      m_fullDue(m_due),
      m_lookDue(m_due),
      m_staleDue(m_due),
      m_beatDue(m_due) {
    setWait([this](int descriptor, Clock::time_point until) { return wait(descriptor, until); });
    m_next.refreshed = m_due;
    if (!m_settings.watched.empty())
        m_watch.emplace(m_settings.watched);
    if (auto entry = m_journal.load()) {
        log(LOG_WARNING, entry->pending ? "a change was pending at the end: it is taken back"
                                        : "a change was half done at the end: it is taken back");
        m_found = true;
        m_record = std::move(entry->record);
        m_reason = RevertReason::restarted;
        m_next.trial.state = ChangeState::restoring;
    }
    m_next.counters.journalsDamaged = m_journal.foundDamaged() ? 1 : 0;
}

// ------------------------------------------------------------------------------- what comes in

/// Waits for a descriptor, and sees to what happens meanwhile.
bool Worker::wait(int descriptor, Clock::time_point until) {
    if (Clock::now() >= m_beatDue)
        beat();
    until = std::min(until, m_beatDue);
    if (m_running != nullptr && !m_running->late)
        until = std::min(until, m_running->request.deadline);
    const auto left = std::max(until - Clock::now(), Clock::duration(0));
    const timespec time{left / seconds(1), (left % seconds(1)).count()};
    std::array<pollfd, 3> events{
        {{m_link.descriptor(), POLLIN, 0}, {m_stop, POLLIN, 0}, {descriptor, POLLIN, 0}}};
    if (m_stopping)
        events[1].fd = -1;
    ppoll(events.data(), events.size(), &time, nullptr);
    if (events[0].revents != 0)
        for (int n = 0; n < kMessagesAtOnce; ++n)
            if (const auto message = m_link.receive())
                take(*message);
    if (events[1].revents != 0) {
        m_stopping = true;
        m_stopBy = Clock::now() + kStop;
    }
    if (m_stopping && !m_hurry && Clock::now() >= m_stopBy)
        hurry();
    expire();
    return events[2].revents != 0;
}

void Worker::greet() {
    m_link.send(Hello{m_side, m_found});
    publish();
}

void Worker::beat() {
    m_link.send(Alive{});
    m_beatDue = m_settings.beat ? Clock::now() + *m_settings.beat : Clock::time_point::max();
}

void Worker::take(const Message& message) {
    const bool room = m_jobs.size() < kMostJobs;
    if (const auto* set = std::get_if<SetRequest>(&message)) {
        if (room && set->side == m_side)
            m_jobs.emplace_back(*set);
    } else if (const auto* back = std::get_if<TakeBack>(&message)) {
        if (room && back->side == m_side)
            m_jobs.emplace_back(*back);
    } else if (std::holds_alternative<Hello>(message)) {
        greet();
    }
}

/// Tells of the sets that have missed their deadlines. Those that wait are dropped, the one under
/// way runs nothing more.
void Worker::expire() {
    const auto now = Clock::now();
    const auto isLate = [&](const Job& job) {
        const auto* set = std::get_if<SetRequest>(&job);
        if (set == nullptr || now < set->deadline)
            return false;
        m_link.send(SetResult{set->id, Outcome::late, CORVANTA_FAILED, 0});
        return true;
    };
    m_jobs.erase(std::remove_if(m_jobs.begin(), m_jobs.end(), isLate), m_jobs.end());
    if (m_running == nullptr || m_running->late || now < m_running->request.deadline)
        return;
    m_running->late = true;
    m_next.undoing = true;
    publish();
    m_link.send(SetResult{m_running->request.id, Outcome::late, CORVANTA_FAILED, m_running->place});
}

/// The time to stop is over.
void Worker::hurry() {
    m_hurry = true;
    if (m_running != nullptr)
        m_running->late = true;
    killProgram();
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

void Worker::run() {
    if (initialize(m_settings.verbose) != 1)
        log(LOG_ERR, "the library could not be made ready");
    openLog(m_settings.foreground); // the library has opened it without standard error
    readMapping(m_next.model);
    greet();
    for (;;) {
        wait(-1, Clock::now()); // takes in what has come, whatever there is to do
        if (workIsDue())
            continue;
        if (m_stopping)
            return;
        // What has happened to a file that is to be read anyway can wait: there may be much of it.
        const bool listen = m_watch && m_stale.empty();
        if (wait(listen ? m_watch->descriptor() : -1, nextDue()))
            lookAtDatabase();
    }
}

/// Does one piece of what there is to do. @return whether there was any
bool Worker::workIsDue() {
    const auto now = Clock::now();
    const Trial& trial = m_next.trial;
    // A set waits until everything has been read once.
    if (!m_jobs.empty() && (m_next.complete || m_stopping)) {
        Job job = std::move(m_jobs.front());
        m_jobs.pop_front();
        doJob(std::move(job));
    } else if (trial.state == ChangeState::restoring && (m_stopping || now >= m_retry)) {
        if (m_hurry)
            return false;
        if (!restore() && m_stopping)
            m_hurry = true;
    } else if (!m_stopping && trial.state == ChangeState::pending && now >= trial.end) {
        log(LOG_NOTICE, "a change was not confirmed in time: it is taken back");
        beginRestore(std::move(m_record), RevertReason::expired);
    } else if (!m_stopping && now >= m_lookDue) {
        look();
    } else if (!m_stopping &&
               (m_reading || now >= m_due || (!m_stale.empty() && now >= m_staleDue))) {
        refreshStep();
    } else {
        return false;
    }
    return true;
}

// ------------------------------------------------------------------------------ a set's life

void Worker::doJob(Job job) {
    if (const auto* back = std::get_if<TakeBack>(&job)) {
        m_link.send(SetResult{back->id, takeBack(back->id), CORVANTA_OK, 0});
        return;
    }
    Transaction set{std::move(std::get<SetRequest>(job))};
    m_running = &set;
    doSet(set);
    m_running = nullptr;
    if (set.outcome == Outcome::done && set.request.verdict == Verdict::notGiven) {
        m_last = set.request.id;
        m_lastRecord = std::move(set.record);
    }
    if (!set.late) {
        m_link.send(SetResult{set.request.id, set.outcome, set.status, set.place});
        return;
    }
    m_next.undoing = false;
    publish();
}

/// Whether the set is one that the other side may ask for: it could be somebody else by now.
bool Worker::fits(const Transaction& set) const {
    const std::vector<Instance> instances = listInstances(m_next);
    return std::all_of(
        set.request.changes.begin(), set.request.changes.end(), [&](const Change& change) {
            return change.object->control() == Control::none && change.object->writable() &&
                   check(*change.object, change.value) == SNMP_ERR_NOERROR &&
                   std::any_of(instances.begin(), instances.end(), [&](const Instance& instance) {
                       return instance.object == change.object && instance.row == change.row;
                   });
        });
}

void Worker::doSet(Transaction& set) {
    const CutShort cut(set.late);
    const SetRequest& request = set.request;
    const ChangeState state = m_next.trial.state;
    set.outcome = Outcome::unavailable;
    if (m_stopping || request.trial < seconds(0) || request.trial > seconds(kLongestTrial) ||
        request.deadline > Clock::now() + m_settings.setDeadline)
        return;
    if (request.verdict != Verdict::notGiven)
        return decide(set);
    if (state == ChangeState::restoring ||
        (state == ChangeState::pending && request.trial.count() == 0))
        return;
    if (request.changes.empty())
        return extend(set);
    set.outcome = Outcome::refused;
    set.place = request.changes.front().place;
    if (!fits(set)) {
        set.status = CORVANTA_UNKNOWN_ROW;
        return;
    }
    set.status = readFor(set);
    Effort effort{};
    if (set.status == CORVANTA_OK)
        set.status = rehearse(set, effort);
    if (set.status != CORVANTA_OK || set.late)
        return;
    if (hasTime(set, effort))
        perform(set, effort);
    else
        set.outcome = Outcome::unavailable;
}

void Worker::decide(Transaction& set) {
    set.outcome = Outcome::refused;
    const bool alone = set.request.changes.empty() && set.request.trial.count() == 0;
    if (m_next.trial.state != ChangeState::pending || !alone) {
        set.outcome = Outcome::inconsistent;
    } else if (set.request.verdict == Verdict::none) {
        set.outcome = Outcome::done;
    } else if (set.request.verdict == Verdict::revert) {
        log(LOG_NOTICE, "the change that is pending is taken back, as a manager wants");
        beginRestore(std::move(m_record), RevertReason::requested);
        set.outcome = m_next.trial.state == ChangeState::idle ? Outcome::done : Outcome::undoing;
    } else {
        set.record = m_record; // goes back into a journal that can't be removed
        if (!stays(set, {}))
            return;
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
    m_next.trial.timeout = set.request.trial;
    m_next.trial.end = Clock::now() + set.request.trial;
    publish();
    set.outcome = Outcome::done;
}

int Worker::readFor(const Transaction& set) {
    Tables tables;
    for (const Change& change : set.request.changes)
        if (!change.object->ownRow())
            tables.add(change.object->tables());
    if (databaseIsKnown())
        return CORVANTA_OK;
    for (const Table table : kAllTables) {
        int status = CORVANTA_OK;
        if (tables.has(table))
            status = m_image.read(table);
        else
            for (const Change& change : set.request.changes)
                if (status == CORVANTA_OK && change.object->tables().has(table))
                    status = m_image.readRow(table, change.row);
        if (status != CORVANTA_OK)
            return status;
    }
    return CORVANTA_OK;
}

/// Finds out what the set does to which rows, without doing it.
int Worker::rehearse(Transaction& set, Effort& effort) {
    const QuietLibrary quiet;
    Image image = m_image;
    set.record = m_record; // a change on trial goes on from the one that is pending
    Stage stage(image, &set.record);
    if (const int status = play(set, stage); status != CORVANTA_OK)
        return status;
    effort = {stage.writes(), stage.writes() + runsOfReadingBack(set.record, image)};
    if (!holds(set.request, image)) // one value of the request undoes another, or a row is missing
        return CORVANTA_FAILED;
    if (!canBeRestored(set.record)) {
        log(LOG_WARNING, "a set is refused: it removes a row that could not be written again");
        return CORVANTA_UNFIT;
    }
    return CORVANTA_OK;
}

/// Whether the device is quick enough: what misses its deadline would be made, then taken back.
bool Worker::hasTime(const Transaction& set, const Effort& effort) const {
    const auto fits = [&] {
        return Clock::now() + effort.runs * clientTime() < set.request.deadline;
    };
    if (effort.writes == 0 || fits())
        return true;
    // The device was slow when it was last asked, which can be long ago.
    const auto ask = [] { return Image().read(Table::vlanParams) == CORVANTA_OK; };
    if (timeClient(ask) && fits())
        return true;
    const auto needs = effort.runs * clientTime();
    log(LOG_WARNING, "a set is refused: it takes " + inSeconds(needs) +
                         " on this device, longer than it has left");
    return false;
}

void Worker::perform(Transaction& set, const Effort& effort) {
    const bool wasPending = m_next.trial.state == ChangeState::pending;
    Record done = m_record;
    Image image = m_image;
    Tables current;
    FileWatch::Mark mark;
    if (effort.writes != 0) {
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
        // The library ignores the failure of some steps.
        if (set.status == CORVANTA_OK && (stage.brokenOff() || client_failures() != failures))
            set.status = CORVANTA_FAILED;
        if (set.status == CORVANTA_OK)
            set.status = readBack(set, done, image, current);
        if (set.status == CORVANTA_OK && client_failures() != failures)
            set.status = CORVANTA_FAILED;
    }
    if (set.status == CORVANTA_OK && stays(set, done)) {
        m_image = std::move(image);
        set.outcome = Outcome::done;
        if (const auto trial = set.request.trial; trial.count() != 0) {
            m_record = std::move(done);
            m_next.trial = {ChangeState::pending, trial, Clock::now() + trial};
        } else {
            set.record = std::move(done);
        }
        show();
        if (effort.writes != 0) {
            accept(mark);
            settle(current);
        }
        return;
    }
    if (effort.writes == 0)
        return;
    log(LOG_WARNING, set.late ? "a set is late and is taken back"
                              : "a set has failed and is taken back, " + statusText(set.status));
    const std::uint32_t leftBefore = m_next.counters.rowsNotRestored;
    beginRestore(set.record, wasPending ? RevertReason::failed : RevertReason::none);
    set.outcome = m_next.trial.state != ChangeState::idle         ? Outcome::undoing
                  : m_next.counters.rowsNotRestored != leftBefore ? Outcome::notUndone
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
    return holds(set.request, image) ? CORVANTA_OK : CORVANTA_FAILED;
}

/// The point of no return: somebody still waits, and the journal no longer takes the change back.
bool Worker::stays(Transaction& set, const Record& done) {
    expire();
    if (set.late)
        return false;
    if (set.request.trial.count() != 0 ? m_journal.save({true, done}) : m_journal.clear())
        return true;
    if (!set.record.empty())
        m_journal.save({false, set.record}); // which can have gone all the same
    set.status = CORVANTA_FAILED;
    return false;
}

Outcome Worker::takeBack(std::uint64_t id) {
    const std::uint32_t leftBefore = m_next.counters.rowsNotRestored;
    if (id != m_last)
        return Outcome::notUndone;
    m_last = 0;
    if (m_next.trial.state == ChangeState::pending) {
        beginRestore(std::move(m_record), RevertReason::failed);
    } else if (m_next.trial.state == ChangeState::idle && !m_lastRecord.empty()) {
        if (!m_journal.save({false, m_lastRecord}))
            return Outcome::notUndone;
        beginRestore(std::move(m_lastRecord), RevertReason::none);
    }
    return m_next.trial.state == ChangeState::idle && m_next.counters.rowsNotRestored == leftBefore
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
    const auto leftAlone = restoreRows();
    if (!leftAlone || !m_journal.clear()) {
        m_retry = Clock::now() + kRestoreRetry;
        return false;
    }
    if (*leftAlone != 0)
        log(LOG_WARNING,
            std::to_string(*leftAlone) + " rows are left as they are: others have changed them");
    m_next.counters.rowsNotRestored += static_cast<std::uint32_t>(*leftAlone);
    log(LOG_NOTICE, "a change has been taken back");
    if (m_reason != RevertReason::none) {
        ++m_next.counters.reverts;
        m_next.revertReason = m_reason;
    }
    m_record = {};
    m_next.trial = {};
    show();
    settle({});
    return true;
}

/// @return how many rows had to be left alone; nothing when it didn't come to an end
std::optional<int> Worker::restoreRows() {
    const Tables tables = tablesToRestore(m_record);
    for (int round = 0; round < kRestoreRounds; ++round) {
        for (const Table table : kAllTables)
            if (tables.has(table) && m_image.read(table) != CORVANTA_OK)
                return std::nullopt;
        const Restoring next = restoring(m_record, m_image, round);
        if (next.commands.empty())
            return next.leftAlone;
        for (const std::string& command : next.commands) {
            const int status = runCommand(command);
            if (status != CORVANTA_OK && status != CORVANTA_UNKNOWN_ROW)
                return std::nullopt;
        }
    }
    return std::nullopt;
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
    // The mark taken below covers what others have changed up to now, in any table.
    if (m_watch && !everything && m_watch->look() == FileWatch::State::changed)
        m_stale = Tables(kAllTables);
    m_readsTables = everything && m_readsLine ? Tables(kAllTables) : m_stale;
    if (everything && m_readsLine)
        m_fullDue = now + m_settings.fullInterval;
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
    if (m_stopping)
        return; // what was cut short tells nothing
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
        ++m_next.counters.refreshesFailed;
        m_stale = Tables(kAllTables);
        m_due = m_staleDue = now + std::min(m_settings.interval, kRetry);
        publish();
        return;
    }
    if (m_begun > m_accepted) // no set has come between
        accept(m_mark);
    if (m_readsLine) {
        ++m_next.counters.refreshesDone;
        if (!m_next.complete && kLongestSet * clientTime() > m_settings.setDeadline)
            log(LOG_WARNING, "a set can take " + inSeconds(kLongestSet * clientTime()) +
                                 " on this device: --set-deadline is shorter");
        m_next.complete = true;
        m_next.refreshed = now;
        m_due = now + m_settings.interval;
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
    m_next.counters.clientsKilled = clientsKilled();
    m_link.send(m_next);
}

} // namespace agent
