#pragma once

#include "agent/change/Tables.h"

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace agent {

/// A row as the client prints it, by column.
struct Row {
    std::vector<std::string> columns;

    int id() const;

    /// Whether it has a value for each of the table's columns, and no more: a text that holds a "|"
    /// can't be told from two.
    bool fits(Table table) const;

    bool sameButId(const Row& other) const;

    std::string text() const; ///< columns separated by "|"

    bool operator==(const Row& other) const { return columns == other.columns; }
    bool operator!=(const Row& other) const { return columns != other.columns; }
};

Row parseRow(std::string_view text);

using Rows = std::vector<Row>;

/// What the configuration database held when it was read, table by table.
class Image {
public:
    Rows& operator[](Table table) { return m_tables[static_cast<std::size_t>(table)]; }
    const Rows& operator[](Table table) const { return m_tables[static_cast<std::size_t>(table)]; }

    /// @return where the row with this Id stands, or the table's end
    Rows::iterator find(Table table, int id);
    Rows::const_iterator find(Table table, int id) const;

private:
    std::array<Rows, kTables> m_tables;
};

} // namespace agent
