#include "Restore.h"

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <utility>

namespace agent {

namespace {

constexpr int kRoundsForNeighbours = 5; ///< others can come between again

/// A text that the client takes as it is, whatever stands behind it.
bool isPlain(const std::string& text) {
    const bool unsafe = std::any_of(text.begin(), text.end(), [](char c) {
        return static_cast<unsigned char>(c) < ' ' || c == 0x7f || c == '"' || c == '$' ||
               c == '`' || c == '\\' || c == ';';
    });
    const bool blanks = !text.empty() && (text.front() == ' ' || text.back() == ' ');
    return !unsafe && !blanks && text.find(" integer:") == text.npos &&
           text.find(" text:") == text.npos;
}

bool isInteger(const std::string& text) {
    const std::size_t sign = !text.empty() && text.front() == '-' ? 1 : 0;
    return text.size() > sign && text.find_first_not_of("0123456789", sign) == text.npos;
}

std::string typed(const Column& column, const std::string& value) {
    return std::string(" ") + std::string(column.name) + (column.text ? " text:" : " integer:") +
           value;
}

std::string commandLine(const std::string& command) {
    return " quorlet \" " + command + " ;\" ";
}

/// One comparison of a record with the database.
class Comparison {
public:
    Comparison(const Record& record, const Image& now, bool unite)
        : m_record(record), m_now(now), m_unite(unite) {}

    Restoring run() {
        for (const Table table : kAllTables) {
            const bool waits = m_bridgesMissing && shapeOf(table).bridgeId != 0;
            if (m_record.touches(table) && !waits)
                compare(table);
        }
        if (!m_bridgesMissing)
            std::move(m_last.begin(), m_last.end(), std::back_inserter(m_result.commands));
        return std::move(m_result);
    }

private:
    using Taken = std::vector<bool>;
    using Led = std::map<const Trail*, const Row*>;
    using Trails = std::vector<const Trail*>;

    /// What trails have led to.
    struct Found {
        Led back;    ///< rows that were there before, as they were or not yet
        Led extra;   ///< rows that the change made besides
        Taken taken; ///< all of these
    };

    /// The version as it would be now, with the bridge's present Id.
    Row translated(Table table, Row row) const {
        if (const std::size_t column = shapeOf(table).bridgeId; column != 0)
            if (const auto found = m_bridges.find(row.columns[column]); found != m_bridges.end())
                row.columns[column] = found->second;
        return row;
    }

    static bool same(const Row& now, const Row& wanted) {
        return now.columns.size() == wanted.columns.size() &&
               std::equal(now.columns.begin() + 1, now.columns.end(), wanted.columns.begin() + 1);
    }

    bool isBefore(Table table, const Row& now, const Trail& trail) const {
        return trail.before() && same(now, translated(table, *trail.before()));
    }

    /// Whether a row is a version from that one on, with its bridge's Id or that of one like it:
    /// of bridges that are alike nobody can tell which the change has added.
    bool isVersion(Table table, const Row& now, const Trail& trail, std::size_t from) const {
        const std::size_t bridge = shapeOf(table).bridgeId;
        return std::any_of(
            trail.versions.begin() + static_cast<std::ptrdiff_t>(from), trail.versions.end(),
            [&](const auto& version) {
                if (!version || now.columns.size() != version->columns.size())
                    return false;
                Row wanted = *version;
                if (bridge != 0 && m_like.count({wanted.columns[bridge], now.columns[bridge]}) != 0)
                    wanted.columns[bridge] = now.columns[bridge];
                return same(now, wanted);
            });
    }

    /// Whether a row has come since the record was made, or can have.
    bool isNew(Table table, const Row& row) const {
        const auto& [others, trails] = m_record[table];
        return std::find(others.begin(), others.end(), row.id()) == others.end() &&
               std::none_of(trails.begin(), trails.end(), [&](const Trail& trail) {
                   return trail.id == row.id() && trail.before() && !trail.removed();
               });
    }

    bool cameBack(Table table, const Row& row, const Trail& trail) const {
        return trail.removed() && isNew(table, row) && isBefore(table, row, trail);
    }

    /// Rows that were neighbours in one bridge, and that the change removes.
    static std::vector<Trails> runsOfNeighbours(Table table, const Trails& trails) {
        std::vector<Trails> runs;
        if (!hasNeighbours(table))
            return runs;
        const std::size_t bridge = shapeOf(table).bridgeId;
        for (const Trail* trail : trails) {
            if (!trail->removed())
                continue;
            const Trail* const last = runs.empty() ? nullptr : runs.back().back();
            if (last != nullptr && last->id + 1 == trail->id &&
                last->before()->columns[bridge] == trail->before()->columns[bridge])
                runs.back().push_back(trail);
            else
                runs.push_back({trail});
        }
        return runs;
    }

    /// Finds neighbours, or the first of them, where they are or have come back as such. Others can
    /// have rows that look like one.
    void leadTogether(Table table, const Trails& neighbours, Found& found) const {
        const Rows& rows = m_now[table];
        const auto standAt = [&](std::size_t first, std::size_t count) {
            for (std::size_t i = 0; i < count; ++i)
                if (found.taken[first + i] ||
                    rows[first + i].id() != rows[first].id() + static_cast<int>(i) ||
                    !cameBack(table, rows[first + i], *neighbours[i]))
                    return false;
            return true;
        };
        for (std::size_t count = neighbours.size(); count > 1; --count) {
            for (std::size_t first = 0; first + count <= rows.size(); ++first) {
                if (!standAt(first, count))
                    continue;
                for (std::size_t i = 0; i < count; ++i) {
                    found.back[neighbours[i]] = &rows[first + i];
                    found.taken[first + i] = true;
                }
                return;
            }
        }
    }

    /// Has neighbours made anew that came back apart. The first of them may be there without the
    /// others, which are then inserted behind.
    void unite(Table table, const Trails& trails, Found& found) {
        for (const Trails& neighbours : runsOfNeighbours(table, trails)) {
            std::vector<const Row*> rows;
            bool together = true;
            bool othersChanged = false;
            for (std::size_t i = 0; i < neighbours.size(); ++i) {
                const Trail* const trail = neighbours[i];
                const auto row = found.back.find(trail);
                if (row == found.back.end()) {
                    othersChanged =
                        othersChanged ||
                        changedByOthers(table, *trail, 0, trail->ofBefore(), found.taken);
                    continue;
                }
                together = together && rows.size() == i &&
                           (i == 0 || row->second->id() == rows.back()->id() + 1);
                rows.push_back(row->second);
            }
            if (together || othersChanged)
                continue;
            if (!m_unite) {
                m_result.leftAlone += static_cast<int>(rows.size());
                continue;
            }
            for (const Row* row : rows)
                remove(table, *row);
            for (const Trail* trail : neighbours)
                found.back.erase(trail);
        }
    }

    /// Whether somebody else's version of a row stands where one of these versions should.
    bool changedByOthers(Table table, const Trail& trail, std::size_t from, std::size_t to,
                         const Taken& taken) const {
        const std::size_t subject = shapeOf(table).subject;
        const Rows& rows = m_now[table];
        for (std::size_t i = 0; i < rows.size(); ++i) {
            if (taken[i] || rows[i].id() != trail.id)
                continue;
            for (std::size_t v = from; v < to; ++v)
                if (const auto& version = trail.versions[v];
                    version && rows[i].columns.size() == version->columns.size() &&
                    rows[i].columns[subject] == version->columns[subject])
                    return true;
        }
        return false;
    }

    /// Gives each row to one trail at most, and looks through the whole table for the sake of one
    /// kind before the next.
    Found follow(Table table, const Trails& trails) const {
        const Rows& rows = m_now[table];
        Found found{{}, {}, Taken(rows.size(), false)};
        const auto lead = [&](Led& led, const auto& leads) {
            for (const Trail* trail : trails)
                for (std::size_t i = 0; i < rows.size() && led.count(trail) == 0; ++i)
                    if (!found.taken[i] && leads(*trail, rows[i])) {
                        led[trail] = &rows[i];
                        found.taken[i] = true;
                    }
        };
        const auto here = [](const Trail& trail, const Row& row) { return row.id() == trail.id; };

        // What is as it was comes first, under any Id: a row that came back can look like what the
        // change made of another, or added, and can have the Id of either.
        for (const Trails& neighbours : runsOfNeighbours(table, trails))
            leadTogether(table, neighbours, found);
        lead(found.back, [&](const Trail& trail, const Row& row) {
            return here(trail, row) && isBefore(table, row, trail);
        });
        lead(found.back,
             [&](const Trail& trail, const Row& row) { return cameBack(table, row, trail); });
        lead(found.back, [&](const Trail& trail, const Row& row) {
            return trail.before() && here(trail, row) && isVersion(table, row, trail, 0);
        });
        // Of the rest, what the change made is too much.
        lead(found.extra, [&](const Trail& trail, const Row& row) {
            return here(trail, row) && isVersion(table, row, trail, 0);
        });
        lead(found.extra, [&](const Trail& trail, const Row& row) {
            return isNew(table, row) && isVersion(table, row, trail, trail.ofBefore());
        });
        return found;
    }

    void compare(Table table) {
        Trails trails;
        for (const Trail& trail : m_record[table].trails)
            trails.push_back(&trail);
        // So that the rows of an emptied table get back the Ids that they had.
        std::sort(trails.begin(), trails.end(),
                  [](const Trail* one, const Trail* other) { return one->id < other->id; });
        Found found = follow(table, trails);
        unite(table, trails, found);
        const auto& [back, extra, taken] = found;
        if (table == Table::bridge) {
            for (const auto& [trail, row] : back)
                m_bridges[std::to_string(trail->id)] = row->columns[0];
            for (const Trail* trail : trails)
                for (const Row& row : m_now[table])
                    if ((row.id() == trail->id || isNew(table, row)) &&
                        isVersion(table, row, *trail, 0))
                        m_like.insert({std::to_string(trail->id), row.columns[0]});
        }

        for (const auto& [trail, row] : back)
            bring(table, *trail, *row);
        for (const Trail* trail : trails) {
            if (const auto row = extra.find(trail); row != extra.end())
                remove(table, *row->second);
            else if (changedByOthers(table, *trail, trail->ofBefore(), trail->versions.size(),
                                     taken))
                ++m_result.leftAlone;
        }
        for (const Trail* trail : trails) {
            if (!trail->before() || back.count(trail) != 0)
                continue;
            if (!trail->removed() || changedByOthers(table, *trail, 0, trail->ofBefore(), taken))
                ++m_result.leftAlone;
            else
                insert(table, *trail);
        }
    }

    void bring(Table table, const Trail& trail, const Row& now) {
        const Row wanted = translated(table, *trail.before());
        std::string changes;
        const TableShape& shape = shapeOf(table);
        for (std::size_t i = 1; i < shape.columns.size(); ++i)
            if (now.columns[i] != wanted.columns[i])
                changes += typed(shape.columns[i], wanted.columns[i]);
        if (!changes.empty())
            update(table, now, changes);
    }

    void update(Table table, const Row& now, const std::string& changes) {
        m_result.commands.push_back(commandLine("updatekey " + std::string(shapeOf(table).name) +
                                                " Id " + std::to_string(now.id()) + changes));
    }

    void remove(Table table, const Row& now) {
        auto& commands = table == Table::bridge ? m_last : m_result.commands;
        commands.push_back(commandLine("deletekey " + std::string(shapeOf(table).name) + " Id " +
                                       std::to_string(now.id())));
    }

    void insert(Table table, const Trail& trail) {
        const TableShape& shape = shapeOf(table);
        const Row wanted = translated(table, *trail.before());
        m_bridgesMissing = m_bridgesMissing || table == Table::bridge;
        std::string values;
        for (std::size_t i = 1; i < shape.columns.size(); ++i)
            values += typed(shape.columns[i], wanted.columns[i]);
        m_result.commands.push_back(commandLine("insertkey " + std::string(shape.name) + values));
    }

    const Record& m_record;
    const Image& m_now;
    const bool m_unite;                                   ///< neighbours that are apart
    std::map<std::string, std::string> m_bridges;         ///< present Ids by those in the record
    std::set<std::pair<std::string, std::string>> m_like; ///< Ids in the record, and present ones
    bool m_bridgesMissing = false; ///< what refers to any waits until all are back
    std::vector<std::string>
        m_last; ///< bridges go after what refers to them, which tells whose it is
    Restoring m_result;
};

} // namespace

Tables tablesToRestore(const Record& record) {
    Tables tables;
    for (const Table table : kAllTables)
        if (record.touches(table))
            tables.add(table);
    return tables;
}

Restoring restoring(const Record& record, const Image& now, int round) {
    return Comparison(record, now, round < kRoundsForNeighbours).run();
}

bool canBeRestored(const Record& record) {
    for (const Table table : kAllTables) {
        const TableShape& shape = shapeOf(table);
        for (const Trail& trail : record[table].trails) {
            if (!trail.before())
                continue;
            for (std::size_t i = 1; i < shape.columns.size(); ++i)
                if (const std::string& value = trail.before()->columns[i];
                    !(shape.columns[i].text ? isPlain(value) : isInteger(value)))
                    return false;
        }
    }
    return true;
}

} // namespace agent
