#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace simulation {

/// What can happen. The numbers of a kind tell the rest.
enum class What {
    set,
    onTrial,
    setWithRest,
    confirm,
    revert,
    extend,
    repeat,
    hangUp,
    read,
    othersUpdate,
    othersRemove,
    othersInsert,
    lock,
    clientFails,
    slow,
    quick,
    killDevice,
    killNetwork,
    killBoth,
    powerCut,
    stop,
    freezeDevice,
    freezeNetwork,
    jump,
    diskFull,
    diskBroken,
    folderGone,
    diskWell,
    lineFails,
    wait,
};
constexpr int kKinds = 30;

const char* nameOf(What what);

struct Event {
    What what = What::wait;
    int steps = 0;       ///< of the device's process, since the event before
    int pause = 0;       ///< milliseconds, after these
    unsigned number = 0; ///< decides what the kind leaves open
};

/// All that happens on a machine from outside the agent, and how the machine is made.
struct History {
    std::uint64_t seed = 0;
    bool watches = false;
    bool fileEvents = true;
    bool reusesIds = false;
    int clientTime = 3;  ///< milliseconds
    unsigned spread = 3; ///< of how many units sets are, so that they meet
    std::vector<Event> events;
};

History historyOf(std::uint64_t seed);

/// As lines, for somebody who looks into a failure.
std::string describe(const History& history);

} // namespace simulation
