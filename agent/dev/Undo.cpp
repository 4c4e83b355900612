#include "agent/dev/Undo.h"

#include "agent/Log.h"
#include "agent/change/Restore.h"
#include "agent/dev/DatabaseReader.h"
#include "agent/system/Invariant.h"

#include <corvanta.h>

#include <algorithm>
#include <array>
#include <string>
#include <utility>

namespace agent::dev {

namespace {

using std::chrono::seconds;

constexpr seconds kRetry{1};
constexpr seconds kTell{60}; ///< between two lines that say that it can't be taken back yet

/// The device and the journal, as taking back needs them.
class Device : public RestoreDevice {
public:
    explicit Device(Journal& journal) : m_journal(journal) {}

    bool read(Image& image, Table table) override { return readTable(image, table) == CORVANTA_OK; }
    bool readRow(Image& image, Table table, int id) override {
        return agent::dev::readRow(image, table, id) == CORVANTA_OK;
    }
    bool readIfResized(Image& image, Table table) override {
        return agent::dev::readIfResized(image, table) == CORVANTA_OK;
    }
    std::optional<std::string> run(const std::string& commandLine) override {
        // What writes a row can be longer than call_cmd() takes as a std::string.
        std::array<char, 64> answer{};
        std::string line = commandLine;
        const int status =
            call_cmd(line.data(), static_cast<int>(line.size() + 1), static_cast<int>(line.size()),
                     answer.data(), static_cast<int>(answer.size()), kTracedLevel);
        if (status != CORVANTA_OK && status != CORVANTA_UNKNOWN_ROW)
            return std::nullopt;
        return answer.data() + std::string("\n");
    }
    bool store(const Record& record) override { return m_journal.save({false, record}); }

private:
    Journal& m_journal;
};

} // namespace

Undo::Undo(System& system, Programs& programs, Image& image, Board& board, Refresh& refresh,
           const bool& stopNow)
    : m_system(system),
      m_programs(programs),
      m_image(image),
      m_board(board),
      m_refresh(refresh),
      m_stopNow(stopNow),
      m_journal(system) {
    m_unread = true;
    readJournal();
    m_found = m_journal.isThere();
    if (!m_found)
        return;
    m_reason = RevertReason::restarted;
    m_board.next.trial.state = ChangeState::restoring;
    enter(State::restoring);
}

/// Takes in what the process before has left.
/// @return whether that could be looked at; else a change may be half done
bool Undo::readJournal() {
    std::optional<Entry> entry;
    if (!m_journal.load(entry))
        return false; // a set has to wait: it may have left something half done
    m_unread = false;
    if (entry) {
        log(LOG_WARNING, entry->pending ? "a change was pending at the end: it is taken back"
                                        : "a change was half done at the end: it is taken back");
        m_record = std::move(entry->record);
    } else if (auto kept = m_journal.kept()) {
        kept->record.settle();
        remember(kept->set, std::move(kept->record));
    }
    m_board.next.counters.journalsDamaged = m_journal.foundDamaged() ? 1 : 0;
    return true;
}

/// There was no change to take back.
void Undo::beginIdle() {
    enter(State::idle);
    m_board.next.trial = {};
    m_board.publish();
}

void Undo::enter(State next) {
    constexpr bool kAllowed[][4] = {
        // idle, performing, pending, restoring
        {true, true, true, true},   // from idle
        {true, false, true, true},  // from performing
        {true, true, true, true},   // from pending
        {true, false, false, true}, // from restoring
    };
    require(kAllowed[static_cast<int>(m_state)][static_cast<int>(next)],
            "a change goes from a state to one that cannot follow");
    require((m_journal.isThere() || m_unsaved) == (next != State::idle),
            "the journal is there without a change, or a change without its journal");
    m_state = next;
}

bool Undo::plan(std::uint64_t set, const Record& planned) {
    if (m_journal.save({false, planned, set})) {
        enter(State::performing);
        return true;
    }
    // One that may be there all the same has to go before anything else is made.
    if (state() != ChangeState::pending && !m_journal.clear())
        revert(planned, RevertReason::none);
    return false;
}

bool Undo::replan(std::uint64_t set, const Record& planned) {
    return m_journal.save({false, planned, set});
}

bool Undo::keep(std::uint64_t set, const Record& planned, Record done, seconds trial) {
    const bool kept = trial != seconds(0) ? m_journal.save({true, done, set}) : m_journal.keep();
    if (!kept) {
        if (!planned.empty()) // the journal can have gone all the same
            m_unsaved = !m_journal.save({false, planned, set});
        return false;
    }
    m_unsaved = false;
    enter(trial != seconds(0) ? State::pending : State::idle);
    if (trial != seconds(0)) {
        m_record = std::move(done);
        m_board.next.trial = {ChangeState::pending, trial, m_system.now() + trial};
    }
    return true;
}

void Undo::remember(std::uint64_t set, Record done) {
    m_last = {set, std::move(done)};
}

Outcome Undo::confirm(std::uint64_t set) {
    if (!m_journal.save({true, m_record, set}) || !keep(set, m_record, {}, seconds(0)))
        return Outcome::refused;
    log(LOG_NOTICE, "the change that was pending stays");
    remember(set, std::exchange(m_record, {}));
    m_board.next.trial = {};
    m_board.publish();
    return Outcome::done;
}

Outcome Undo::extend(seconds trial) {
    if (state() != ChangeState::pending)
        return Outcome::inconsistent;
    m_board.next.trial.timeout = trial;
    m_board.next.trial.end = m_system.now() + trial;
    m_board.publish();
    return Outcome::done;
}

Outcome Undo::revert(Record record, RevertReason reason) {
    const std::uint32_t leftBefore = m_board.next.counters.rowsNotRestored;
    if (state() == ChangeState::pending)
        m_last.record = {}; // goes with it: taken back once more, it would undo what others write
    enter(State::restoring);
    m_tell = m_system.now();
    m_record = std::move(record);
    m_reason = reason;
    m_board.next.trial = {};
    m_board.next.trial.state = ChangeState::restoring;
    m_board.publish();
    if (!restore())
        return Outcome::undoing;
    return m_board.next.counters.rowsNotRestored == leftBefore ? Outcome::refused
                                                               : Outcome::notUndone;
}

Outcome Undo::takeBack(std::uint64_t set) {
    if (set != m_last.set)
        return Outcome::notUndone;
    m_last.set = 0;
    Outcome outcome = Outcome::refused;
    if (state() == ChangeState::pending) {
        outcome = revert(RevertReason::failed);
    } else if (state() == ChangeState::idle && !m_last.record.empty()) {
        m_unsaved = !m_journal.save({false, m_last.record, set}); // it may be later
        outcome = revert(std::move(m_last.record), RevertReason::none);
    }
    return outcome == Outcome::refused && state() == ChangeState::idle ? Outcome::refused
                                                                       : Outcome::notUndone;
}

Clock::time_point Undo::due() const {
    switch (state()) {
    case ChangeState::pending:
        return m_board.next.trial.end;
    case ChangeState::restoring:
        return m_retry;
    case ChangeState::idle:
        break;
    }
    return Clock::time_point::max();
}

bool Undo::step() {
    if (state() == ChangeState::restoring)
        return restore();
    log(LOG_NOTICE, "a change was not confirmed in time: it is taken back");
    return revert(RevertReason::expired) != Outcome::undoing;
}

bool Undo::restore() {
    if (m_unread) {
        m_retry = m_system.now() + kRetry;
        if (!readJournal())
            return false;
        if (!m_journal.isThere()) {
            beginIdle();
            return true;
        }
    }
    const Programs::CutShort cut(m_programs, m_stopNow);
    m_unsaved = m_unsaved && !m_journal.save({false, m_record});
    Device device(m_journal);
    if (!m_leftAlone && !m_unsaved)
        m_leftAlone = agent::takeBack(m_record, m_image, device);
    // Once all is back, others may write again what the change had written.
    if (!m_leftAlone || !m_journal.clear()) {
        const auto now = m_system.now();
        m_retry = now + kRetry;
        if (now >= m_tell) {
            m_tell = now + kTell;
            m_lines.log(now, LOG_WARNING,
                        "a change cannot be taken back yet; it is tried again until it can");
        }
        return false;
    }
    enter(State::idle);
    const int leftAlone = *std::exchange(m_leftAlone, std::nullopt);
    if (leftAlone != 0)
        m_lines.log(m_system.now(), LOG_WARNING,
                    std::to_string(leftAlone) +
                        " rows are left as they are: others have changed them");
    m_board.next.counters.rowsNotRestored += static_cast<std::uint32_t>(leftAlone);
    if (m_system.now() < m_tell) // it was told that it could not be
        m_lines.log(m_system.now(), LOG_NOTICE, "a change has been taken back");
    else
        log(LOG_NOTICE, "a change has been taken back");
    if (m_reason != RevertReason::none) {
        ++m_board.next.counters.reverts;
        m_board.next.revertReason = m_reason;
    }
    m_record = {};
    m_board.next.trial = {};
    m_board.show(m_image);
    m_refresh.settle({});
    return true;
}

} // namespace agent::dev
