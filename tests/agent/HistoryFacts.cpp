// What has come of each row in a history, and what should have.

#include "History.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

using namespace agent;

std::size_t keyOf(Table table) {
    return table == Table::bridgeFilter ? 2 : shapeOf(table).subject;
}

void History::wrong(const Fact& fact, const std::string& what) const {
    ADD_FAILURE() << shapeOf(fact.table).name << " " << fact.id << " " << what << "\n" << m_story;
}

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
        if (fact.renamed) {
            fact.twice = true;
            fact.theirs = row;
            fact.bridge = bridgeOf(fact.table, row);
        }
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
                return fact->table == table && fact->live && !fact->noted && fact->vague &&
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
        fact.theirs = before; // it is another one to the change
        fact.bridge = bridgeOf(fact.table, before);
        fact.renamed = false;
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

/// Between how many and how many times a row may be counted.
std::pair<int, int> History::leftAlone(const Fact& fact) {
    const bool apart = hasNeighbours(fact.table) && fact.removed;
    const int most = fact.twice ? 2 : fact.touched || !m_whole ? 1 : 0;
    const bool inAdded = fact.bridge != nullptr && fact.bridge->added; // which goes, or is in use
    if (fact.vague || fact.twice || !m_whole || apart || inAdded)
        return {0, std::max(most, fact.vague && fact.table == Table::bridge ? 1 : 0) +
                       (apart ? 1 : 0)};
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
    if (!fact.live && !m_whole && row != m_database.rows[fact.table].end())
        return; // it could be that one, changed by others
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
