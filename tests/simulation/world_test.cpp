// The process that owns the device, in a world in memory: a set, a kill at each of its writes, and
// the next process, which takes back what was half done.

#include "World.h"

#include "agent/Options.h"
#include "agent/dev/Worker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

using namespace agent;
using agent::dev::Worker;

namespace {

/// Rows of all tables without their Ids, which may be others once they have come back.
std::vector<std::string> contents(const Image& database) {
    std::vector<std::string> rows;
    for (const Table table : kAllTables)
        for (Row row : database[table]) {
            row.columns[0] = shapeOf(table).name;
            if (const std::size_t bridge = shapeOf(table).bridgeId; bridge != 0)
                row.columns[bridge].clear();
            rows.push_back(row.text());
        }
    std::sort(rows.begin(), rows.end());
    return rows;
}

const Object* find(const std::string& label) {
    const auto object = std::find_if(objects().begin(), objects().end(),
                                     [&](const Object& each) { return each.label() == label; });
    return object != objects().end() ? &*object : nullptr;
}

template <class Kind>
const Kind* last(const World& world) {
    const Kind* found = nullptr;
    for (const Message& message : world.sent)
        if (const auto* const one = std::get_if<Kind>(&message))
            found = one;
    return found;
}

class WorldTest : public testing::Test {
protected:
    void run() { Worker(options, world).run(); }

    /// A process begins, and reads everything once.
    bool isReady() const {
        const auto* const snapshot = last<Snapshot>(world);
        return snapshot != nullptr && snapshot->complete &&
               snapshot->trial.state == ChangeState::idle;
    }

    /// Sets objects in one request, of a process that begins with that.
    /// @param kill  the write before which the process is killed, or with `after` behind which
    void set(const std::vector<Change>& changes, int kill = 0, bool after = false) {
        world.begin();
        bool asked = false;
        world.stops = [&, changes] {
            if (!asked && isReady()) {
                asked = true;
                world.writes = 0;
                world.killAt = kill;
                world.killAfter = after;
                world.inbox.emplace_back(SetRequest{1, last<Hello>(world)->incarnation,
                                                    world.now() + std::chrono::seconds(4), changes,
                                                    std::chrono::seconds(0), Verdict::notGiven});
            }
            return last<SetResult>(world) != nullptr;
        };
        run();
    }

    /// A process begins, and goes on until nothing is left to take back.
    void settle() {
        world.begin();
        world.stops = [this] { return isReady(); };
        run();
    }

    Options options;
    World world;
};

TEST_F(WorldTest, ASetIsWholeOrTakenBackWhereverItsProcessIsKilled) {
    const std::vector<Change> changes = {
        {find("cvDefaultWanInterface"), 0, {0, "wan2"}, 0},
        {find("cvVlanEnabled"), 1, {1, ""}, 1},
    };
    const Image factory = world.database;
    set(changes);
    ASSERT_NE(nullptr, last<SetResult>(world));
    ASSERT_EQ(Outcome::done, last<SetResult>(world)->outcome);
    EXPECT_TRUE(world.files.empty());
    const auto after = contents(world.database);
    const int writes = world.writes;
    EXPECT_LT(10, writes);
    for (int kill = 1; kill <= writes; ++kill) {
        for (const bool behind : {false, true}) {
            SCOPED_TRACE(std::to_string(kill) + (behind ? ", behind" : ""));
            world.database = factory;
            set(changes, kill, behind);
            ASSERT_TRUE(world.killed());
            EXPECT_EQ(1U, world.files.count("change.journal"));
            settle();
            EXPECT_TRUE(world.files.empty());
            EXPECT_EQ(contents(factory), contents(world.database));
        }
    }
    world.database = factory;
    set(changes);
    EXPECT_EQ(after, contents(world.database));
}

/// The other process could be one by now that asks without end.
TEST_F(WorldTest, SetsWithoutEndAreNotLoggedWithoutEnd) {
    constexpr std::uint64_t kSets = 40; // on trial, and every other one takes it back
    std::uint64_t asked = 0;
    world.begin();
    world.stops = [&] {
        const auto* const result = last<SetResult>(world);
        if (result != nullptr ? result->id == asked && asked < kSets : asked == 0 && isReady()) {
            SetRequest set{};
            set.id = ++asked;
            set.incarnation = last<Hello>(world)->incarnation;
            set.deadline = world.now() + std::chrono::seconds(4);
            if (asked % 2 == 1) {
                set.changes = {{find("cvVlanEnabled"), 1, {1, ""}, 0}};
                set.trial = std::chrono::seconds(60);
            } else {
                set.verdict = Verdict::revert;
            }
            world.inbox.emplace_back(set);
        }
        return result != nullptr && result->id == kSets;
    };
    options.foreground = true; // its log goes to standard error
    testing::internal::CaptureStderr();
    run();
    std::istringstream log(testing::internal::GetCapturedStderr());
    int lines = 0;
    for (std::string line; std::getline(log, line);)
        lines += line.find("taken back") != line.npos;
    EXPECT_EQ(20, lines) << log.str();
}

} // namespace

/// A process of the device calls initialize() once; here one after the other does, and the library
/// drops the cache of the one before.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:update_managed_objects\nleak:initialize";
}
