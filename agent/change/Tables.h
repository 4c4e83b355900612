#pragma once

#include <cstddef>
#include <initializer_list>
#include <string_view>
#include <vector>

/// The tables of the configuration database that the library's objects can touch.
namespace agent {

/// In an order in which a row refers to earlier tables only.
enum class Table { bridge, bridgeInterface, bridgeFilter, node, netif, vlan, vlanParams, atm };

constexpr std::size_t kTables = 8;
constexpr std::initializer_list<Table> kAllTables = {
    Table::bridge, Table::bridgeInterface, Table::bridgeFilter, Table::node, Table::netif,
    Table::vlan,   Table::vlanParams,      Table::atm,
};

struct Column {
    std::string_view name;
    bool text; ///< else an integer
};

struct TableShape {
    std::string_view name;
    std::vector<Column> columns; ///< in the order in which the client prints a row; first the Id
    std::size_t subject;         ///< the column that tells two rows apart that had one Id in turn
    std::size_t bridgeId;        ///< the column that holds the Id of a `Bridge` row; 0 for none

    /// @return the column's number; that of columns.size() when there is no such column
    std::size_t find(std::string_view column) const;
};

const TableShape& shapeOf(Table table);

/// Whether neighbouring rows belong together: the library takes the row behind a bridge's LAN
/// member, by its Id, for the WAN member.
constexpr bool hasNeighbours(Table table) {
    return table == Table::bridgeInterface;
}

/// Set of tables.
class Tables {
public:
    constexpr Tables() = default;
    constexpr Tables(std::initializer_list<Table> tables) {
        for (const Table table : tables)
            add(table);
    }

    constexpr void add(Table table) { m_bits |= 1U << static_cast<unsigned>(table); }
    constexpr void add(Tables other) { m_bits |= other.m_bits; }
    constexpr void remove(Tables other) { m_bits &= ~other.m_bits; }
    constexpr bool empty() const { return m_bits == 0; }
    constexpr bool has(Table table) const {
        return (m_bits >> static_cast<unsigned>(table) & 1U) != 0;
    }

private:
    unsigned m_bits = 0;
};

} // namespace agent
