#include "agent/change/Comparison.h"

#include <algorithm>

namespace agent {

namespace {

/// Rows that were neighbours in one bridge, and that the change removes.
std::vector<std::vector<Trail*>> runsOfNeighbours(Table table, const std::vector<Trail*>& trails) {
    std::vector<std::vector<Trail*>> runs;
    const std::size_t bridge = shapeOf(table).bridgeId;
    for (Trail* trail : trails) {
        if (!trail->returns())
            continue;
        const Trail* const last = runs.empty() ? nullptr : runs.back().back();
        if (last != nullptr && last->id + 1 == trail->id &&
            last->columns[bridge].from == trail->columns[bridge].from)
            runs.back().push_back(trail);
        else
            runs.push_back({trail});
    }
    return runs;
}

} // namespace

Comparison::Comparison(Record& record, const Image& now, bool unite)
    : m_record(record), m_now(now), m_unite(unite) {
    for (const Table table : kAllTables) {
        const bool waits = m_bridgesMissing && shapeOf(table).bridgeId != 0;
        if (m_record.touches(table) && !waits)
            compare(table);
    }
    if (!m_bridgesMissing)
        removeBridges();
}

/// Whether a bridge was there and is no longer.
bool Comparison::isGone(const Chain& chain) const {
    const auto& trails = m_record[Table::bridge].trails;
    const int id = Row{{present(chain)}}.id();
    const int before = Row{{chain.from.value_or("")}}.id();
    if (chain.names == Names::none)
        return false;
    const bool goes = std::any_of(m_bridgesToGo.begin(), m_bridgesToGo.end(),
                                  [id](const auto& each) { return each.second->id() == id; });
    const bool missing = std::any_of(trails.begin(), trails.end(), [&](const Trail& trail) {
        return chain.names == Names::bridge && trail.returns() && trail.id == before &&
               m_bridges.count(*chain.from) == 0;
    });
    return goes || missing || m_now.find(Table::bridge, id) == m_now[Table::bridge].end();
}

/// The present Ids of bridges that were there before, and of those that the change has added.
void Comparison::learnBridges(const Standing& standing) {
    for (const Trail* trail : standing.trails) {
        const auto found = standing.rows.find(trail);
        if (found != standing.rows.end())
            (trail->added ? m_added : m_bridges)
                .insert({std::to_string(trail->id), found->second->columns[0]});
        // What was in it comes back all the same: a bridge is known by its name.
        else if (const Row* const other = inPlaceOf(Table::bridge, *trail, standing);
                 other != nullptr && trail->returns())
            m_bridges.insert({std::to_string(trail->id), other->columns[0]});
    }
}

void Comparison::compare(Table table) {
    Standing standing = claim(table);
    if (hasNeighbours(table))
        unite(table, standing);
    if (table == Table::bridge)
        learnBridges(standing);
    std::set<int> left; // two trails can be about one row, before and after others renamed it
    for (Trail* trail : standing.trails) {
        if (!isLeft(table, *trail, standing))
            continue;
        const auto row = standing.rows.find(trail);
        const int id = row != standing.rows.end() ? row->second->id() : trail->id;
        if (trail->returns() || isReplaced(table, *trail))
            ++m_leftAlone;
        else
            left.insert(id);
    }
    m_leftAlone += static_cast<int>(left.size());
    for (Trail* trail : standing.trails)
        if (trail->returns() && standing.rows.count(trail) == 0 && trail->mayReturn())
            insert(table, *trail);
}

/// Does for a row what can be done to it where it is.
/// @return whether it can't be as it was before, since others have changed it
bool Comparison::isLeft(Table table, Trail& trail, const Standing& standing) {
    const auto found = standing.rows.find(&trail);
    const Row* const row = found == standing.rows.end() ? nullptr : found->second;
    if (trail.added)
        return row != nullptr ? !takeAway(table, trail, *row) : isTheirs(table, trail, standing);
    if (trail.alters())
        return row != nullptr ? bring(table, trail, *row) : trail.writes();
    if (row != nullptr)
        return trail.state == Return::back ? !row->sameButId(wanted(table, trail))
                                           : bring(table, trail, *row);
    if (trail.mayReturn() && !canReturn(table, trail, standing))
        trail.state = Return::givenUp;
    return !trail.mayReturn();
}

/// Whether others have renamed a row that the change has added, or put one of theirs in its place:
/// only the first for a row of which nobody knows whether it was added at all.
bool Comparison::isTheirs(Table table, const Trail& trail, const Standing& standing) const {
    const std::size_t subject = shapeOf(table).subject;
    const std::size_t bridge = shapeOf(table).bridgeId;
    const auto isOwnIn = [&](const Row& each, std::size_t column) {
        return column == 0 || isOwn(table, trail, column, each.columns[column]);
    };
    const Rows& rows = m_now[table];
    auto row = m_now.find(table, trail.id);
    if (row == rows.end() && !trail.sure && !trail.told && !m_foundLost) // it can have another Id
        row = std::find_if(rows.begin(), rows.end(), [&](const Row& each) {
            return each.fits(table) && isNew(table, each) && isOwnIn(each, subject) &&
                   isOwnIn(each, bridge);
        });
    if (row == rows.end() || !row->fits(table) || isReplaced(table, trail))
        return false;
    const bool taken =
        std::any_of(standing.rows.begin(), standing.rows.end(), [row](const auto& each) {
            return each.second == &*row && !each.first->alters();
        });
    if (taken)
        return false;
    return trail.sure ? !trail.removed : isOwnIn(*row, subject);
}

/// Has the columns go back that still have one of the change's values.
/// @return whether one has somebody else's
bool Comparison::bring(Table table, const Trail& trail, const Row& now) {
    const std::size_t bridge = shapeOf(table).bridgeId;
    const Row want = wanted(table, trail);
    Step step{Command::update(table, now.id()), nullptr, now, false};
    bool left = false;
    for (std::size_t i = 1; i < now.columns.size(); ++i) {
        const Chain& chain = trail.columns[i];
        const bool refers = i == bridge && bridge != 0;
        if (!chain.from || now.columns[i] == want.columns[i] || (chain.own.empty() && !refers))
            continue;
        const bool ours = *chain.from == now.columns[i] || isOwn(table, trail, i, now.columns[i]);
        if (!ours || (refers && isGone(chain))) {
            left = left || !chain.own.empty();
            continue;
        }
        step.command.with(i, want.columns[i]);
        if (refers)
            m_leaving.insert(&now);
    }
    if (!step.command.columns.empty())
        m_steps.push_back(std::move(step));
    return left;
}

/// Has a row go that the change has added, unless others have written in it.
bool Comparison::takeAway(Table table, Trail& trail, const Row& now) {
    if (std::any_of(trail.columns.begin(), trail.columns.end(),
                    [](const Chain& chain) { return chain.from.has_value(); })) {
        bring(table, trail, now);
        return false;
    }
    if (table == Table::bridge) {
        m_bridgesToGo.emplace_back(&trail, &now);
    } else {
        m_steps.push_back({Command::remove(table, now.id()), &trail, now, trail.sure});
        m_leaving.insert(&now);
    }
    return true;
}

void Comparison::insert(Table table, Trail& trail) {
    const Row row = wanted(table, trail);
    m_bridgesMissing = m_bridgesMissing || table == Table::bridge;
    Step step{Command::insert(table), &trail, {}, false};
    for (std::size_t i = 1; i < row.columns.size(); ++i)
        step.command.with(i, row.columns[i]);
    m_steps.push_back(std::move(step));
}

/// Whether a row may be put back: nothing stands in its place, and its bridge is there.
bool Comparison::canReturn(Table table, const Trail& trail, const Standing& standing) const {
    const std::size_t bridge = shapeOf(table).bridgeId;
    return (bridge == 0 || !isGone(trail.columns[bridge])) &&
           inPlaceOf(table, trail, standing) == nullptr;
}

/// The row for the same subject that others have put there since, or the row itself, when they have
/// changed it and its removal can have been left out; null for none.
const Row* Comparison::inPlaceOf(Table table, const Trail& trail, const Standing& standing) const {
    const TableShape& shape = shapeOf(table);
    const Row row = wanted(table, trail);
    const Rows& rows = m_now[table];
    const auto found = std::find_if(rows.begin(), rows.end(), [&](const Row& other) {
        if (standing.taken.count(&other) != 0 || !other.fits(table))
            return false;
        const auto same = [&](std::size_t column) {
            return other.columns[column] == row.columns[column];
        };
        const bool itself = !trail.sure && trail.isAbout(table, other);
        return itself || (isNew(table, other) && same(shape.subject) &&
                          (shape.bridgeId == 0 || same(shape.bridgeId)));
    });
    return found == rows.end() ? nullptr : &*found;
}

/// Has neighbours made anew that came back apart. The first of them may be there without the
/// others, which are then inserted behind.
void Comparison::unite(Table table, Standing& standing) {
    for (const auto& neighbours : runsOfNeighbours(table, standing.trails)) {
        std::vector<const Row*> rows;
        bool together = true;
        bool othersChanged = false;
        for (std::size_t i = 0; i < neighbours.size(); ++i) {
            const Trail& trail = *neighbours[i];
            const auto row = standing.rows.find(&trail);
            if (row == standing.rows.end()) {
                othersChanged =
                    othersChanged || !trail.mayReturn() || !canReturn(table, trail, standing);
                continue;
            }
            othersChanged = othersChanged || (trail.state == Return::back &&
                                              !row->second->sameButId(wanted(table, trail)));
            together = together && rows.size() == i &&
                       (i == 0 || row->second->id() == rows.back()->id() + 1);
            rows.push_back(row->second);
        }
        if (together || othersChanged)
            continue;
        if (!m_unite)
            m_leftAlone += static_cast<int>(rows.size());
        else
            makeAnew(table, neighbours, standing);
    }
}

void Comparison::makeAnew(Table table, const std::vector<Trail*>& neighbours, Standing& standing) {
    for (Trail* trail : neighbours) {
        const auto row = standing.rows.find(trail);
        if (row == standing.rows.end())
            continue;
        m_steps.push_back(
            {Command::remove(table, row->second->id()), trail, *row->second, trail->sure});
        trail->state = Return::tried;
        standing.rows.erase(row);
    }
}

/// Whether a row is in a bridge that stays there: others have put it there, or left it with the Id.
bool Comparison::isHeld(const Row& bridge) const {
    for (const Table table : kAllTables) {
        const std::size_t column = shapeOf(table).bridgeId;
        if (column == 0 || !m_record[table].known)
            continue;
        for (const Row& row : m_now[table])
            if (row.fits(table) && row.columns[column] == bridge.columns[0] &&
                m_leaving.count(&row) == 0)
                return true;
    }
    return false;
}

/// Has bridges go that the change has added. One that others use has to stay.
void Comparison::removeBridges() {
    for (const auto& [trail, row] : m_bridgesToGo) {
        if (isHeld(*row))
            ++m_leftAlone;
        else
            m_steps.push_back(
                {Command::remove(Table::bridge, row->id()), trail, *row, trail->sure});
    }
}

} // namespace agent
