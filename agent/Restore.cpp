#include "Restore.h"

#include <algorithm>
#include <map>

namespace agent {

namespace {

/** A text that the client takes as it is, whatever stands behind it. */
bool isPlain(const std::string& text) {
    const bool unsafe = std::any_of(text.begin(), text.end(), [](char c) {
        return static_cast<unsigned char>(c) < ' ' || c == 0x7f || c == '"' || c == '$' ||
               c == '`' || c == '\\' || c == ';';
    });
    const bool blanks = !text.empty() && (text.front() == ' ' || text.back() == ' ');
    return !unsafe && !blanks && text.find(" integer:") == text.npos &&
           text.find(" text:") == text.npos;
}

std::string typed(const Column& column, const std::string& value) {
    return std::string(" ") + std::string(column.name) + (column.text ? " text:" : " integer:") +
           value;
}

std::string commandLine(const std::string& command) {
    return " quorlet \" " + command + " ;\" ";
}

/** One comparison of a record with the database. */
class Comparison {
public:
    Comparison(const Record& record, const Image& now) : m_record(record), m_now(now) {}

    Restoring run() {
        for (const Table table : kAllTables) {
            if (m_record.touches(table))
                compare(table);
            else if (shapeOf(table).bridgeId != 0)
                followBridges(table, std::vector<bool>(m_now[table].size(), false));
        }
        return std::move(m_result);
    }

private:
    using Taken = std::vector<bool>;
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    /** The version as it would be now, with the bridge's present Id. */
    Row translated(Table table, Row row) const {
        if (const std::size_t column = shapeOf(table).bridgeId; column != 0)
            if (const auto found = m_bridges.find(row.columns[column]); found != m_bridges.end())
                row.columns[column] = found->second;
        return row;
    }

    bool sameBesidesId(Table table, const Row& now, const Row& version) const {
        const Row wanted = translated(table, version);
        return now.columns.size() == wanted.columns.size() &&
               std::equal(now.columns.begin() + 1, now.columns.end(), wanted.columns.begin() + 1);
    }

    bool isVersion(Table table, const Row& now, const Trail& trail) const {
        return std::any_of(trail.versions.begin(), trail.versions.end(), [&](const auto& version) {
            return version && sameBesidesId(table, now, *version);
        });
    }

    /** The row that a trail has led to: under its Id, or come anew under another. */
    std::size_t match(Table table, const Trail& trail, const Taken& taken) const {
        const Rows& rows = m_now[table];
        const std::vector<int>& others = m_record[table].others;
        std::size_t anew = kNone;
        for (std::size_t i = 0; i < rows.size(); ++i) {
            if (taken[i] || !isVersion(table, rows[i], trail))
                continue;
            if (rows[i].id() == trail.id)
                return i;
            const bool other =
                std::find(others.begin(), others.end(), rows[i].id()) != others.end();
            if (anew == kNone && !other)
                anew = i;
        }
        return anew;
    }

    /** Whether somebody else's version of a row stands where the trail's should. */
    bool changedByOthers(Table table, const Trail& trail, const Taken& taken) const {
        const std::size_t subject = shapeOf(table).subject;
        const Rows& rows = m_now[table];
        for (std::size_t i = 0; i < rows.size(); ++i) {
            if (taken[i] || rows[i].id() != trail.id)
                continue;
            const bool same =
                std::any_of(trail.versions.begin(), trail.versions.end(), [&](const auto& version) {
                    return version && rows[i].columns.size() == version->columns.size() &&
                           rows[i].columns[subject] == version->columns[subject];
                });
            if (same)
                return true;
        }
        return false;
    }

    void compare(Table table) {
        const std::vector<Trail>& trails = m_record[table].trails;
        Taken taken(m_now[table].size(), false);
        std::vector<const Trail*> missing;
        // Rows that were there before come first: one that came back can look like one that the
        // change added.
        for (const Trail& trail : trails) {
            if (!trail.before())
                continue;
            const std::size_t row = match(table, trail, taken);
            if (row == kNone) {
                missing.push_back(&trail);
                continue;
            }
            taken[row] = true;
            bring(table, trail, m_now[table][row]);
        }
        for (const Trail& trail : trails) {
            if (trail.before())
                continue;
            const std::size_t row = match(table, trail, taken);
            if (row != kNone) {
                taken[row] = true;
                if (table == Table::bridge)
                    m_bridges[std::to_string(trail.id)] = m_now[table][row].columns[0];
                remove(table, m_now[table][row]);
            } else if (changedByOthers(table, trail, taken)) {
                ++m_result.leftAlone;
            }
        }
        for (const Trail* trail : missing) {
            if (!trail->removed() || changedByOthers(table, *trail, taken))
                ++m_result.leftAlone;
            else
                insert(table, *trail);
        }
        if (shapeOf(table).bridgeId != 0)
            followBridges(table, taken);
    }

    void bring(Table table, const Trail& trail, const Row& now) {
        const Row wanted = translated(table, *trail.before());
        if (table == Table::bridge)
            m_bridges[std::to_string(trail.id)] = now.columns[0];
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
                                                " Id " + now.columns[0] + changes));
    }

    void remove(Table table, const Row& now) {
        m_result.commands.push_back(
            commandLine("deletekey " + std::string(shapeOf(table).name) + " Id " + now.columns[0]));
    }

    void insert(Table table, const Trail& trail) {
        const TableShape& shape = shapeOf(table);
        const Row wanted = translated(table, *trail.before());
        if (shape.bridgeId != 0 && m_missingBridges.count(wanted.columns[shape.bridgeId]) != 0)
            return; // once its bridge is back
        if (table == Table::bridge)
            m_missingBridges[std::to_string(trail.id)] = true;
        std::string values;
        for (std::size_t i = 1; i < shape.columns.size(); ++i)
            values += typed(shape.columns[i], wanted.columns[i]);
        m_result.commands.push_back(commandLine("insertkey " + std::string(shape.name) + values));
    }

    /** Rows that the change doesn't touch can refer to a bridge that it removes. */
    void followBridges(Table table, const Taken& taken) {
        const std::size_t column = shapeOf(table).bridgeId;
        const Rows& rows = m_now[table];
        for (std::size_t i = 0; i < rows.size(); ++i) {
            if (taken[i] || rows[i].columns.size() <= column)
                continue;
            const std::string& bridge = rows[i].columns[column];
            const auto found = m_bridges.find(bridge);
            if (found == m_bridges.end() || found->second == bridge ||
                m_now.find(Table::bridge, std::stoi(bridge)) != m_now[Table::bridge].end())
                continue;
            update(table, rows[i], typed(shapeOf(table).columns[column], found->second));
        }
    }

    const Record& m_record;
    const Image& m_now;
    std::map<std::string, std::string> m_bridges; ///< present Ids by those in the record
    std::map<std::string, bool> m_missingBridges;
    Restoring m_result;
};

} // namespace

Tables tablesToRestore(const Record& record) {
    Tables tables;
    for (const Table table : kAllTables)
        if (record.touches(table))
            tables.add(table);
    if (record.touches(Table::bridge))
        tables.add({Table::bridgeInterface, Table::bridgeFilter});
    return tables;
}

Restoring restoring(const Record& record, const Image& now) {
    return Comparison(record, now).run();
}

bool canBeRestored(const Record& record) {
    for (const Table table : kAllTables) {
        const TableShape& shape = shapeOf(table);
        for (const Trail& trail : record[table].trails) {
            if (!trail.before())
                continue;
            for (std::size_t i = 1; i < shape.columns.size(); ++i)
                if (shape.columns[i].text && !isPlain(trail.before()->columns[i]))
                    return false;
        }
    }
    return true;
}

} // namespace agent
