#pragma once

#include "agent/change/Image.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace agent {

/// Whether a character can stand in a value without ending or changing the command.
bool isSafe(char c);

/// Whether the client takes a value as it is, whatever follows it.
bool isSafe(const Column& column, const std::string& value);

/// A command of the database's client, one for each run:
///
///     quorlet " selectkey TABLE KEYCOLUMN KEY [COLUMN ...] ;"
///     quorlet " selectrow TABLE POSITION [COLUMN ...] ;"
///     quorlet " size TABLE ;"
///     quorlet " updatekey TABLE KEYCOLUMN KEY COLUMN TYPE:VALUE ... ;"
///     quorlet " insertkey TABLE COLUMN TYPE:VALUE ... ;"
///     quorlet " deletekey TABLE KEYCOLUMN KEY ;"
///
/// TYPE is "integer" or "text". A text keeps its inner blanks, and ends where the next column
/// begins.
struct Command {
    enum class Verb { select, size, update, insert, remove };

    Verb verb;
    Table table;
    std::size_t keyColumn = 0; ///< of selectkey, updatekey and deletekey
    std::string key;
    std::optional<std::size_t> row; ///< of selectrow
    std::vector<std::size_t> columns;
    std::vector<std::string> values; ///< one for each column, where the verb writes

    /// @return whether a command line is one for the client
    static bool isFor(std::string_view commandLine);

    /// @return nothing for what the client would refuse
    static std::optional<Command> parse(std::string_view commandLine);

    /// Commands that write a row; the values are those of the columns, and safe.
    static Command update(Table table, int id);
    static Command insert(Table table);
    static Command remove(Table table, int id);
    Command& with(std::size_t column, const std::string& value);

    /// As a command line, where it writes.
    std::string line() const;

    const TableShape& shape() const { return shapeOf(table); }
    bool writes() const { return verb != Verb::select && verb != Verb::size; }
    bool matches(const Row& line) const; ///< whether its key is that of the row
};

} // namespace agent
