// Which row stands for which trail of a record.

#include "agent/change/Comparison.h"

#include <algorithm>

namespace agent {

/// The present Id of a bridge that others had there.
std::string Comparison::present(const Chain& chain) const {
    const auto& bridges = chain.names == Names::later ? m_added : m_bridges;
    const std::string from = chain.from.value_or("");
    const auto found = chain.names == Names::none ? bridges.end() : bridges.find(from);
    return found != bridges.end() ? found->second : from;
}

/// The row as it was before, in its bridge as that is now.
Row Comparison::wanted(Table table, const Trail& trail) const {
    Row row = trail.before();
    if (const std::size_t column = shapeOf(table).bridgeId; column != 0)
        row.columns[column] = present(trail.columns[column]);
    return row;
}

bool Comparison::isOwn(Table table, const Trail& trail, std::size_t column,
                       const std::string& value) const {
    const Chain& chain = trail.columns[column];
    return chain.isOwn(value) ||
           (column == shapeOf(table).bridgeId &&
            std::any_of(chain.own.begin(), chain.own.end(), [&](const std::string& own) {
                const auto found = m_added.find(own);
                return found != m_added.end() && found->second == value;
            }));
}

/// Whether all values are the change's own, or those that were there before.
bool Comparison::isWhole(Table table, const Trail& trail, const Row& row) const {
    if (!row.fits(table))
        return false;
    const Row want = wanted(table, trail);
    for (std::size_t i = 1; i < row.columns.size(); ++i) {
        const std::optional<std::string>& from = trail.columns[i].from;
        const bool before = from == row.columns[i] || (from && want.columns[i] == row.columns[i]);
        if (!before && !isOwn(table, trail, i, row.columns[i]))
            return false;
    }
    return true;
}

/// Whether a row has come since the record was made.
bool Comparison::isNew(Table table, const Row& row) const {
    const auto& trails = m_record[table].trails;
    const bool back = std::any_of(trails.begin(), trails.end(), [&](const Trail& trail) {
        return trail.state == Return::back && trail.backId == row.id();
    });
    const auto last = std::find_if(trails.rbegin(), trails.rend(),
                                   [&](const Trail& trail) { return trail.id == row.id(); });
    return !m_record[table].hadBefore(row.id()) && !back &&
           (last == trails.rend() || !last->alters());
}

/// Whether the change has got the row's Id again for another one: others have deleted the first.
bool Comparison::isReplaced(Table table, const Trail& trail) const {
    const auto& trails = m_record[table].trails;
    return !trail.removed && std::any_of(trails.begin(), trails.end(), [&](const Trail& other) {
        return &other > &trail && other.id == trail.id && other.added;
    });
}

/// Gives a trail the first row that is the one, and that no other trail has.
template <class IsIt>
bool Comparison::lead(Table table, const Trail* trail, Standing& standing, const IsIt& isIt) const {
    const Rows& rows = m_now[table];
    const auto row = std::find_if(rows.begin(), rows.end(), [&](const Row& each) {
        return standing.taken.count(&each) == 0 && isIt(each);
    });
    if (row == rows.end())
        return false;
    standing.rows[trail] = &*row;
    standing.taken.insert(&*row);
    return true;
}

/// Finds the rows that have been put back, and those that were being put back when the client, or
/// this program, was ended.
void Comparison::claimBack(Table table, Standing& standing) const {
    // One that others have deleted again can have left its Id to another.
    const auto claimKnown = [&](bool changed) {
        for (const Trail* trail : standing.trails) {
            if (!trail->returns() || trail->state != Return::back ||
                standing.rows.count(trail) != 0)
                continue;
            const Row want = wanted(table, *trail);
            lead(table, trail, standing, [&](const Row& row) {
                return row.id() == trail->backId && row.fits(table) &&
                       (changed || row.sameButId(want));
            });
        }
    };
    claimKnown(false);
    const std::vector<int>& alike = m_record[table].alike;
    for (Trail* trail : standing.trails) {
        if (!trail->returns() || trail->state != Return::tried)
            continue;
        const Row want = wanted(table, *trail);
        const bool found = lead(table, trail, standing, [&](const Row& row) {
            return row.sameButId(want) &&
                   std::find(alike.begin(), alike.end(), row.id()) == alike.end();
        });
        if (!found)
            continue;
        trail->state = Return::back;
        trail->backId = standing.rows[trail]->id();
    }
    claimKnown(true);
}

/// Finds rows under the Ids that they are known to have.
void Comparison::claimById(Table table, Standing& standing) const {
    const auto whole = [&](const Trail* trail) {
        lead(table, trail, standing,
             [&](const Row& row) { return row.id() == trail->id && isWhole(table, *trail, row); });
    };
    // The last one first: there are two where others have renamed the row in between.
    const std::size_t subject = shapeOf(table).subject;
    std::for_each(standing.trails.rbegin(), standing.trails.rend(), [&](const Trail* trail) {
        if (!trail->alters() || isReplaced(table, *trail))
            return;
        const Row want = wanted(table, *trail); // where it has followed its bridge
        lead(table, trail, standing, [&](const Row& row) {
            return trail->isAbout(table, row) || (row.id() == trail->id && row.fits(table) &&
                                                  row.columns[subject] == want.columns[subject]);
        });
    });
    // A removal that can have been left out.
    for (const Trail* trail : standing.trails)
        if (trail->returns() && !trail->sure && trail->state != Return::back)
            whole(trail);
    for (const Trail* trail : standing.trails)
        if (trail->added && !(trail->removed && trail->sure) && !isReplaced(table, *trail))
            whole(trail);
}

/// Finds the row that was being added when the client, or this program, was ended. It is one at
/// most.
void Comparison::claimLost(Table table, Standing& standing) {
    for (const Trail* trail : standing.trails) {
        if (!trail->added || trail->sure || trail->told || m_foundLost ||
            standing.rows.count(trail) != 0)
            continue;
        m_foundLost = lead(table, trail, standing, [&](const Row& row) {
            return !m_record[table].hadBefore(row.id()) && isWhole(table, *trail, row);
        });
    }
}

/// Finds bridges that were being put back then, and that others have changed since: what was in
/// them could not come back without.
void Comparison::claimChangedBridges(Standing& standing) const {
    const std::size_t subject = shapeOf(Table::bridge).subject;
    for (Trail* trail : standing.trails) {
        if (!trail->returns() || trail->state != Return::tried || standing.rows.count(trail) != 0)
            continue;
        const bool found = lead(Table::bridge, trail, standing, [&](const Row& row) {
            return row.fits(Table::bridge) && isNew(Table::bridge, row) &&
                   row.columns[subject] == trail->columns[subject].from;
        });
        if (!found)
            continue;
        trail->state = Return::back;
        trail->backId = standing.rows[trail]->id();
    }
}

/// Gives each row to one trail at most. What is being put back comes first: such a row can look
/// like one that the change has added, and can have its Id.
Comparison::Standing Comparison::claim(Table table) {
    Standing standing;
    for (Trail& trail : m_record[table].trails)
        standing.trails.push_back(&trail);
    std::stable_sort(standing.trails.begin(), standing.trails.end(),
                     [](const Trail* one, const Trail* other) { return one->id < other->id; });
    claimBack(table, standing);
    claimById(table, standing);
    claimLost(table, standing);
    if (table == Table::bridge)
        claimChangedBridges(standing);
    return standing;
}

} // namespace agent
