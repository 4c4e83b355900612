#pragma once

#include "Front.h"
#include "History.h"

#include <memory>
#include <string>

namespace simulation {

/// What came of a history.
struct Result {
    std::string problem; ///< empty for none
    std::uint64_t operations = 0;
    std::map<std::string, int> seen;
};

/// Plays one history with the agent's own code.
class Player {
public:
    /// @param trace  is told each step worth telling; may be empty
    Player(const History& history, std::function<void(const std::string&)> trace);
    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    Result play();

private:
    enum class Phase { playing, settling, probing, over };

    void onStep();
    void runDevice();
    bool isDue();
    void fire(const Event& event);
    void fireManager(const Event& event);
    void fireOthers(const Event& event);
    void fireFault(const Event& event);
    void heal();
    void settle();
    void probe();
    void end();
    Request requestOf(const Event& event);
    void others(const std::string& command);
    void runNetwork();
    void killNetwork();

    const History& m_history;
    Machine m_machine;
    Oracle m_oracle;
    std::unique_ptr<Front> m_front;
    Phase m_phase = Phase::playing;
    std::size_t m_next = 0;        ///< event
    std::uint64_t m_lastSteps = 0; ///< when the one before was fired
    std::optional<Time> m_fireAt;
    std::vector<Request> m_requests; ///< the last ones
    agent::Table m_othersTable{};    ///< that others wrote last
    bool m_comesBetween = false;     ///< others do, once the first of two neighbours is back
    int m_number = 0;
    Time m_networkWaits{}; ///< until then the network's process is frozen, or not there
    Time m_stopAsked{};
    Time m_quietSince{};
    Time m_by{};                              ///< when this phase must be over
    std::optional<std::uint64_t> m_nextLives; ///< for so many steps, a process that begins
    std::uint64_t m_diesAt = 0;               ///< the step at which it ends
    bool m_machineEnds = false;               ///< both processes and the link begin anew
    bool m_powerFails = false;
    bool m_probed = false;
    /// A last set, and the database before it: its outcome has to be the library's.
    struct Probe {
        Database before;
        Assignment assignment;
        agent::net::ErrorStatus error;
    };
    std::vector<Probe> m_probes;
};

} // namespace simulation
