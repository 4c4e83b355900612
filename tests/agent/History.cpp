// What happens in a history.

#include "History.h"

#include <gtest/gtest.h>

#include <cstdlib>

using namespace agent;

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
        const auto isTwice = [&](const std::string& key) {
            return std::count_if(m_facts.begin(), m_facts.end(), [&](const auto& fact) {
                       return fact->table == into && fact->theirs.columns[keyOf(into)] == key;
                   }) > 1;
        };
        for (const auto& fact : m_facts) // in the place of one that the change has removed
            if (!m_late && fact->removed && !fact->added && !fact->live && fact->table == into &&
                !isTwice(fact->theirs.columns[keyOf(into)]) && pick(2) == 0)
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
        for (const auto& fact : m_facts) {
            const auto& trails = entry->record[fact->table].trails;
            fact->noted = !fact->cameBackAs.columns.empty() &&
                          std::any_of(trails.begin(), trails.end(), [&fact](const Trail& trail) {
                              return trail.state == Return::back && trail.backId == fact->id;
                          });
        }
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
