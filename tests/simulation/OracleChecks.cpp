// What the oracle checks once nothing is left to do.

#include "Oracle.h"

#include "agent/dev/Interposed.h"
#include "agent/dev/Programs.h"
#include "agent/dev/Writers.h"

#include <corvanta.h>

#include <algorithm>
#include <optional>

namespace simulation {

using agent::shapeOf;
using agent::Table;
using Kind = Writer::Kind;

namespace {

std::string named(Table table, const Record& row) {
    return std::string(shapeOf(table).name) + " " + row.text();
}

/// What runs the library's commands on a database, without an agent.
class Reference : public agent::System {
public:
    explicit Reference(Database& database) : m_database(database) {}
    Time now() const override { return {}; }
    Events wait(const Events&, Time) override { return {}; }
    void send(const std::string&) override {}
    std::optional<std::string> receive() override { return std::nullopt; }
    bool startProgram(const std::string& commandLine) override {
        const std::size_t begin = commandLine.find('"') + 1;
        m_said = m_database.run(commandLine.substr(begin, commandLine.rfind('"') - begin), {});
        return true;
    }
    std::optional<agent::ProgramEnd> collectProgram() override {
        return agent::ProgramEnd{m_said.value_or(""), "", m_said ? 0 : 2};
    }
    void killProgram() override {}
    std::string whyNotRun(const std::string&) override { return ""; }
    bool load(const std::string&, std::optional<std::string>&) override { return true; }
    bool store(const std::string&, const std::string&) override { return true; }
    bool remove(const std::string&) override { return true; }
    bool rename(const std::string&, const std::string&) override { return true; }
    std::optional<std::string> circuits() override { return std::nullopt; }
    std::optional<agent::FileState> watchedFile() override { return std::nullopt; }
    bool watchedFileTouched() override { return false; }
    bool watchedFileHasEvents() const override { return false; }

private:
    Database& m_database;
    std::optional<std::string> m_said;
};

/// The library at work on a database, without an agent.
class Library {
public:
    explicit Library(Database& database) : m_reference(database) {
        agent::dev::answerLibraryFrom(&m_programs);
    }
    ~Library() { agent::dev::answerLibraryFrom(nullptr); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    bool makes(const agent::Object& object, int row, const agent::Value& value) {
        update_managed_objects();
        return agent::dev::write(object, row, value) == CORVANTA_OK;
    }

private:
    Reference m_reference;
    agent::dev::Programs m_programs{m_reference, seconds(1), [](Time) {}};
};

} // namespace

const Record* Oracle::live(Table table, int serial) const {
    const Records& rows = m_machine.database[table];
    const auto found = std::find_if(rows.begin(), rows.end(),
                                    [serial](const Record& row) { return row.serial == serial; });
    return found == rows.end() ? nullptr : &*found;
}

/// Whether others have written any of a row, at any time.
bool Oracle::hasOthers(const Record& row) const {
    return row.inserted == kOthers || m_othersTouched.count(row.serial) != 0;
}

/// Whether others have put a row for the same subject there since a change began.
bool Oracle::othersHave(Table table, const Record& row, const Change& change) const {
    const std::size_t subject = shapeOf(table).subject;
    const Records& rows = m_machine.database[table];
    return std::any_of(rows.begin(), rows.end(), [&](const Record& each) {
        return (subject == 0 || each.cells[subject].text == row.cells[subject].text) &&
               ((each.inserted == kOthers && each.cells[0].when > change.since) ||
                (m_othersTouched.count(each.serial) != 0 &&
                 m_othersTouched.at(each.serial) > change.since));
    });
}

/// Whether the agent has seen that others have put a row there since, for the same subject.
bool Oracle::isBesideOthers(Table table, const Record& row, const Change& change) const {
    const agent::TableShape& shape = shapeOf(table);
    const Records& rows = m_machine.database[table];
    return std::any_of(rows.begin(), rows.end(), [&](const Record& other) {
        return other.inserted == kOthers && other.cells[0].when > change.since &&
               other.cells[0].when <= other.read &&
               other.cells[shape.subject].text == row.cells[shape.subject].text &&
               (shape.bridgeId == 0 ||
                other.cells[shape.bridgeId].text == row.cells[shape.bridgeId].text) &&
               std::all_of(other.cells.begin(), other.cells.end(),
                           [](const Cell& cell) { return cell.writer == kOthers; });
    });
}

/// Whether there is something in a bridge that the change has not put there alone: it has to stay.
bool Oracle::othersUse(const Record& bridge, const Change& change) const {
    for (const Table table : {Table::bridgeInterface, Table::bridgeFilter})
        for (const Record& row : m_machine.database[table])
            if (row.cells[1].text == bridge.cells[0].text &&
                (hasOthers(row) || change.added.count(row.serial) == 0))
                return true;
    return false;
}

bool Oracle::hasBridge(const std::string& name) const {
    const Records& bridges = m_machine.database[Table::bridge];
    return std::any_of(bridges.begin(), bridges.end(),
                       [&name](const Record& bridge) { return bridge.cells[1].text == name; });
}

std::string Oracle::isNotGone(int number, const Removed& removed, std::set<int>& claimed) const {
    const Change& change = m_changes[static_cast<std::size_t>(number)];
    for (const Returned& each : change.returned) {
        if (each.table != removed.table || !areAlike(each.content, removed.content, change) ||
            claimed.count(each.serial) != 0)
            continue;
        const auto dead = m_dead.find(each.serial);
        if (dead != m_dead.end() && dead->second.writer == Writer{Kind::restore, number})
            continue; // made anew
        claimed.insert(each.serial);
        return "";
    }
    for (const auto& [serial, table] : change.added) { // made into what it replaced
        const Record* const row = table == removed.table ? live(table, serial) : nullptr;
        if (row == nullptr || claimed.count(serial) != 0)
            continue;
        const std::string content = contentOf(table, *row, nullptr);
        if (!areAlike(content, removed.content, change) &&
            !(removed.dangled && bare(content) == bare(removed.content)))
            continue;
        claimed.insert(serial);
        return "";
    }
    const std::size_t bridge = shapeOf(removed.table).bridgeId;
    const bool isGivenUp = bridge != 0 && change.counted && change.bridgesByOthers &&
                           !hasBridge(nameOfBridge(removed.row.cells[bridge].text, &change));
    if (removed.raced || othersHave(removed.table, removed.row, change) || removed.dangled ||
        isGivenUp || m_othersRemoved.count(removed.content) != 0)
        return "";
    return "a row has not come back: " + named(removed.table, removed.row);
}

/// What is left of a change that has to be gone; empty for nothing.
std::string Oracle::isNotGone(int number) const {
    const Change& change = m_changes[static_cast<std::size_t>(number)];
    for (const auto& [place, written] : change.cells) {
        const Record* const row = live(written.table, place.first);
        if (row == nullptr)
            continue;
        const Cell& cell = row->cells[place.second];
        const bool byThis = cell.writer.change == number && cell.writer.kind != Kind::others &&
                            cell.writer.kind != Kind::factory;
        if (byThis && cell.text != written.before && !written.raced &&
            (cell.writer.kind == Kind::set || place.second != shapeOf(written.table).bridgeId))
            return "a value of a change is left: " + named(written.table, *row);
    }
    std::set<int> claimed;
    for (const Removed& removed : change.removed)
        if (std::string problem = isNotGone(number, removed, claimed); !problem.empty())
            return problem;
    for (const auto& [serial, table] : change.added) {
        const Record* const row = live(table, serial);
        if (row == nullptr || claimed.count(serial) != 0)
            continue;
        const bool only = !hasOthers(*row) &&
                          std::all_of(row->cells.begin(), row->cells.end(), [&](const Cell& cell) {
                              return cell.writer.change == number;
                          });
        // What had to stay for others' sake was counted, though they may have gone since.
        if (only && !(table == Table::bridge && (change.counted || othersUse(*row, change))))
            return "a row of a change is left: " + named(table, *row);
    }
    return "";
}

/// What has gone of a change that has to stay; empty for nothing.
std::string Oracle::doesNotStay(int number) const {
    const Change& change = m_changes[static_cast<std::size_t>(number)];
    const Writer restore{Kind::restore, number};
    for (const auto& [place, written] : change.cells) {
        const Record* const row = live(written.table, place.first);
        if (row != nullptr && row->cells[place.second].writer == restore &&
            row->cells[place.second].text != written.last)
            return "a value that was to stay is taken back: " + named(written.table, *row);
    }
    for (const auto& [serial, table] : change.added)
        if (const auto dead = m_dead.find(serial);
            dead != m_dead.end() && dead->second.writer == restore)
            return std::string("a row that was to stay is taken back: ") +
                   std::string(shapeOf(table).name);
    for (const Returned& each : change.returned)
        if (live(each.table, each.serial) != nullptr)
            return "a row that was to go has come back: " + each.content;
    return "";
}

/// How many rows of a change others have made their own, so that they had to be left alone.
int Oracle::leftAlone(int number) const {
    const Change& change = m_changes[static_cast<std::size_t>(number)];
    std::set<int> rows;
    for (const auto& [place, written] : change.cells)
        if (const Record* const row = live(written.table, place.first))
            if (const Cell& cell = row->cells[place.second];
                cell.writer == kOthers && cell.text != written.before &&
                written.last != written.before && cell.when <= row->read)
                rows.insert(place.first);
    for (const auto& [serial, table] : change.added) {
        const Record* const row = live(table, serial);
        if (row == nullptr ||
            (!change.done && row->cells[shapeOf(table).subject].writer == kOthers))
            continue; // for it could as well be somebody else's
        for (const Cell& cell : row->cells)
            if (cell.writer == kOthers && cell.when <= row->read)
                rows.insert(serial);
    }
    return static_cast<int>(rows.size());
}

/// A change has been taken back, as the process says.
void Oracle::restored(const agent::Snapshot& snapshot) {
    ++seen["a change was taken back"];
    const int counted = static_cast<int>(snapshot.counters.rowsNotRestored - m_counted);
    const int number = m_restored;
    if (number < 0)
        return; // one on trial that had nothing to do
    Change& change = m_changes[static_cast<std::size_t>(number)];
    if (m_machine.disk.wasUnwell && !m_restoreWrote) {
        // The process could not see for a while whether there was anything; nor was there, where
        // the rows were as before.
        if (change.fate == Fate::goes && isNotGone(number).empty())
            change.fate = Fate::either;
        return;
    }
    change.restored = true;
    change.counted = change.counted || counted > 0;
    if (const std::string left = isNotGone(number); !left.empty())
        fail("of a change that was taken back: " + left);
    if (counted > 0)
        ++seen["a row was left alone"];
    if (counted == 0 && !m_machine.disk.wasUnwell && leftAlone(number) > 0)
        fail("a row is left alone, but not counted");
    if (counted > 0 && m_othersWrites == 0 && !m_machine.lied)
        fail("a row is counted as left alone, though nobody else has written");
}

/// Others can have come between, where it was counted.
bool Oracle::mayBeApart(const Record& lan, const Record& wan) const {
    if (m_othersWrites == 0)
        return false;
    // Those that were apart before come back so.
    return !(lan.inserted == wan.inserted) || lan.inserted.change < 0 ||
           std::any_of(m_changes.begin(), m_changes.begin() + lan.inserted.change + 1,
                       [](const Change& change) { return change.counted; });
}

void Oracle::checkBridges() {
    const Database& database = m_machine.database;
    const Records& bridges = database[Table::bridge];
    const auto isThere = [&](const std::string& id) {
        return std::any_of(bridges.begin(), bridges.end(),
                           [&id](const Record& bridge) { return bridge.cells[0].text == id; });
    };
    for (const Table table : {Table::bridgeInterface, Table::bridgeFilter}) {
        const Record* lan = nullptr;
        for (const Record& row : database[table]) {
            const bool ours = !hasOthers(row);
            if (m_othersWrites == 0 && !isThere(row.cells[1].text))
                fail("what a bridge had is left, and the bridge is gone: " + named(table, row));
            if (table == Table::bridgeInterface && ours) {
                const bool isLan = row.cells[2].text.compare(0, 4, "eth0") == 0;
                if (!isLan && lan != nullptr && lan->cells[1].text == row.cells[1].text &&
                    lan->id() + 1 != row.id() && !mayBeApart(*lan, row))
                    fail("the members of a bridge are apart: " + lan->text() + ", " + row.text());
                lan = isLan ? &row : nullptr;
            } else if (lan != nullptr &&
                       (lan->cells[1].text == row.cells[1].text || !(row.inserted == kOthers))) {
                lan = nullptr; // its neighbour has become somebody else's
            }
        }
    }
}

void Oracle::checkSettled() {
    for (int number = 0; number < static_cast<int>(m_changes.size()); ++number) {
        const Change& change = m_changes[static_cast<std::size_t>(number)];
        const std::string left = change.restored ? "" : isNotGone(number);
        const std::string lost = change.restored ? "it was taken back" : doesNotStay(number);
        if (change.fate == Fate::goes && !left.empty())
            fail("of a set that failed: " + left);
        else if (change.fate == Fate::stays && !lost.empty())
            fail("of a set that was answered noError: " + lost);
        else if (!left.empty() && !lost.empty())
            fail("of a set without an answer: " + left + "; " + lost);
    }
    checkBridges();
}

void makeWithLibrary(Database& database, const std::vector<Assignment>& assignments) {
    Library library(database);
    initialize(false);
    for (const auto& [place, value] : assignments)
        library.makes(*place.first, place.second, value);
}

bool libraryMakes(Database database, const Place& place, const agent::Value& value) {
    const Records& members = database[Table::bridgeInterface];
    if (!members.empty() && members.back().id() != static_cast<int>(members.size()))
        return false; // there may be no place for neighbours
    database.watch(nullptr);
    const bool made = Library(database).makes(*place.first, place.second, value);
    const Values now = valuesOf(database);
    return made && now.count(place) != 0 && now.at(place) == value;
}

void Oracle::checkAgainstLibrary() {
    for (auto& [id, set] : m_sets) {
        if (!set.before || set.disturbed || set.after.empty())
            continue;
        ++seen["a set was compared with the library"];
        Database database = *set.before;
        database.watch(nullptr);
        for (const agent::Change& change : set.request.changes)
            Library(database).makes(*change.object, change.row, change.value);
        if (database.meaning() != set.after)
            fail("noError, but the set is not whole; the library makes of it:\n" +
                 database.meaning() + "instead of:\n" + set.after);
        set.before.reset();
    }
}

} // namespace simulation
