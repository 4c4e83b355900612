#pragma once

#include "Machine.h"
#include "Values.h"

#include "agent/net/ManagerRequest.h"

#include <map>
#include <set>
#include <string>
#include <vector>

namespace simulation {

/// Knows what has to hold. It sees each write with its writer, what managers asked for and what
/// they were told, and says which promise of docs/reliability.md is broken.
class Oracle : public Watcher {
public:
    explicit Oracle(Machine& machine);

    // What the device's process takes in and tells, and how it ends.
    void received(const agent::Message& message);
    void sent(const agent::Message& message);
    void processEnded();
    void nobodyAsksBack();
    Writer writer();

    // What managers are told.
    void answered(std::uint64_t set, agent::net::ErrorStatus error);
    void unanswered(std::uint64_t set);
    void shown(const Place& place, const agent::Value& value, Time refreshed);

    /// Whether the agent has nothing left to do.
    bool isIdle() const { return m_state == agent::ChangeState::idle && m_jobs.empty(); }
    agent::ChangeState state() const { return m_state; }

    /// Checks what has to hold once nothing is left to do.
    void checkSettled();

    /// Has the library do what sets did that nobody disturbed, and compares.
    void checkAgainstLibrary();

    void fail(const std::string& what);
    const std::string& problem() const { return m_problem; } ///< the first; empty for none
    std::map<std::string, int> seen;                         ///< what has happened, by name

    /// Rows that the change under way has touched, for those who want to be in its way.
    std::vector<std::pair<agent::Table, int>> touchedRows() const;

    /// Those that it has removed, as they were.
    std::vector<std::pair<agent::Table, Record>> removedRows() const;

    /// How many members of bridges have been put back of it.
    long returnedMembers() const;

    void updated(agent::Table table, const Record& row, std::size_t column,
                 const Cell& before) override;
    void inserted(agent::Table table, const Record& row) override;
    void removed(agent::Table table, const Record& row, const Writer& writer) override;

private:
    enum class Fate { goes, stays, either };
    struct Written {
        agent::Table table;
        std::string before;
        std::string last;          ///< of the values that the change wrote
        std::set<std::string> own; ///< all of these
        bool raced = false;        ///< others had written something that the agent did not read
    };
    struct Removed {
        agent::Table table;
        Record row;
        std::string content; ///< as it was before the change
        bool raced;          ///< others had written something that the agent did not read
        bool dangled;        ///< its bridge was not there
    };
    struct Returned {
        agent::Table table;
        int serial;
        std::string content;
    };
    struct Change {
        Fate fate = Fate::goes;
        bool done = false; ///< so are all its sets: the process knows which rows they have added
        bool restored = false;        ///< or some of it
        std::uint64_t since = 0;      ///< when its first set was received
        bool counted = false;         ///< rows of it were left alone
        bool bridgesByOthers = false; ///< written since: nobody can say which one is which
        std::map<std::pair<int, std::size_t>, Written> cells; ///< by row's serial and column
        std::map<int, agent::Table> added;                    ///< rows, by serial
        std::set<std::pair<agent::Table, std::string>> own;   ///< all that these rows have been
        std::vector<Removed> removed;
        std::vector<Returned> returned;
    };
    struct Set {
        agent::SetRequest request;
        int change = -1;
        bool received = false;
        std::uint64_t when = 0; ///< likewise, on the database's count
        bool pending = false;   ///< there was something to decide on when it was received
        bool unanswered = false;
        bool wrote = false;
        bool done = false;   ///< as the device's process says
        bool untold = false; ///< its values were there when the process ended that it was sent to
        bool disturbed = false;
        std::optional<Database> before;
        std::string after;
    };
    struct Death {
        Writer writer;
    };
    struct Job {
        std::uint64_t set;
        bool back; ///< it is to be taken back; else made
    };

    int lastChange() const;
    int changeOfJob();
    void enter(agent::ChangeState next, const agent::Snapshot& snapshot);
    bool valuesAreThere(const Set& set) const;
    void valuesMayHaveChanged();
    void disturb(agent::Table table);
    std::string contentOf(agent::Table table, const Record& row, const Change* change) const;
    std::string nameOfBridge(const std::string& id, const Change* change) const;
    static std::string bare(const std::string& content);
    static bool areAlike(const std::string& one, const std::string& other, const Change& change);
    bool dangles(agent::Table table, const Record& row, const Change& change) const;
    const Record* live(agent::Table table, int serial) const;
    std::string isNotGone(int number) const;
    std::string isNotGone(int number, const Removed& removed, std::set<int>& claimed) const;
    std::string doesNotStay(int number) const;
    bool othersHave(agent::Table table, const Record& row, const Change& change) const;
    bool isBesideOthers(agent::Table table, const Record& row, const Change& change) const;
    bool hasBridge(const std::string& name) const;
    bool hasOthers(const Record& row) const;
    bool othersUse(const Record& bridge, const Change& change) const;
    int leftAlone(int number) const;
    void restored(const agent::Snapshot& snapshot);
    void checkBridges();
    bool mayBeApart(const Record& lan, const Record& wan) const;
    void checkRead(const Record& row, const Set& set);

    Machine& m_machine;
    std::string m_problem;
    std::map<std::uint64_t, Set> m_sets;
    std::vector<Job> m_jobs; ///< of the process, in its order, without a result so far
    std::vector<Change> m_changes;
    std::uint64_t m_incarnation = 0; ///< of the process
    int m_pending = -1;    ///< the change on trial; below 0 for one that had nothing to do
    int m_restored = -1;   ///< the one that is taken back; likewise
    int m_late = -1;       ///< of a set that was late, until it is taken back
    int m_leftBehind = -1; ///< by the process before, if it has left any
    bool m_fresh = true;   ///< the process has told nothing so far
    agent::ChangeState m_state = agent::ChangeState::idle;
    std::uint32_t m_counted = 0; ///< rows that were left alone, as the process tells
    bool m_restoreWrote = false; ///< the process, to take something back
    std::map<int, std::uint64_t> m_othersTouched; ///< rows, by serial, and when last
    std::set<std::string> m_othersRemoved;        ///< what these rows held
    std::map<int, Death> m_dead;                  ///< rows, by serial
    std::map<Place, std::vector<std::pair<Time, agent::Value>>> m_history;
    Values m_values;
    std::vector<Time> m_refreshes; ///< ends of good ones
    std::uint64_t m_othersWrites = 0;
};

/// Has the library alone set values.
void makeWithLibrary(Database& database, const std::vector<Assignment>& assignments);

/// Whether it sets one.
bool libraryMakes(Database database, const Place& place, const agent::Value& value);

} // namespace simulation
