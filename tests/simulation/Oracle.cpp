#include "Oracle.h"

#include <algorithm>
#include <utility>

namespace simulation {

using agent::ChangeState;
using agent::shapeOf;
using agent::Table;
using Kind = Writer::Kind;

Oracle::Oracle(Machine& machine) : m_machine(machine) {
    m_machine.database.watch(this);
    valuesMayHaveChanged();
}

void Oracle::fail(const std::string& what) {
    if (m_problem.empty())
        m_problem = what;
}

// ------------------------------------------------------------------------ the device's process

void Oracle::received(const agent::Message& message) {
    if (const auto* back = std::get_if<agent::TakeBack>(&message))
        if (back->incarnation == m_incarnation) // else it drops it
            m_jobs.push_back({back->id, true});
    const auto* request = std::get_if<agent::SetRequest>(&message);
    if (request == nullptr)
        return;
    Set& set = m_sets[request->id];
    if (std::exchange(set.received, true))
        fail("a set is asked for twice");
    set.request = *request;
    set.when = m_machine.database.count();
    set.pending = m_state == ChangeState::pending;
    if (request->verdict != agent::Verdict::notGiven && set.pending)
        set.change = m_pending;
    if (request->incarnation == m_incarnation) // else it drops it
        m_jobs.push_back({request->id, false});
}

void Oracle::sent(const agent::Message& message) {
    if (const auto* result = std::get_if<agent::SetResult>(&message)) {
        // A set can be asked back before it has its own result, which comes first.
        const auto job = std::find_if(m_jobs.begin(), m_jobs.end(),
                                      [result](const Job& each) { return each.set == result->id; });
        if (job != m_jobs.end())
            m_jobs.erase(job);
        if (result->outcome == agent::Outcome::late)
            ++seen["a set was late"];
        Set& set = m_sets[result->id];
        set.done = result->outcome == agent::Outcome::done;
        if (result->outcome == agent::Outcome::late && set.wrote &&
            m_state != ChangeState::restoring)
            m_late = set.change; // is taken back, while the next set may wait
        if (set.done && !valuesAreThere(set))
            fail("a set is called made, but the rows don't say so");
        if (set.done && set.change >= 0)
            m_changes[static_cast<std::size_t>(set.change)].done = true;
        if (set.done && set.before && !set.disturbed)
            set.after = m_machine.database.meaning();
    } else if (const auto* hello = std::get_if<agent::Hello>(&message)) {
        m_incarnation = hello->incarnation;
        if (m_machine.lookFailed)
            nobodyAsksBack();
    } else if (const auto* snapshot = std::get_if<agent::Snapshot>(&message)) {
        if (m_refreshes.empty() || snapshot->refreshed > m_refreshes.back())
            m_refreshes.push_back(snapshot->refreshed);
        if (m_state == ChangeState::restoring && snapshot->trial.state == ChangeState::idle)
            restored(*snapshot);
        enter(snapshot->trial.state, *snapshot);
    }
}

/// What it has not answered, it will not any more.
void Oracle::processEnded() {
    if (m_state == ChangeState::restoring && m_restored >= 0 && m_machine.journalRemoved &&
        isNotGone(m_restored).empty()) { // it could not say so, nor what it has left alone
        Change& change = m_changes[static_cast<std::size_t>(m_restored)];
        change.restored = change.counted = true;
    }
    m_leftBehind = m_state == ChangeState::pending     ? m_pending
                   : m_state == ChangeState::restoring ? m_restored
                                                       : changeOfJob();
    for (const Job& job : m_jobs)
        if (!job.back)
            m_sets[job.set].untold = valuesAreThere(m_sets[job.set]);
    m_jobs.clear();
    m_fresh = true;
    m_state = ChangeState::idle; // until the next one tells otherwise
    m_counted = 0;
    m_restoreWrote = false;
    m_late = -1;
}

/// A set that was answered late, and made all the same, stays: the network's process has ended, or
/// the device's could not see as it began what the one before had made.
void Oracle::nobodyAsksBack() {
    for (Change& change : m_changes)
        if (change.fate == Fate::goes && !change.restored && !m_machine.disk.has(kJournal))
            change.fate = Fate::either;
}

int Oracle::lastChange() const {
    return static_cast<int>(m_changes.size()) - 1;
}

/// The change that the process is at, or else was at last.
int Oracle::changeOfJob() {
    return m_jobs.empty() ? lastChange() : m_sets[m_jobs.front().set].change;
}

/// What the process says that its change is at.
void Oracle::enter(ChangeState next, const agent::Snapshot& snapshot) {
    if (next == ChangeState::restoring && m_state != ChangeState::restoring) {
        m_counted = snapshot.counters.rowsNotRestored;
        m_restored = m_state == ChangeState::pending ? m_pending
                     : m_fresh                       ? m_leftBehind
                     : m_late >= 0                   ? m_late
                                                     : changeOfJob();
    }
    if (next != ChangeState::idle)
        m_late = -1;
    if (next == ChangeState::pending && m_state != ChangeState::pending && !m_jobs.empty())
        m_pending = m_sets[m_jobs.front().set].change; // none when there was nothing to do
    m_fresh = false;
    m_state = next;
}

Writer Oracle::writer() {
    if (m_state == ChangeState::restoring)
        return {Kind::restore, m_restored};
    if (m_jobs.empty() || m_jobs.front().back)
        return {Kind::restore, -1}; // a read, else wrong
    Set& set = m_sets[m_jobs.front().set];
    if (set.change < 0) {
        const bool joins = m_state == ChangeState::pending;
        if (!joins || m_pending < 0) {
            m_changes.emplace_back();
            m_changes.back().since = set.when;
        }
        set.change = joins && m_pending >= 0 ? m_pending : lastChange();
        m_changes[static_cast<std::size_t>(set.change)].done = false;
        if (joins)
            m_pending = set.change;
        if (set.unanswered && set.request.trial == seconds(0))
            m_changes.back().fate = Fate::either;
        set.before.emplace(m_machine.database);
    }
    return {Kind::set, set.change};
}

/// A set has read what others had written before it came, where it writes itself.
void Oracle::checkRead(const Record& row, const Set& set) {
    for (const Cell& cell : row.cells)
        if (cell.writer == kOthers && cell.when > row.read && cell.when <= set.when)
            fail("a set writes where it has not read what others have: " + row.text());
}

// ------------------------------------------------------------------------------------ managers

void Oracle::answered(std::uint64_t id, agent::net::ErrorStatus error) {
    Set& set = m_sets[id];
    const bool good = error == agent::net::ErrorStatus::noError;
    ++seen[good ? "a set was made" : "a set was refused"];
    if (good && !set.done && set.request.trial != seconds(0))
        fail("noError for a trial that has not begun");
    const bool confirms = set.request.verdict == agent::Verdict::confirm;
    if (good && confirms && !set.pending)
        fail("noError for a confirmation of what is not pending");
    if (good && !set.done && !set.untold)
        fail("noError, but the rows don't say so");
    if (set.change < 0)
        return;
    Change& change = m_changes[static_cast<std::size_t>(set.change)];
    if (good && (confirms || (set.request.trial == seconds(0) && !set.request.changes.empty())))
        change.fate = Fate::stays;
    else if (!good && (set.wrote || confirms))
        change.fate = m_machine.disk.wasBroken ? Fate::either // what is left, nobody can know
                                               : Fate::goes;
}

/// Whether the rows hold what a set asks for, unless others were in the way.
bool Oracle::valuesAreThere(const Set& set) const {
    if (set.disturbed)
        return true;
    const Values now = valuesOf(m_machine.database);
    std::map<Place, agent::Value> wanted; // of several for one object the last counts
    for (const agent::Change& change : set.request.changes)
        wanted[{change.object, change.row}] = change.value;
    return std::all_of(wanted.begin(), wanted.end(),
                       [&now](const auto& each) { return now.at(each.first) == each.second; });
}

void Oracle::unanswered(std::uint64_t id) {
    ++seen["a set got no answer"];
    Set& set = m_sets[id];
    set.unanswered = true;
    if (set.change < 0)
        return;
    Change& change = m_changes[static_cast<std::size_t>(set.change)];
    if (set.request.verdict == agent::Verdict::confirm || set.request.trial == seconds(0))
        change.fate = Fate::either;
}

void Oracle::shown(const Place& place, const agent::Value& value, Time refreshed) {
    const auto history = m_history.find(place);
    if (history == m_history.end())
        return;
    ++seen["a value was read"];
    const auto last = std::lower_bound(m_refreshes.begin(), m_refreshes.end(), refreshed);
    const Time since = last == m_refreshes.begin() ? Time() : *(last - 1);
    const auto& values = history->second;
    for (std::size_t i = 0; i < values.size(); ++i)
        if (values[i].second == value && (i + 1 == values.size() || values[i + 1].first >= since))
            return;
    fail(std::string("a value is shown that has not been true since the last refresh: ") +
         place.first->label() + "." + std::to_string(place.second) + " = " +
         std::to_string(value.number) + value.text);
}

// -------------------------------------------------------------------------------------- writes

void Oracle::valuesMayHaveChanged() {
    for (const auto& [place, value] : valuesOf(m_machine.database)) {
        const auto known = m_values.find(place);
        if (known != m_values.end() && known->second == value)
            continue;
        m_values[place] = value;
        m_history[place].emplace_back(m_machine.now(), value);
    }
}

/// Somebody else is in the way of the sets under way.
void Oracle::disturb(Table table) {
    ++m_othersWrites;
    if (table == Table::bridge || shapeOf(table).bridgeId != 0)
        for (Change& change : m_changes)
            change.bridgesByOthers = true;
    for (const Job& job : m_jobs)
        if (!job.back)
            m_sets[job.set].disturbed = true;
}

/// The name of a bridge, as it was before a change where one is given.
std::string Oracle::nameOfBridge(const std::string& id, const Change* change) const {
    const auto is = [&id](const Record& bridge) { return bridge.cells[0].text == id; };
    if (change != nullptr)
        for (const Removed& removed : change->removed)
            if (removed.table == Table::bridge && is(removed.row))
                return removed.row.cells[1].text;
    for (const Record& bridge : m_machine.database[Table::bridge])
        if (is(bridge) && (change == nullptr || change->added.count(bridge.serial) == 0))
            return bridge.cells[1].text;
    return "gone";
}

constexpr const char* kInBridge = " in bridge ";

/// What contentOf() says of a row, but for its bridge.
std::string Oracle::bare(const std::string& content) {
    return content.substr(0, content.find(kInBridge));
}

/// Compares what contentOf() says of two rows.
bool Oracle::areAlike(const std::string& one, const std::string& other, const Change& change) {
    return change.bridgesByOthers ? bare(one) == bare(other) : one == other;
}

/// A row without its Id, as it was before a change where one is given.
std::string Oracle::contentOf(Table table, const Record& row, const Change* change) const {
    Record before = row;
    before.cells[0].text.clear();
    if (change != nullptr)
        for (std::size_t i = 1; i < row.cells.size(); ++i)
            if (const auto cell = change->cells.find({row.serial, i}); cell != change->cells.end())
                before.cells[i].text = cell->second.before;
    const std::size_t bridge = shapeOf(table).bridgeId;
    if (bridge == 0)
        return before.text();
    const std::string id = std::exchange(before.cells[bridge].text, ""); // it may get another
    return before.text() + kInBridge + nameOfBridge(id, change);
}

void Oracle::updated(Table table, const Record& row, std::size_t column, const Cell& before) {
    const Cell& now = row.cells[column];
    valuesMayHaveChanged();
    if (now.writer == kOthers) {
        m_othersTouched[row.serial] = now.when;
        Record was = row; // it is gone as what it was
        was.cells[column] = before;
        m_othersRemoved.insert(contentOf(table, was, nullptr));
        return disturb(table);
    }
    if (now.writer.change < 0)
        return fail("a row is changed without a set");
    Change& change = m_changes[static_cast<std::size_t>(now.writer.change)];
    const auto cell = change.cells.find({row.serial, column});
    if (now.writer.kind == Kind::set) {
        Record was = row;
        was.cells[column] = before;
        checkRead(was, m_sets[m_jobs.front().set]);
        m_sets[m_jobs.front().set].wrote = true;
        if (change.added.count(row.serial) != 0)
            return void(change.own.emplace(table, row.text()));
        const bool byOthers = before.writer.kind == Kind::others;
        const bool raced = byOthers && before.when > row.read;
        if (cell == change.cells.end() || (byOthers && !raced)) {
            change.cells[{row.serial, column}] = {table, before.text, now.text, {now.text}, raced};
            return;
        }
        cell->second.last = now.text;
        cell->second.own.insert(now.text);
        cell->second.raced = cell->second.raced || raced;
        return;
    }
    change.restored = m_restoreWrote = true;
    // A process that was killed, or could not remove the journal, leaves it to the next, which
    // can't tell what others wrote from the same value of the change; nor can anybody who looks
    // later.
    const bool looksOwn = cell != change.cells.end() && cell->second.own.count(before.text) != 0;
    // What others have put into a bridge follows it where it comes back with another Id.
    const bool follows = column == shapeOf(table).bridgeId &&
                         nameOfBridge(before.text, &change) == nameOfBridge(now.text, nullptr);
    if (before.writer.kind == Kind::others && before.when <= row.read && change.done && !looksOwn &&
        !follows && !m_machine.disk.wasUnwell)
        fail("what others have written is overwritten while a change is taken back: " +
             std::string(shapeOf(table).name) + " " + row.text());
    const bool returned = row.inserted == now.writer || change.added.count(row.serial) != 0;
    if (change.done && cell == change.cells.end() && !returned && column != shapeOf(table).bridgeId)
        fail("taking back writes what the change has not written: " +
             std::string(shapeOf(table).name) + " " + row.text());
}

void Oracle::inserted(Table table, const Record& row) {
    valuesMayHaveChanged();
    if (row.inserted.kind == Kind::factory)
        return;
    if (row.inserted == kOthers)
        return disturb(table);
    if (row.inserted.change < 0)
        return fail("a row is inserted without a set");
    Change& change = m_changes[static_cast<std::size_t>(row.inserted.change)];
    if (row.inserted.kind == Kind::set) {
        m_sets[m_jobs.front().set].wrote = true;
        change.added[row.serial] = table;
        change.own.emplace(table, row.text());
        return;
    }
    change.restored = m_restoreWrote = true;
    change.returned.push_back({table, row.serial, contentOf(table, row, nullptr)});
    if (isBesideOthers(table, row, change))
        fail("a row comes back beside one that others have put there: " + row.text());
    const auto isLike = [&](const auto& other) {
        return other.table == table &&
               areAlike(other.content, change.returned.back().content, change);
    };
    const auto wanted =
        std::count_if(change.removed.begin(), change.removed.end(), [&](const Removed& each) {
            // The bridge of a row that had none can be the change's own, as long as that is there.
            return isLike(each) || (each.dangled && each.table == table &&
                                    bare(each.content) == bare(change.returned.back().content));
        });
    const auto there =
        std::count_if(change.returned.begin(), change.returned.end(), [&](const Returned& each) {
            const auto dead = m_dead.find(each.serial);
            return isLike(each) && (dead == m_dead.end() || dead->second.writer == kOthers);
        });
    // What others remove while a set is about to, can come back with it.
    const bool removedByOthers = m_othersRemoved.count(change.returned.back().content) != 0;
    if (there > wanted && !removedByOthers &&
        !std::any_of(change.removed.begin(), change.removed.end(),
                     [](const Removed& each) { return each.raced; }))
        fail(wanted == 0 ? "taking back inserts a row that the change has not removed: " +
                               change.returned.back().content
                         : "a row has come back more than once: " + change.returned.back().content);
}

/// Whether a row was of no bridge before the change: it would be of a bridge that is gone again.
bool Oracle::dangles(Table table, const Record& row, const Change& change) const {
    const std::size_t column = shapeOf(table).bridgeId;
    if (column == 0)
        return false;
    const Records& bridges = m_machine.database[Table::bridge];
    return std::none_of(bridges.begin(), bridges.end(), [&](const Record& bridge) {
        return bridge.cells[0].text == row.cells[column].text &&
               change.added.count(bridge.serial) == 0;
    });
}

void Oracle::removed(Table table, const Record& row, const Writer& writer) {
    m_dead[row.serial] = {writer};
    valuesMayHaveChanged();
    if (writer == kOthers) {
        m_othersRemoved.insert(contentOf(table, row, nullptr));
        return disturb(table);
    }
    if (writer.change < 0)
        return fail("a row is removed without a set");
    Change& change = m_changes[static_cast<std::size_t>(writer.change)];
    if (writer.kind == Kind::set) {
        checkRead(row, m_sets[m_jobs.front().set]);
        m_sets[m_jobs.front().set].wrote = true;
        const std::size_t subject = shapeOf(table).subject; // by another one it is another row
        if (change.added.count(row.serial) == 0 ||
            (subject != 0 && row.cells[subject].writer == kOthers)) {
            const bool raced =
                std::any_of(row.cells.begin(), row.cells.end(), [&row](const Cell& cell) {
                    return cell.writer == kOthers && cell.when > row.read;
                });
            change.removed.push_back(
                {table, row, contentOf(table, row, &change), raced, dangles(table, row, change)});
        }
        return;
    }
    change.restored = m_restoreWrote = true;
    // What looks like the change's own tells nobody that others wrote it.
    // A process that was killed within the set need not know the Id either.
    const std::string text = row.text();
    const std::size_t from = change.done ? 0 : text.find('|');
    // Nor does what has the Id, too, of a row that the change has removed.
    const bool looksOwn =
        std::any_of(change.own.begin(), change.own.end(),
                    [&](const auto& own) {
                        return own.first == table &&
                               own.second.substr(change.done ? 0 : own.second.find('|')) ==
                                   text.substr(from);
                    }) ||
        std::any_of(change.removed.begin(), change.removed.end(), [&](const Removed& each) {
            return each.table == table && each.row.id() == row.id() &&
                   areAlike(each.content, contentOf(table, row, nullptr), change);
        });
    for (const Cell& cell : row.cells)
        if (cell.writer == kOthers && cell.when <= row.read && !looksOwn &&
            !m_machine.disk.wasUnwell) // as above: the journal can have stayed
            fail("a row that others have written is removed while a change is taken back: " +
                 std::string(shapeOf(table).name) + " " + row.text());
    for (const Table each : {Table::bridgeInterface, Table::bridgeFilter})
        for (const Record& member : m_machine.database[each])
            if (table == Table::bridge && member.cells[1].text == row.cells[0].text &&
                member.cells[1].writer == kOthers && member.cells[1].when > row.cells[0].when &&
                member.cells[1].when <= member.read)
                fail("a bridge that others use is removed: " + row.text());
    const bool returned = row.inserted == writer;
    if (change.added.count(row.serial) == 0 && !returned && row.inserted.kind != Kind::others)
        fail("taking back removes a row that the change has not added: " +
             std::string(shapeOf(table).name) + " " + row.text());
}

std::vector<std::pair<Table, int>> Oracle::touchedRows() const {
    std::vector<std::pair<Table, int>> rows;
    if (m_changes.empty())
        return rows;
    const Change& change = m_changes.back();
    for (const auto& [place, written] : change.cells)
        if (const Record* row = live(written.table, place.first))
            rows.emplace_back(written.table, row->id());
    for (const auto& [serial, table] : change.added)
        if (const Record* row = live(table, serial))
            rows.emplace_back(table, row->id());
    return rows;
}

long Oracle::returnedMembers() const {
    if (m_changes.empty())
        return 0;
    const auto& returned = m_changes.back().returned;
    return std::count_if(returned.begin(), returned.end(),
                         [](const Returned& each) { return each.table == Table::bridgeInterface; });
}

std::vector<std::pair<Table, Record>> Oracle::removedRows() const {
    std::vector<std::pair<Table, Record>> rows;
    if (!m_changes.empty())
        for (const Removed& removed : m_changes.back().removed)
            rows.emplace_back(removed.table, removed.row);
    return rows;
}

} // namespace simulation
