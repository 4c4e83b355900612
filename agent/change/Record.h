#pragma once

#include "agent/change/Image.h"

#include <array>
#include <optional>
#include <vector>

namespace agent {

/// What a change makes of the rows with one Id.
struct Trail {
    int id;
    /// What the row holds in turn, nothing while it isn't there; first what it held before the
    /// change.
    std::vector<std::optional<Row>> versions;

    const std::optional<Row>& before() const { return versions.front(); }
    const std::optional<Row>& after() const { return versions.back(); }

    /// How many of the versions are of the row that was there before. Those behind them are of
    /// rows that the change adds: the database uses Ids again.
    std::size_t ofBefore() const;

    bool removed() const { return before() && ofBefore() < versions.size(); } ///< at any time
};

/// What a change makes of one table.
struct TableRecord {
    std::vector<int> others; ///< Ids that the table had before, those of the trails left out
    std::vector<Trail> trails;

    Trail* find(int id);
};

/// All that has to be known to take a change back: the rows that it touches, as
/// they were and whatever it makes of them. It is made before the change.
class Record {
public:
    TableRecord& operator[](Table table) { return m_tables[static_cast<std::size_t>(table)]; }
    const TableRecord& operator[](Table table) const {
        return m_tables[static_cast<std::size_t>(table)];
    }

    bool empty() const;
    bool touches(Table table) const { return !(*this)[table].trails.empty(); }

    /// Notes what becomes of a row; `rows` is what its table still holds.
    void note(Table table, const Rows& rows, int id, const std::optional<Row>& version);

private:
    std::array<TableRecord, kTables> m_tables;
};

} // namespace agent
