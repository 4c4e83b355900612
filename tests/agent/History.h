#pragma once

#include "RowsDatabase.h"

#include <memory>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

using Who = RowsDatabase::Who;

/// What is known of one row, whatever Ids it has had.
struct Fact {
    agent::Table table;
    agent::Row theirs;                      ///< what others wrote last
    std::vector<bool> byOthers, ours, left; ///< columns; left: others wrote it behind the change
    Fact* bridge = nullptr;                 ///< that others had put it in
    bool live = true;
    bool added = false, touched = false;   ///< by the change
    bool removed = false, deleted = false; ///< by the change, by others
    bool renamed = false;                  ///< by others, once it was touched
    bool vague = false; ///< nobody could tell whose it is, or when others wrote in it
    bool twice = false; ///< it looked like two rows to the change, and may be counted as two
    bool noted = false; ///< the journal tells that it is back
    agent::Row cameBackAs;
    int id = 0;

    bool has(const std::vector<bool>& columns) const {
        return std::find(columns.begin(), columns.end(), true) != columns.end();
    }
};

/// The column whose values tell rows apart here.
std::size_t keyOf(agent::Table table);

/// A change on trial in several requests, taken back while others insert, update, rename and delete
/// rows between any two commands. What must come of it is simple: the rows are as others wrote them
/// last. A row has something of the change left only where others have written in it, and is
/// counted.
class History {
public:
    explicit History(unsigned seed) : m_random(seed) {
        m_database.see = [this](Who who, const std::string& line) {
            static const char* const kNames[] = {"change:", "others:", "taking back:"};
            m_story += kNames[static_cast<int>(who)] + line + "\n";
            see(who);
        };
    }

    void play();

private:
    int pick(int below) { return static_cast<int>(m_random() % static_cast<unsigned>(below)); }
    std::string unique(Who who) {
        return (who == Who::others ? "o" : "c") + std::to_string(++m_unique);
    }
    std::string run(Who who, const std::string& command) {
        return m_database.client(who, " quorlet \" " + command + " ;\" ");
    }
    void wrong(const Fact& fact, const std::string& what) const;

    void begin();
    std::optional<std::pair<agent::Table, agent::Row>> any();
    std::string value(agent::Table table, std::size_t column, Who who);
    std::string anyBridge();
    std::vector<std::string> action(const agent::Image& rows);
    void request();
    void others();
    void takeBackAll();

    Fact* find(agent::Table table, int id);
    Fact* missing(agent::Table table, const agent::Row& row);
    Fact* bridgeOf(agent::Table table, const agent::Row& row);
    void see(Who who);
    void seeGone(Fact& fact, const agent::Row& row, Who who);
    void seeNew(agent::Table table, const agent::Row& row, Who who);
    void seeChanged(Fact& fact, const agent::Row& before, const agent::Row& now, Who who);
    std::string expected(const Fact& fact, std::size_t column);
    void check(int leftAlone);
    void checkRow(Fact& fact);
    std::pair<int, int> leftAlone(const Fact& fact);

    std::mt19937 m_random;
    RowsDatabase m_database;
    agent::Image m_seen;
    std::vector<std::unique_ptr<Fact>> m_facts;
    agent::Record m_done;
    std::string m_story;
    int m_unique = 0;
    int m_actions = 0;       ///< of others while the change is taken back, still to come
    bool m_late = false;     ///< it is being taken back
    agent::Tables m_deleted; ///< where what can have been in a row's way has then gone
    bool m_whole = true;     ///< nothing was broken off while it was made
};
