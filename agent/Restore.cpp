#include "Restore.h"

#include <algorithm>
#include <map>
#include <set>

namespace agent {

namespace {

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
    Comparison(const Record& record, const Image& now) : m_record(record), m_now(now) {}

    Restoring run() {
        for (const Table table : kAllTables) {
            if (m_record.touches(table))
                compare(table);
        }
        return std::move(m_result);
    }

private:
    using Taken = std::vector<bool>;
    using Led = std::map<const Trail*, const Row*>;

    /// The version as it would be now, with the bridge's present Id.
    Row translated(Table table, Row row) const {
        if (const std::size_t column = shapeOf(table).bridgeId; column != 0)
            if (const auto found = m_bridges.find(row.columns[column]); found != m_bridges.end())
                row.columns[column] = found->second;
        return row;
    }

    /// Whether a row is a version, whether its bridge's present Id has come to it or not.
    bool isVersion(Table table, const Row& now, const Row& version) const {
        const auto same = [&now](const Row& wanted) {
            return now.columns.size() == wanted.columns.size() &&
                   std::equal(now.columns.begin() + 1, now.columns.end(),
                              wanted.columns.begin() + 1);
        };
        return same(version) || same(translated(table, version));
    }

    bool isVersion(Table table, const Row& now, const Trail& trail) const {
        return std::any_of(trail.versions.begin(), trail.versions.end(), [&](const auto& version) {
            return version && isVersion(table, now, *version);
        });
    }

    bool isOther(Table table, const Row& row) const {
        const std::vector<int>& others = m_record[table].others;
        return std::find(others.begin(), others.end(), row.id()) != others.end();
    }

    /// The rows that trails have led to: under their Ids, or else come anew under others.
    Led follow(Table table, const std::vector<const Trail*>& trails, Taken& taken) const {
        const Rows& rows = m_now[table];
        Led led;
        for (const bool anew : {false, true}) {
            for (const Trail* trail : trails) {
                for (std::size_t i = 0; i < rows.size() && led.count(trail) == 0; ++i) {
                    const bool here = anew ? !isOther(table, rows[i]) : rows[i].id() == trail->id;
                    if (here && !taken[i] && isVersion(table, rows[i], *trail)) {
                        led[trail] = &rows[i];
                        taken[i] = true;
                    }
                }
            }
        }
        return led;
    }

    /// Whether somebody else's version of a row stands where the trail's should.
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
        std::vector<const Trail*> kept;
        std::vector<const Trail*> added;
        for (const Trail& trail : m_record[table].trails)
            (trail.before() ? kept : added).push_back(&trail);
        // So that the rows of an emptied table get back the Ids that they had.
        std::sort(kept.begin(), kept.end(),
                  [](const Trail* one, const Trail* other) { return one->id < other->id; });
        // Rows that were there before come first: one that came back can look like one that the
        // change added.
        Taken taken(m_now[table].size(), false);
        const Led back = follow(table, kept, taken);
        const Led extra = follow(table, added, taken);
        for (const Led& led : {back, extra})
            if (table == Table::bridge)
                for (const auto& [trail, row] : led)
                    m_bridges[std::to_string(trail->id)] = row->columns[0];

        for (const Trail* trail : kept)
            if (const auto found = back.find(trail); found != back.end())
                bring(table, *trail, *found->second);
        for (const Trail* trail : added) {
            if (const auto found = extra.find(trail); found != extra.end())
                remove(table, *found->second);
            else if (changedByOthers(table, *trail, taken))
                ++m_result.leftAlone;
        }
        for (const Trail* trail : kept) {
            if (back.count(trail) != 0)
                continue;
            if (!trail->removed() || changedByOthers(table, *trail, taken))
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
        m_result.commands.push_back(commandLine("deletekey " + std::string(shapeOf(table).name) +
                                                " Id " + std::to_string(now.id())));
    }

    void insert(Table table, const Trail& trail) {
        const TableShape& shape = shapeOf(table);
        const Row wanted = translated(table, *trail.before());
        if (shape.bridgeId != 0 && m_missingBridges.count(wanted.columns[shape.bridgeId]) != 0)
            return; // once its bridge is back
        if (table == Table::bridge)
            m_missingBridges.insert(std::to_string(trail.id));
        std::string values;
        for (std::size_t i = 1; i < shape.columns.size(); ++i)
            values += typed(shape.columns[i], wanted.columns[i]);
        m_result.commands.push_back(commandLine("insertkey " + std::string(shape.name) + values));
    }

    const Record& m_record;
    const Image& m_now;
    std::map<std::string, std::string> m_bridges; ///< present Ids by those in the record
    std::set<std::string> m_missingBridges;
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
                if (const std::string& value = trail.before()->columns[i];
                    !(shape.columns[i].text ? isPlain(value) : isInteger(value)))
                    return false;
        }
    }
    return true;
}

} // namespace agent
