#include "agent/dev/Changer.h"

#include "agent/Log.h"
#include "agent/change/Restore.h"
#include "agent/dev/DatabaseReader.h"
#include "agent/dev/DeviceModel.h"
#include "agent/dev/Writers.h"

#include <algorithm>
#include <string>
#include <utility>

namespace agent::dev {

namespace {

using std::chrono::seconds;

std::string inSeconds(std::chrono::microseconds time) {
    return std::to_string(std::chrono::ceil<seconds>(time).count()) + " s";
}

/// Whether the change only alters rows that stay where they are.
bool altersOnly(const TableRecord& record) {
    return std::all_of(record.trails.begin(), record.trails.end(),
                       [](const Trail& trail) { return trail.alters(); });
}

/// How many client runs it takes to read what a change has touched.
int runsOfReadingBack(const Record& record, const Image& image) {
    std::size_t runs = 0;
    for (const Table table : kAllTables)
        if (const auto& trails = record[table].trails; !trails.empty())
            runs += altersOnly(record[table]) ? trails.size() : image[table].size() + 1;
    return static_cast<int>(runs);
}

} // namespace

Changer::Changer(const Options& options, System& system, Programs& programs, Image& image,
                 Board& board, Refresh& refresh, Undo& undo, std::function<void()> expire)
    : m_options(options),
      m_system(system),
      m_programs(programs),
      m_image(image),
      m_board(board),
      m_refresh(refresh),
      m_undo(undo),
      m_expire(std::move(expire)) {}

void Changer::make(Transaction& set) {
    const Programs::CutShort cut(m_programs, set.late);
    const SetRequest& request = set.request;
    const ChangeState state = m_undo.state();
    set.outcome = Outcome::unavailable;
    if (request.trial < seconds(0) || request.trial > seconds(kLongestTrial) ||
        request.deadline > m_system.now() + m_options.setDeadline)
        return;
    if (request.verdict != Verdict::notGiven) {
        set.outcome = decide(set);
        return;
    }
    if (state == ChangeState::restoring ||
        (state == ChangeState::pending && request.trial.count() == 0))
        return;
    if (request.changes.empty()) {
        set.outcome = m_undo.extend(request.trial);
        if (set.outcome == Outcome::done)
            m_undo.remember(request.id, {});
        return;
    }
    set.outcome = Outcome::refused;
    set.place = request.changes.front().place;
    if (!fits(set)) {
        set.status = CORVANTA_UNKNOWN_ROW;
        return;
    }
    set.status = readFor(set);
    Plan plan{};
    if (set.status == CORVANTA_OK)
        set.status = rehearse(set, plan);
    if (set.status != CORVANTA_OK || set.late)
        return;
    if (hasTime(set, plan))
        perform(set, std::move(plan));
    else
        set.outcome = Outcome::unavailable;
}

Outcome Changer::decide(Transaction& set) {
    const bool alone = set.request.changes.empty() && set.request.trial.count() == 0;
    if (m_undo.state() != ChangeState::pending || !alone)
        return Outcome::inconsistent;
    if (set.request.verdict == Verdict::none)
        return Outcome::done;
    if (set.request.verdict == Verdict::revert) {
        log(LOG_NOTICE, "the change that is pending is taken back, as a manager wants");
        return m_undo.revert(RevertReason::requested) == Outcome::undoing ? Outcome::undoing
                                                                          : Outcome::done;
    }
    m_expire();
    return set.late ? Outcome::refused : m_undo.confirm(set.request.id);
}

/// Whether the set is one that the other side may ask for: it may have been taken over.
bool Changer::fits(const Transaction& set) const {
    const std::vector<Instance> instances = listInstances(m_board.next);
    return std::all_of(
        set.request.changes.begin(), set.request.changes.end(), [&](const Change& change) {
            return change.object->control() == Control::none && change.object->writable() &&
                   check(*change.object, change.value) == Fit::fits &&
                   std::any_of(instances.begin(), instances.end(), [&](const Instance& instance) {
                       return instance.object == change.object && instance.row == change.row;
                   });
        });
}

int Changer::readFor(const Transaction& set) {
    Tables tables;
    for (const Change& change : set.request.changes)
        if (!change.object->ownRow())
            tables.add(change.object->tables());
    if (m_refresh.databaseIsKnown())
        return CORVANTA_OK;
    for (const Table table : kAllTables) {
        int status = CORVANTA_OK;
        if (tables.has(table))
            status = readTable(m_image, table);
        else
            for (const Change& change : set.request.changes)
                if (status == CORVANTA_OK && change.object->tables().has(table))
                    status = readRow(m_image, table, change.row);
        if (status != CORVANTA_OK)
            return status;
    }
    return CORVANTA_OK;
}

/// Whether every value of the set is what the image makes the library say.
bool Changer::holds(const SetRequest& set, Image image) const {
    Stage stage(image);
    const Programs::OnStage on(m_programs, stage);
    Snapshot snapshot;
    readConfiguration(snapshot.model);
    return firstMissing(set.changes, snapshot) == nullptr;
}

/// Has the library make the changes on a stage.
int Changer::play(Transaction& set, Stage& stage) {
    const Programs::OnStage on(m_programs, stage);
    for (const Change& change : set.request.changes) {
        set.place = change.place;
        update_managed_objects(); // handlers trust the cache, which the one before can have changed
        if (const int status = write(*change.object, change.row, change.value);
            status != CORVANTA_OK)
            return status;
    }
    return CORVANTA_OK;
}

/// Finds out what the set does to which rows, without doing it.
int Changer::rehearse(Transaction& set, Plan& plan) {
    const QuietLibrary quiet;
    Image image = m_image;
    plan.record = m_undo.record(); // a change on trial goes on from the one that is pending
    Stage stage(image, &plan.record);
    if (const int status = play(set, stage); status != CORVANTA_OK)
        return status;
    plan.script = stage.written();
    plan.runs = static_cast<int>(plan.script.size()) + runsOfReadingBack(plan.record, image);
    if (!holds(set.request, image)) // one value of the request undoes another, or a row is missing
        return CORVANTA_FAILED;
    if (!canBeRestored(plan.record)) {
        log(LOG_WARNING, "a set is refused: it removes a row that could not be written again");
        return CORVANTA_UNFIT;
    }
    return CORVANTA_OK;
}

/// Whether the device is quick enough: what misses its deadline would be made, then taken back.
bool Changer::hasTime(const Transaction& set, const Plan& plan) const {
    const auto fits = [&] {
        return m_system.now() + plan.runs * m_programs.clientTime() < set.request.deadline;
    };
    if (plan.script.empty() || fits())
        return true;
    // The device was slow when it was last asked, which can be long ago.
    Image scratch;
    const auto ask = [&scratch] { return readTable(scratch, Table::vlanParams) == CORVANTA_OK; };
    if (m_programs.timeClient(ask) && fits())
        return true;
    const auto needs = plan.runs * m_programs.clientTime();
    log(LOG_WARNING, "a set is refused: it takes " + inSeconds(needs) +
                         " on this device, longer than it has left");
    return false;
}

void Changer::perform(Transaction& set, Plan plan) {
    const bool wasPending = m_undo.state() == ChangeState::pending;
    const bool writes = !plan.script.empty();
    Record done = m_undo.record();
    Image image = m_image;
    Tables current;
    FileWatch::Mark mark;
    if (writes) {
        if (!m_undo.plan(set.request.id, plan.record)) {
            set.status = CORVANTA_FAILED;
            return;
        }
        const unsigned long failures = client_failures();
        Stage stage(image, &done);
        stage.perform(
            plan.script, [this](const std::string& line) { return m_programs.runClient(line); },
            [this, &set, &plan](const Rehearsed& row, int id) {
                plan.record.renumber(row.command.table, row.trail, id);
                return m_undo.replan(set.request.id, plan.record);
            });
        set.status = play(set, stage);
        mark = m_refresh.mark();
        // The library ignores the failure of some steps.
        if (set.status == CORVANTA_OK && (!stage.isWhole() || client_failures() != failures))
            set.status = CORVANTA_FAILED;
        if (set.status == CORVANTA_OK)
            set.status = readBack(set, done, image, current);
        if (set.status == CORVANTA_OK && client_failures() != failures)
            set.status = CORVANTA_FAILED;
    }
    if (set.status == CORVANTA_OK) {
        m_expire(); // the last time that anybody may stop waiting
        if (!set.late && !m_undo.keep(set.request.id, plan.record, done, set.request.trial))
            set.status = CORVANTA_FAILED;
    }
    if (set.status == CORVANTA_OK && !set.late) {
        m_image = std::move(image);
        set.outcome = Outcome::done;
        m_undo.remember(set.request.id, std::move(done));
        m_board.show(m_image);
        if (writes) {
            m_refresh.accept(mark);
            m_refresh.settle(current);
        }
    } else if (writes) {
        log(LOG_WARNING,
            set.late ? "a set is late and is taken back"
                     : "a set has failed and is taken back, status " + std::to_string(set.status));
        // A client can have said that it has removed a row that is still there.
        done.doubtRemovals(m_undo.record());
        set.outcome =
            m_undo.revert(std::move(done), wasPending ? RevertReason::failed : RevertReason::none);
    }
}

/// Reads what the change has touched, and compares: rows, and the values that the library makes of
/// them.
int Changer::readBack(const Transaction& set, const Record& done, Image& image,
                      Tables& current) const {
    const Image wanted = image;
    for (const Table table : kAllTables) {
        const TableRecord& record = done[table];
        if (record.trails.empty())
            continue;
        int status = CORVANTA_OK;
        if (!altersOnly(record)) {
            status = readTable(image, table);
            current.add(table);
        } else
            for (const Trail& trail : record.trails)
                if (status == CORVANTA_OK)
                    status = readRow(image, table, trail.id);
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

} // namespace agent::dev
