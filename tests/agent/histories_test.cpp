// Changes on trial in several requests, taken back while others insert, update, rename and delete
// rows between any two commands. What must come of it is simple: the rows are as others wrote them
// last. A row has something of the change left only where others have written in it, and is
// counted.

#include "RowsDatabase.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <optional>

using namespace agent;

namespace {

using Who = RowsDatabase::Who;

/// What is known of one row, whatever Ids it has had.
struct Fact {
    Table table;
    Row theirs;                             ///< what others wrote last
    std::vector<bool> byOthers, ours, left; ///< columns; left: others wrote it behind the change
    Fact* bridge = nullptr;                 ///< that others had put it in
    bool live = true;
    bool added = false, touched = false;   ///< by the change
    bool removed = false, deleted = false; ///< by the change, by others
    bool renamed = false;                  ///< by others, once it was touched
    bool vague = false; ///< nobody could tell whose it is, or when others wrote in it
    bool twice = false; ///< it looked like two rows to the change, and may be counted as two
    bool noted = false; ///< the journal tells that it is back
    Row cameBackAs;
    int id = 0;

    bool has(const std::vector<bool>& columns) const {
        return std::find(columns.begin(), columns.end(), true) != columns.end();
    }
};

std::size_t keyOf(Table table) {
    return table == Table::bridgeFilter ? 2 : shapeOf(table).subject;
}

class History {
public:
    explicit History(unsigned seed) : m_random(seed) {
        m_database.see = [this](Who who, const std::string& line) {
            static const char* const kNames[] = {"change:", "others:", "taking back:"};
            m_story += kNames[static_cast<int>(who)] + line + "\n";
            see(who);
        };
    }

    void play();
    const std::string& story() const { return m_story; }

private:
    int pick(int below) { return static_cast<int>(m_random() % static_cast<unsigned>(below)); }
    std::string unique(Who who) {
        return (who == Who::others ? "o" : "c") + std::to_string(++m_unique);
    }
    std::string run(Who who, const std::string& command) {
        return m_database.client(who, " quorlet \" " + command + " ;\" ");
    }
    void wrong(const Fact& fact, const std::string& what) {
        ADD_FAILURE() << shapeOf(fact.table).name << " " << fact.id << " " << what << "\n"
                      << m_story;
    }

    void begin();
    std::optional<std::pair<Table, Row>> any();
    std::string value(Table table, std::size_t column, Who who);
    std::string anyBridge();
    std::vector<std::string> action(const Image& rows);
    void request();
    void others();
    void takeBackAll();

    Fact* find(Table table, int id);
    Fact* missing(Table table, const Row& row);
    Fact* bridgeOf(Table table, const Row& row);
    void see(Who who);
    void seeGone(Fact& fact, const Row& row, Who who);
    void seeNew(Table table, const Row& row, Who who);
    void seeChanged(Fact& fact, const Row& before, const Row& now, Who who);
    std::string expected(const Fact& fact, std::size_t column);
    void check(int leftAlone);
    void checkRow(Fact& fact);
    std::pair<int, int> leftAlone(const Fact& fact);

    std::mt19937 m_random;
    RowsDatabase m_database;
    Image m_seen;
    std::vector<std::unique_ptr<Fact>> m_facts;
    Record m_done;
    std::string m_story;
    int m_unique = 0;
    int m_actions = 0;   ///< of others while the change is taken back, still to come
    bool m_late = false; ///< it is being taken back
    Tables m_deleted;    ///< where what can have been in a row's way has then gone
    bool m_whole = true; ///< nothing was broken off while it was made
};

Fact* History::find(Table table, int id) {
    for (const auto& fact : m_facts)
        if (fact->live && fact->table == table && fact->id == id)
            return fact.get();
    return nullptr;
}

/// The bridge that a row is in.
Fact* History::bridgeOf(Table table, const Row& row) {
    const std::size_t column = shapeOf(table).bridgeId;
    Fact* const bridge =
        column == 0 ? nullptr : find(Table::bridge, std::atoi(row.columns[column].c_str()));
    if (bridge != nullptr && m_late)
        bridge->vague = true; // nobody knows whether it was in use when it was looked at
    return bridge;
}

/// Finds out what a command has done.
void History::see(Who who) {
    for (const Table table : kAllTables) {
        Image before;
        before[table].swap(m_seen[table]);
        m_seen[table] = m_database.rows[table];
        for (const Row& row : before[table]) {
            const auto now = m_seen.find(table, row.id());
            if (now == m_seen[table].end() || *now != row)
                if (who == Who::others)
                    bridgeOf(table, row);
            if (now == m_seen[table].end())
                seeGone(*find(table, row.id()), row, who);
            else if (*now != row)
                seeChanged(*find(table, row.id()), row, *now, who);
        }
        for (const Row& row : m_seen[table])
            if (before.find(table, row.id()) == before[table].end())
                seeNew(table, row, who);
    }
}

void History::seeGone(Fact& fact, const Row& row, Who who) {
    fact.live = false;
    if (who == Who::change) {
        fact.removed = fact.touched = true;
        if (fact.renamed && !std::exchange(fact.twice, true))
            fact.theirs = row;                     // it was another one to the change
        fact.left.assign(fact.left.size(), false); // it comes back with what others wrote
        fact.vague = fact.vague || (fact.added && fact.has(fact.byOthers));
    } else if (who == Who::others) {
        fact.deleted = true;
        fact.vague = fact.vague || m_late;
        if (m_late)
            m_deleted.add(fact.table);
    } else if (!(fact.added && !fact.has(fact.byOthers)) && !fact.removed && !fact.vague &&
               m_whole) {
        wrong(fact, "is somebody else's and is removed");
    }
}

/// The fact that is not there and looks like a row, in its bridge if there is one.
Fact* History::missing(Table table, const Row& row) {
    const std::size_t key = keyOf(table);
    const std::size_t bridge = shapeOf(table).bridgeId;
    Fact* found = nullptr;
    for (const auto& fact : m_facts) {
        if (fact->live || (!fact->removed && m_whole) || fact->table != table ||
            fact->theirs.columns[key] != row.columns[key])
            continue;
        if (bridge == 0 || expected(*fact, bridge) == row.columns[bridge])
            return fact.get();
        found = fact.get();
    }
    return found;
}

void History::seeNew(Table table, const Row& row, Who who) {
    const std::size_t size = row.columns.size();
    if (who == Who::takingBack) {
        if (Fact* const fact = missing(table, row)) {
            if (fact->deleted && fact->noted)
                wrong(*fact, "was deleted by others and comes back");
            // Nobody knew who had removed it.
            fact->vague = fact->vague || fact->deleted || !fact->removed;
            fact->ours.assign(fact->ours.size(), fact->deleted || !fact->removed);
            fact->live = true;
            fact->deleted = fact->noted = false;
            fact->id = row.id();
            fact->cameBackAs = row;
            return;
        }
        // Nobody could know that others had renamed one which had just been put back.
        if (std::none_of(m_facts.begin(), m_facts.end(), [&](const auto& fact) {
                return fact->table == table && fact->live && !fact->noted && fact->renamed &&
                       !fact->cameBackAs.columns.empty() &&
                       fact->cameBackAs.columns[keyOf(table)] == row.columns[keyOf(table)];
            }))
            ADD_FAILURE() << "comes from nowhere, or twice: " << row.text() << "\n" << m_story;
    }
    auto fact = std::make_unique<Fact>();
    fact->table = table;
    fact->id = row.id();
    fact->theirs = row;
    fact->byOthers = fact->ours = fact->left = std::vector<bool>(size, false);
    fact->added = fact->touched = who == Who::change;
    fact->vague = m_late;
    if (!fact->added)
        fact->bridge = bridgeOf(table, row);
    // An Id that was the change's: others could as well have renamed its row.
    for (const auto& other : m_facts)
        if (who == Who::others && other->table == table &&
            (other->touched || table == Table::bridgeFilter) && other->id == row.id())
            other->vague = fact->vague = true;
    m_facts.push_back(std::move(fact));
}

void History::seeChanged(Fact& fact, const Row& before, const Row& now, Who who) {
    const TableShape& shape = shapeOf(fact.table);
    if (who == Who::change && fact.renamed) {
        fact.vague = fact.twice = true;
        fact.theirs = before;
    }
    for (std::size_t i = 1; i < now.columns.size(); ++i) {
        if (before.columns[i] == now.columns[i])
            continue;
        if (who == Who::change) {
            fact.touched = fact.ours[i] = true;
            fact.left[i] = false;
        } else if (who == Who::others) {
            fact.theirs.columns[i] = now.columns[i];
            fact.left[i] = fact.left[i] || fact.ours[i];
            fact.ours[i] = false;
            fact.byOthers[i] = true;
            fact.renamed = fact.renamed || (i == shape.subject && fact.touched);
            if (m_late && i == shape.subject)
                m_deleted.add(fact.table);
            fact.vague = fact.vague || m_late || i == shape.bridgeId;
            if (i == shape.bridgeId)
                fact.bridge = bridgeOf(fact.table, now);
        } else {
            if (!fact.ours[i] && i != shape.bridgeId)
                wrong(fact, "is overwritten: " + before.columns[i]);
            else if (now.columns[i] != expected(fact, i) && !fact.vague)
                wrong(fact, "gets what nobody wrote: " + now.columns[i]);
            fact.ours[i] = false;
        }
    }
}

/// What has to stand in a column in the end.
std::string History::expected(const Fact& fact, std::size_t column) {
    if (column == shapeOf(fact.table).bridgeId && fact.bridge != nullptr && fact.bridge->live)
        return std::to_string(fact.bridge->id);
    return fact.theirs.columns[column];
}

std::optional<std::pair<Table, Row>> History::any() {
    const Table table = *(kAllTables.begin() + pick(6));
    const Rows& rows = m_database.rows[table];
    if (rows.empty())
        return std::nullopt;
    return std::pair(table, rows[m_random() % rows.size()]);
}

std::string History::anyBridge() {
    const Rows& bridges = m_database.rows[Table::bridge];
    return bridges.empty() ? "99" : bridges[m_random() % bridges.size()].columns[0];
}

std::string History::value(Table table, std::size_t column, Who who) {
    const TableShape& shape = shapeOf(table);
    const std::string name(shape.columns[column].name);
    if (column == shape.bridgeId)
        return " " + name + " integer:" + anyBridge();
    if (shape.columns[column].text)
        return " " + name + " text:" + unique(who);
    return " " + name + " integer:" + std::to_string(1000 + ++m_unique);
}

/// Commands of one step of the change. "%" stands for the Id that the first one answers, "^" for
/// that of the last one.
std::vector<std::string> History::action(const Image& rows) {
    const std::string member = "insertkey BridgeInterface BridgeId integer:%";
    const auto row = any();
    switch (row ? pick(5) : 0) {
    case 0:
        return {"insertkey Bridge Name text:" + unique(Who::change),
                member + " Interface text:" + unique(Who::change),
                member + " Interface text:" + unique(Who::change),
                "updatekey BridgeInterface Id ^ Interface text:" + unique(Who::change)};
    case 1: {
        const std::string bridge = anyBridge();
        const Fact* const fact = find(Table::bridge, std::atoi(bridge.c_str()));
        // Where two have had one Id, or one name, nobody knows which a row refers to.
        if (fact == nullptr || fact->vague ||
            std::any_of(m_facts.begin(), m_facts.end(), [fact](const auto& other) {
                return other.get() != fact && other->table == Table::bridge &&
                       (other->id == fact->id ||
                        other->theirs.columns[1] == fact->theirs.columns[1]);
            }))
            return {};
        return {"deletekey BridgeInterface BridgeId " + bridge,
                "deletekey BridgeFilter BridgeId " + bridge, "deletekey Bridge Id " + bridge};
    }
    case 2:
        if (row->first == Table::bridge || row->first == Table::vlan)
            return {};
        return {"deletekey " + std::string(shapeOf(row->first).name) + " Id " +
                row->second.columns[0]};
    case 3: {
        const Table table = pick(2) == 0 ? Table::netif : Table::bridgeFilter;
        return {"insertkey " + std::string(shapeOf(table).name) +
                (table == Table::netif ? "" : value(table, 1, Who::change)) +
                value(table, keyOf(table), Who::change)};
    }
    default:
        if (rows.find(row->first, row->second.id()) == rows[row->first].end())
            return {};
        return {"updatekey " + std::string(shapeOf(row->first).name) + " Id " +
                row->second.columns[0] +
                value(row->first, 1 + m_random() % (row->second.columns.size() - 1), Who::change)};
    }
}

void History::begin() {
    m_database.lowestFree = pick(2) == 0;
    for (int id = 1; id < 4; ++id)
        m_database.rows[Table::vlan].push_back(
            {{std::to_string(id), "0", "lan" + std::to_string(id), "wan"}});
    see(Who::others);
    for (int n = pick(5); n > 0; --n) {
        std::string bridge = run(Who::others, "insertkey Bridge Name text:" + unique(Who::others));
        bridge.pop_back();
        for (const char* const rest : {"Interface", "Interface", "Filter"})
            if (*rest == 'I' || pick(2) == 0)
                run(Who::others, "insertkey Bridge" + std::string(rest) + " BridgeId integer:" +
                                     bridge + (*rest == 'I' ? " Interface" : " FilterRule") +
                                     " text:" + unique(Who::others));
    }
    for (int n = pick(5); n > 0; --n)
        run(Who::others, (pick(2) == 0 ? "insertkey StatusNetifConfig Name text:"
                                       : "insertkey NetworkSetupNode InterfaceName text:") +
                             unique(Who::others));
}

/// Rehearses and performs a request of the trial, as the agent does.
void History::request() {
    std::vector<std::vector<std::string>> actions;
    Image image = m_database.rows;
    Record planned = m_done;
    Stage rehearsal(image, &planned);
    for (int n = 1 + pick(3); n > 0; --n)
        actions.push_back(action(image));
    Image now = m_database.rows;
    Stage stage(now, &m_done);
    int until = pick(6) == 0 ? pick(8) : -1;
    const auto client = [&](const std::string& line) -> std::optional<std::string> {
        if (until == 0 && pick(2) == 0)
            return std::nullopt;
        std::string said = m_database.client(Who::change, line);
        return until-- == 0 ? std::nullopt : std::optional(said);
    };
    for (Stage* const on : {&rehearsal, &stage}) {
        for (const auto& commands : actions) {
            std::string first;
            std::string last;
            for (std::string command : commands) {
                for (std::size_t at; (at = command.find_first_of("%^")) != command.npos;)
                    command.replace(at, 1, command[at] == '%' ? first : last);
                last = std::to_string(
                    idIn(on->answer(" quorlet \" " + command + " ;\" ").value_or("")));
                first = first.empty() ? last : first;
            }
        }
        if (on == &rehearsal)
            m_database.journal = toText({false, planned});
        stage.perform(rehearsal.written(), client, [&](const Rehearsed& row, int id) {
            planned.renumber(row.command.table, row.trail, id);
            m_database.journal = toText({false, planned});
            return true;
        });
    }
    m_whole = stage.isWhole();
    if (m_whole)
        m_database.journal = toText({true, m_done});
    else if (pick(2) == 0)
        m_done = toEntry(m_database.journal)->record;
}

/// What others do at once.
void History::others() {
    const auto row = any();
    const std::string table = row ? std::string(shapeOf(row->first).name) : "";
    const int what = pick(8);
    if (what < 4 && row) {
        const std::size_t column = 1 + m_random() % (row->second.columns.size() - 1);
        if (m_whole || (column != shapeOf(row->first).subject && column != keyOf(row->first)))
            run(Who::others, "updatekey " + table + " Id " + row->second.columns[0] +
                                 value(row->first, column, Who::others));
    } else if (what < 6 && row && row->first != Table::vlan &&
               (row->first != Table::bridge || !m_late)) {
        run(Who::others, "deletekey " + table + " Id " + row->second.columns[0]);
    } else {
        std::string name = unique(Who::others);
        const Table into = *(kAllTables.begin() + pick(5));
        for (const auto& fact : m_facts) // in the place of one that the change has removed
            if (!m_late && fact->removed && !fact->added && !fact->live && fact->table == into &&
                pick(2) == 0)
                name = fact->theirs.columns[keyOf(into)];
        run(Who::others, "insertkey " + std::string(shapeOf(into).name) +
                             (shapeOf(into).bridgeId != 0 ? value(into, 1, Who::others) : "") +
                             " " + std::string(shapeOf(into).columns[keyOf(into)].name) +
                             " text:" + name);
    }
}

void History::takeBackAll() {
    m_late = true;
    m_actions = pick(4);
    m_database.stored = [this] {
        const auto entry = toEntry(m_database.journal);
        for (const auto& fact : m_facts)
            for (const Trail& trail : entry->record[fact->table].trails)
                if (trail.state == Return::back && trail.backId == fact->id)
                    fact->noted = !fact->cameBackAs.columns.empty();
    };
    m_database.others = [this] {
        if (m_actions > 0 && pick(8) == 0) {
            --m_actions;
            others();
        }
    };
    Image image;
    for (int tries = 0; tries < 60; ++tries) {
        m_database.until = tries < 20 && pick(2) == 0 ? 1 + pick(60) : -1;
        m_database.endsAfter = pick(2) == 0;
        const auto left = takeBack(m_done, image, m_database);
        if (left)
            return check(*left);
        if (pick(2) != 0)
            continue;
        m_done = toEntry(m_database.journal)->record;
        m_whole = false; // who renames and who is new can't be told apart any more
        image = {};
    }
    ADD_FAILURE() << "comes to no end\n" << m_story;
}

void History::play() {
    begin();
    for (int n = 1 + pick(3); n > 0 && m_whole; --n) {
        request();
        for (int k = pick(4); k > 0; --k)
            others();
    }
    takeBackAll();
}

/// Between how many and how many times a row may be counted.
std::pair<int, int> History::leftAlone(const Fact& fact) {
    const bool apart = hasNeighbours(fact.table) && fact.removed;
    const int most = fact.twice ? 2 : fact.touched || !m_whole ? 1 : 0;
    const bool inAdded = fact.bridge != nullptr && fact.bridge->added; // which goes, or is in use
    if (fact.vague || fact.twice || !m_whole || apart || inAdded)
        return {0, fact.vague && fact.table == Table::bridge ? 1 : most + (apart ? 1 : 0)};
    if (fact.added)
        return {fact.live ? 1 : 0, fact.live ? 1 : 0};
    const bool bridgeGone = fact.bridge != nullptr && !fact.bridge->live &&
                            fact.ours[shapeOf(fact.table).bridgeId]; // it can't go back
    const bool counts = !fact.live || fact.renamed || fact.has(fact.left) || bridgeGone;
    return {counts ? most : 0, counts ? most : 0};
}

void History::checkRow(Fact& fact) {
    const TableShape& shape = shapeOf(fact.table);
    const auto row = m_database.rows.find(fact.table, fact.id);
    const auto& rows = m_database.rows[fact.table];
    if (fact.added) {
        bool held = false;
        for (const Table table : kAllTables)
            for (const Row& each : m_database.rows[table])
                held = held || (fact.table == Table::bridge && shapeOf(table).bridgeId != 0 &&
                                each.columns[1] == std::to_string(fact.id));
        if (fact.live && !fact.has(fact.byOthers) && !fact.vague && !held)
            wrong(fact, "was added and is still there");
        return;
    }
    if (!fact.live) {
        const bool bridgeGone =
            fact.bridge != nullptr && (!fact.bridge->live || fact.bridge->added);
        if (!fact.deleted && !fact.vague && !bridgeGone && !m_deleted.has(fact.table) &&
            std::none_of(rows.begin(), rows.end(), [&](const Row& other) {
                return other.columns[shape.subject] == expected(fact, shape.subject);
            }))
            wrong(fact, "has not come back");
        return;
    }
    for (std::size_t i = 1; i < row->columns.size(); ++i) {
        const bool bridgeGone =
            i == shape.bridgeId &&
            (fact.vague || (fact.bridge != nullptr &&
                            (!fact.bridge->live || fact.bridge->vague || fact.bridge->added)));
        const bool excused =
            bridgeGone || (fact.ours[i] && (fact.renamed || fact.vague || !m_whole));
        if (row->columns[i] != expected(fact, i) && !excused)
            wrong(fact, "is not as it was: " + row->columns[i] + " for " + expected(fact, i));
    }
}

void History::check(int leftAlone) {
    int least = 0;
    int most = 0;
    for (const auto& fact : m_facts) {
        checkRow(*fact);
        const auto [from, to] = this->leftAlone(*fact);
        least += from;
        most += to;
    }
    if (leftAlone < least || leftAlone > most)
        ADD_FAILURE() << leftAlone << " rows are counted, of " << least << " to " << most << "\n"
                      << m_story;
}

TEST(HistoriesTest, LeaveToOthersWhatIsTheirs) {
    const char* const wanted = std::getenv("HISTORIES");
    const char* const first = std::getenv("FIRST");
    const unsigned seed = first == nullptr ? 0 : static_cast<unsigned>(std::atoi(first));
    const int count = wanted == nullptr ? 3000 : std::atoi(wanted);
    for (unsigned i = 0; i < static_cast<unsigned>(count) && !HasFailure(); ++i) {
        SCOPED_TRACE("history " + std::to_string(seed + i));
        History(seed + i).play();
    }
}

} // namespace
