// The client of the configuration database: runs the command that is its one argument on the
// database of the device in the folder $CORVANTA_DEVICE.
//
// Exit status: 0 answered (on standard output), 1 no usable device, 2 the command is refused.

#include "Command.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using device::Command;
using device::Value;
using device::Verb;

constexpr const char* kDone = "Operation succeeded";
constexpr const char* kUnknownRow = "Unknown row";
constexpr const char* kLocked = "Database locked";

struct Locked {};

/// A connection. Closing it undoes what was not committed.
class Database {
public:
    explicit Database(const std::string& file) {
        sqlite3* opened = nullptr;
        const int result = sqlite3_open_v2(file.c_str(), &opened, SQLITE_OPEN_READWRITE, nullptr);
        m_handle.reset(opened);
        check(result);
        run("PRAGMA synchronous = OFF"); // made to outlive killed programs, not power cuts
    }

    sqlite3* handle() const { return m_handle.get(); }

    void check(int result) const {
        if (result == SQLITE_BUSY)
            throw Locked();
        if (result != SQLITE_OK && result != SQLITE_ROW && result != SQLITE_DONE)
            throw std::runtime_error(sqlite3_errmsg(handle()));
    }

    void run(const char* sql) const {
        check(sqlite3_exec(handle(), sql, nullptr, nullptr, nullptr));
    }

private:
    struct Close {
        void operator()(sqlite3* handle) const { sqlite3_close_v2(handle); }
    };
    std::unique_ptr<sqlite3, Close> m_handle;
};

/// One SQL statement. Identifiers in its text come from the schema; values are bound.
class Statement {
public:
    Statement(const Database& database, const std::string& sql) : m_database(database) {
        sqlite3_stmt* prepared = nullptr;
        database.check(sqlite3_prepare_v2(database.handle(), sql.c_str(), -1, &prepared, nullptr));
        m_handle.reset(prepared);
    }

    Statement& bind(int value) {
        m_database.check(sqlite3_bind_int(m_handle.get(), ++m_bound, value));
        return *this;
    }

    Statement& bind(const std::string& value) {
        m_database.check(sqlite3_bind_text(m_handle.get(), ++m_bound, value.c_str(),
                                           static_cast<int>(value.size()), SQLITE_TRANSIENT));
        return *this;
    }

    Statement& bind(const std::vector<Value>& values) {
        for (const Value& value : values)
            std::visit([this](const auto& held) { bind(held); }, value);
        return *this;
    }

    /// Goes to the next row; false when there is none.
    bool step() {
        const int result = sqlite3_step(m_handle.get());
        m_database.check(result);
        return result == SQLITE_ROW;
    }

    std::string text(int column) const {
        const unsigned char* value = sqlite3_column_text(m_handle.get(), column);
        return value == nullptr ? std::string() : reinterpret_cast<const char*>(value);
    }

    /// The row's columns, separated by "|".
    std::string row() const {
        std::string line = text(0);
        for (int column = 1; column < sqlite3_column_count(m_handle.get()); ++column)
            line += '|' + text(column);
        return line;
    }

private:
    struct Finalize {
        void operator()(sqlite3_stmt* handle) const { sqlite3_finalize(handle); }
    };
    const Database& m_database;
    std::unique_ptr<sqlite3_stmt, Finalize> m_handle;
    int m_bound = 0;
};

/// Refuses a command that does not fit the table it names.
void checkAgainstSchema(const Database& database, const Command& command) {
    const auto typeOf = [&](const std::string& column) {
        Statement schema(database, "SELECT c.type FROM sqlite_schema AS t, "
                                   "pragma_table_info(t.name) AS c "
                                   "WHERE t.type = 'table' AND t.name = ? AND c.name = ?");
        if (!schema.bind(command.table).bind(column).step())
            throw std::invalid_argument("unknown: table " + command.table + ", column " + column);
        return schema.text(0);
    };
    typeOf(command.keyColumn.empty() ? "Id" : command.keyColumn);
    for (const std::string& column : command.columns)
        typeOf(column);
    for (std::size_t i = 0; i < command.values.size(); ++i) {
        const std::string& column = command.columns[i];
        const bool text = std::holds_alternative<std::string>(command.values[i]);
        if (typeOf(column) != (text ? "TEXT" : "INTEGER"))
            throw std::invalid_argument("wrong type for column " + column);
        if (std::count(command.columns.begin(), command.columns.end(), column) > 1)
            throw std::invalid_argument("two values for column " + column);
        if (column == "Id")
            throw std::invalid_argument("the database numbers the rows itself");
    }
}

std::string quoted(const std::string& name) {
    return '"' + name + '"';
}

std::string list(const std::vector<std::string>& columns) {
    std::string names;
    for (const std::string& column : columns)
        names += (names.empty() ? "" : ", ") + quoted(column);
    return names.empty() ? "*" : names;
}

/// Runs a command whose names the schema knows.
std::string execute(const Database& database, const Command& command) {
    const std::string table = quoted(command.table);
    const std::string columns = list(command.columns);
    const std::string where = " WHERE " + quoted(command.keyColumn) + " = ?";
    std::string marks = "?";
    for (std::size_t i = 1; i < command.values.size(); ++i)
        marks += ", ?";
    const auto changed = [&](Statement& statement) {
        statement.step();
        return sqlite3_changes(database.handle()) > 0 ? kDone : kUnknownRow;
    };

    switch (command.verb) {
    case Verb::selectkey: {
        Statement select(database,
                         "SELECT " + columns + " FROM " + table + where + " ORDER BY Id LIMIT 1");
        return select.bind(command.keyValue).step() ? select.row() : kUnknownRow;
    }
    case Verb::selectrow: {
        Statement select(database,
                         "SELECT " + columns + " FROM " + table + " ORDER BY Id LIMIT 1 OFFSET ?");
        return select.bind(command.row).step() ? select.row() : kUnknownRow;
    }
    case Verb::size: {
        Statement count(database, "SELECT count(*) FROM " + table);
        count.step();
        return count.row();
    }
    case Verb::updatekey: {
        Statement update(database,
                         "UPDATE " + table + " SET (" + columns + ") = (" + marks + ')' + where);
        return changed(update.bind(command.values).bind(command.keyValue));
    }
    case Verb::insertkey: {
        // The new Id is the highest one plus 1: clients find the row that follows by its number.
        Statement insert(database,
                         "INSERT INTO " + table + " (" + columns + ") VALUES (" + marks + ')');
        insert.bind(command.values).step();
        return std::to_string(sqlite3_last_insert_rowid(database.handle()));
    }
    case Verb::deletekey: {
        Statement erase(database, "DELETE FROM " + table + where);
        return changed(erase.bind(command.keyValue));
    }
    }
    return {};
}

std::string answer(const Command& command) try {
    const char* const folder = std::getenv("CORVANTA_DEVICE");
    if (folder == nullptr)
        throw std::runtime_error("CORVANTA_DEVICE names no device folder");
    const Database database(folder + std::string("/config.db"));
    database.run("BEGIN");
    checkAgainstSchema(database, command);
    std::string result = execute(database, command);
    database.run("COMMIT");
    return result;
} catch (const Locked&) {
    return kLocked;
}

} // namespace

int main(int argc, char** argv) try {
    if (argc != 2)
        throw std::invalid_argument("usage: quorlet \"COMMAND ;\"");
    std::puts(answer(device::parseCommand(argv[1])).c_str());
    return std::fflush(stdout) == 0 ? 0 : 1;
} catch (const std::invalid_argument& refused) {
    std::fprintf(stderr, "quorlet: %s\n", refused.what());
    return 2;
} catch (const std::exception& failure) {
    std::fprintf(stderr, "quorlet: %s\n", failure.what());
    return 1;
}
