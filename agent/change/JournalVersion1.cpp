// Reads the record of a journal of version 1:
//
//     table NAME
//     others ID ID ...
//     trail ID
//     ROW, or "-" where there is none, once for each state of the rows that had this Id in turn

#include "agent/change/JournalText.h"
#include "agent/change/Lines.h"

#include <algorithm>
#include <utility>

namespace agent {

namespace {

constexpr std::string_view kGone = "-";

/// Goes on with the trails of an Id: a row that is there, or no longer.
class Reader {
public:
    Reader(TableRecord& table, Table shape, bool sure, int id)
        : m_table(table), m_shape(shape), m_sure(sure), m_id(id) {}

    bool goOn(std::string_view line) {
        const bool first = std::exchange(m_first, false);
        if (line == kGone) {
            if (m_there)
                end();
            m_there = false;
            return true;
        }
        const Row row = parseRow(line);
        if (!row.fits(m_shape) || row.id() != m_id)
            return false;
        if (!m_there)
            begin(row, !first);
        else
            alter(row);
        m_there = true;
        return true;
    }

private:
    void begin(const Row& row, bool added) {
        Trail trail;
        trail.id = m_id;
        trail.added = added;
        trail.sure = m_sure;
        for (const std::string& value : row.columns)
            trail.columns.push_back(added ? Chain{std::nullopt, {value}, Names::bridge}
                                          : Chain{value, {}, Names::bridge});
        trail.columns.front() = {};
        m_table.trails.push_back(std::move(trail));
    }

    void alter(const Row& row) {
        Trail& trail = m_table.trails.back();
        for (std::size_t i = 1; i < row.columns.size(); ++i)
            if (Chain& chain = trail.columns[i]; !chain.has(row.columns[i]))
                chain.own.push_back(row.columns[i]);
    }

    /// It may have been put back already.
    void end() {
        Trail& trail = m_table.trails.back();
        trail.removed = true;
        if (!trail.added)
            trail.state = Return::tried;
    }

    TableRecord& m_table;
    const Table m_shape;
    const bool m_sure;
    const int m_id;
    bool m_first = true;
    bool m_there = false;
};

/// It does not tell whether a row was in a bridge.
void findBridges(Record& record) {
    const TableRecord& bridges = record[Table::bridge];
    for (const Table table : kAllTables) {
        const std::size_t column = shapeOf(table).bridgeId;
        if (column == 0)
            continue;
        for (Trail& trail : record[table].trails) {
            Chain& chain = trail.columns[column];
            const int id = Row{{chain.from.value_or("")}}.id();
            if (!bridges.hadBefore(id) &&
                std::none_of(bridges.trails.begin(), bridges.trails.end(),
                             [id](const Trail& bridge) { return bridge.id == id; }))
                chain.names = Names::none;
        }
    }
}

} // namespace

std::optional<Record> toRecordOfVersion1(std::string_view text, bool sure) {
    Record record;
    std::optional<Table> table;
    std::optional<Reader> reader;
    while (!text.empty()) {
        std::string_view line = cut(text, '\n');
        const std::string_view whole = line;
        const std::string_view word = cut(line, ' ');
        if (word == "table") {
            table = toTable(line);
            reader.reset();
            if (table)
                record[*table].known = true;
        } else if (table && word == "others") {
            auto ids = toNumbers(line);
            if (!ids)
                return std::nullopt;
            record[*table].alike = *ids;
            record[*table].others = std::move(*ids);
        } else if (table && word == "trail") {
            const std::optional<int> id = toNumber(line);
            if (!id)
                return std::nullopt;
            reader.emplace(record[*table], *table, sure, *id);
        } else if (!reader || !reader->goOn(whole)) {
            return std::nullopt;
        }
    }
    findBridges(record);
    return record;
}

} // namespace agent
