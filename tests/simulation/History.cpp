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

/// What a history has most of.
enum class Theme {
    any,
    brief,   ///< few events, close together
    crowded, ///< others write within each set and each taking back
    calm,    ///< others and readers, while the database is watched
};

bool isOthers(What what) {
    return what == What::othersUpdate || what == What::othersRemove || what == What::othersInsert;
}

unsigned weightIn(Theme theme, const Kind& kind, bool others) {
    if (isOthers(kind.what))
        return !others ? 0 : theme == Theme::crowded ? 6 * kind.weight : kind.weight;
    const bool shown = kind.what == What::read || kind.what == What::wait;
    if (theme == Theme::calm)
        return shown ? 3 * kind.weight : kind.what <= What::onTrial ? kind.weight / 4 : 0;
    const bool stalls =
        kind.what == What::freezeDevice || kind.what == What::jump || kind.what == What::killDevice;
    return theme == Theme::brief && stalls ? 6 * kind.weight : kind.weight;
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
    history.spread = static_cast<unsigned>(1 + below(3));
    constexpr Theme kThemes[] = {Theme::any, Theme::any, Theme::brief, Theme::crowded, Theme::calm};
    const Theme theme = kThemes[below(5)];
    const bool others = below(3) != 0 || theme == Theme::crowded || theme == Theme::calm;
    history.watches = history.watches || theme == Theme::calm;
    unsigned total = 0;
    for (const Kind& kind : kTable)
        total += weightIn(theme, kind, others);
    const int most = theme == Theme::brief ? 4 : 20;
    const unsigned close = theme == Theme::crowded ? 12 : 40;
    for (int left = 3 + below(most); left > 0; --left) {
        auto pick = static_cast<unsigned>(below(total));
        const Kind* kind = kTable;
        for (;; ++kind) {
            const unsigned weight = weightIn(theme, *kind, others);
            if (pick < weight)
                break;
            pick -= weight;
        }
        Event event{kind->what, 0, 0, static_cast<unsigned>(random())};
        // Many things happen while a set is under way, some in between.
        const bool near =
            theme == Theme::any || theme == Theme::calm ? below(3) == 0 : below(4) != 0;
        event.steps = near ? below(below(4) == 0 ? 4 : close) : below(900);
        if (below(theme == Theme::calm ? 2 : 4) == 0)
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
