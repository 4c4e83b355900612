#include "History.h"

#include <algorithm>
#include <random>

namespace simulation {

namespace {

struct Kind {
    What what;
    const char* name;
    unsigned weight; ///< how often it comes, beside the others
};

constexpr Kind kTable[kKinds] = {
    {What::set, "a set", 60},
    {What::onTrial, "a set on trial", 40},
    {What::setWithRest, "a set beside one that fails", 10},
    {What::confirm, "a confirmation", 14},
    {What::revert, "a manager takes back", 14},
    {What::extend, "more time for a trial", 6},
    {What::repeat, "a repeated packet", 20},
    {What::hangUp, "a manager hangs up", 5},
    {What::read, "values are read", 20},
    {What::othersUpdate, "others change a row", 24},
    {What::othersRemove, "others remove a row", 12},
    {What::othersInsert, "others insert a row", 14},
    {What::lock, "the database is locked", 12},
    {What::clientFails, "a client fails", 30},
    {What::slow, "the device becomes slow", 6},
    {What::quick, "the device becomes quick", 6},
    {What::killDevice, "the device's process is killed", 24},
    {What::killNetwork, "the network's process is killed", 8},
    {What::killBoth, "both processes are killed", 6},
    {What::powerCut, "the power is cut", 12},
    {What::stop, "the agent is stopped", 6},
    {What::freezeDevice, "the device's process freezes", 6},
    {What::freezeNetwork, "the network's process freezes", 6},
    {What::jump, "the clock jumps", 4},
    {What::diskFull, "the disk is full", 5},
    {What::diskBroken, "the disk is broken", 5},
    {What::folderGone, "the state folder is gone", 4},
    {What::diskWell, "the disk is well again", 12},
    {What::lineFails, "the line cannot be read", 4},
    {What::wait, "nothing, for a while", 16},
};

bool isOthers(What what) {
    return what == What::othersUpdate || what == What::othersRemove || what == What::othersInsert;
}

} // namespace

const char* nameOf(What what) {
    return kTable[static_cast<int>(what)].name;
}

History historyOf(std::uint64_t seed) {
    std::mt19937_64 random(seed);
    const auto below = [&random](unsigned limit) { return static_cast<int>(random() % limit); };
    History history;
    history.seed = seed;
    history.watches = below(2) == 0;
    history.fileEvents = below(4) != 0;
    history.reusesIds = below(3) == 0;
    history.clientTime = below(5) == 0 ? 40 : 3;
    const bool others = below(3) != 0;
    unsigned total = 0;
    for (const Kind& kind : kTable)
        total += isOthers(kind.what) && !others ? 0 : kind.weight;
    for (int left = 3 + below(20); left > 0; --left) {
        auto pick = static_cast<unsigned>(below(total));
        const Kind* kind = kTable;
        for (;; ++kind) {
            const unsigned weight = isOthers(kind->what) && !others ? 0 : kind->weight;
            if (pick < weight)
                break;
            pick -= weight;
        }
        Event event{kind->what, 0, 0, static_cast<unsigned>(random())};
        // Many things happen while a set is under way, some in between.
        event.steps = below(3) == 0 ? below(40) : below(900);
        if (below(4) == 0)
            event.pause = below(3) == 0 ? below(40000) : below(3000);
        history.events.push_back(event);
    }
    history.events.front().steps += 700; // everything has been read by then
    return history;
}

std::string describe(const History& history) {
    std::string text = "history " + std::to_string(history.seed) + ": a client takes " +
                       std::to_string(history.clientTime) + " ms";
    text += history.watches ? ", the database's file is watched" : "";
    text += history.watches && !history.fileEvents ? " without events" : "";
    text += history.reusesIds ? ", the lowest free Id is used" : "";
    for (const Event& event : history.events)
        text += "\n    after " + std::to_string(event.steps) + " steps and " +
                std::to_string(event.pause) + " ms: " + nameOf(event.what) + " (" +
                std::to_string(event.number) + ")";
    return text + "\n";
}

} // namespace simulation
