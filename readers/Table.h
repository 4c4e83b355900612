#pragma once

#include <corvanta.h>

#include <string>

class Wrapper;

namespace kavo::snmp {

/// Reads one table of the configuration database, one `quorlet` run per answer.
class CORVANTA_API Table {
public:
    explicit Table(std::string name);
    ~Table();
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;

    bool initialize(bool verbose);
    bool classInvariant() const;

    /// @return the number of rows, 0 when it cannot be read
    int size();

    /// Reads a row, counted from 0, into m_szLine. @return whether a line came back
    bool readRow(int row);

    /// The VPI of a row of the table `Atm`: the third field of the row's text.
    /// @return 0 on every failure
    /// @throws std::out_of_range when the row has fewer than three fields
    int getIntegerValue(const std::string& column, int row);

    /// Reads a column of the row with a key. @return 0 on success; 1, value untouched, on failure
    int getIntegerValue(int& value, const std::string& column, const std::string& keyColumn,
                        const std::string& keyValue);

    bool m_bVerbose = false;
    bool m_bInitalized = false;
    std::string m_sTableName;
    std::string m_sSizeCommand;
    int m_iRowCount = -1;          ///< last count read; -1 unknown
    char m_szLine[256] = {};       ///< first line of the last answer, newline included
    Wrapper* m_pWrapper = nullptr; ///< not owned
};

} // namespace kavo::snmp
