#pragma once

#include "agent/change/Tables.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace simulation {

/// Who has written something.
struct Writer {
    enum class Kind { factory, others, set, restore };
    Kind kind = Kind::factory;
    int change = 0; ///< of a set, or of what takes it back

    bool operator==(const Writer& other) const {
        return kind == other.kind && change == other.change;
    }
};

constexpr Writer kOthers{Writer::Kind::others, 0};

struct Cell {
    std::string text;
    Writer writer;
    std::uint64_t when = 0; ///< on the database's own count of reads and writes
};

struct Record {
    int serial = 0;          ///< tells it from all other rows that there ever were
    std::vector<Cell> cells; ///< first the Id
    Writer inserted;
    std::uint64_t read = 0; ///< by the agent, the last time

    int id() const { return std::stoi(cells.front().text); }
    std::string text() const; ///< as the client prints it
};

using Records = std::vector<Record>;

/// Is told of each write, after it.
class Watcher {
public:
    virtual ~Watcher() = default;
    virtual void updated(agent::Table table, const Record& row, std::size_t column,
                         const Cell& before) = 0;
    virtual void inserted(agent::Table table, const Record& row) = 0;
    virtual void removed(agent::Table table, const Record& row, const Writer& writer) = 0;
};

/// The configuration database in memory, with the client's language, which remembers who has
/// written what.
class Database {
public:
    explicit Database(bool reusesIds) : m_reusesIds(reusesIds) {}

    /// The device as it leaves the factory.
    void makeFactory();

    /// Runs one command of the client's. @return what it prints; nothing when it refuses
    std::optional<std::string> run(const std::string& command, const Writer& writer);

    const Records& operator[](agent::Table table) const {
        return m_tables[static_cast<std::size_t>(table)];
    }

    /// Rows without their Ids and with what they refer to, sorted: equal for databases that mean
    /// the same.
    std::string meaning() const;

    void watch(Watcher* watcher) { m_watcher = watcher; }
    std::uint64_t count() const { return m_count; }
    std::uint64_t writes() const { return m_writes; }

private:
    Records& rows(agent::Table table) { return m_tables[static_cast<std::size_t>(table)]; }
    int freeId(agent::Table table) const;
    std::string insert(agent::Table table, const std::vector<std::string>& columns,
                       const std::vector<std::string>& values, const Writer& writer);

    const bool m_reusesIds; ///< else a new row gets the highest Id so far, plus 1
    std::array<Records, agent::kTables> m_tables;
    Watcher* m_watcher = nullptr;
    int m_serial = 0;
    std::uint64_t m_count = 0;
    std::uint64_t m_writes = 0;
};

} // namespace simulation
