// A set request in the process that faces the network, without network and toolkit: what its
// manager is told when the device's process dies, hangs or answers late, and when the request comes
// again.

#include "World.h"

#include "agent/Log.h"
#include "agent/net/Sets.h"
#include "agent/system/Invariant.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <utility>

using namespace agent;
using namespace agent::net;

namespace {

using std::chrono::seconds;

class SetsTest : public testing::Test {
protected:
    SetsTest() { show(2); }

    /// The device's process has read everything. @param value  of cvVlanEnabled.1
    void show(int value, bool complete = true) {
        Snapshot snapshot;
        snapshot.model.values["cvVlanEnabled"][1] = {value, ""};
        snapshot.complete = complete;
        snapshot.refreshed = world.now();
        snapshot.instances = listInstances(snapshot);
        const auto before = snapshots.take(snapshot);
        sets.take(snapshot, before.get());
    }

    /// The device's process has been started again.
    void restart(std::uint64_t incarnation, bool takesBack = false) {
        snapshots.take(Hello{incarnation, takesBack});
        sets.take(Hello{incarnation, takesBack});
    }

    void begin(const std::string& identity = "first") {
        const Instance& instance =
            *std::find_if(snapshots.newest().instances.begin(), snapshots.newest().instances.end(),
                          [](const Instance& each) {
                              return each.object->label() == std::string("cvVlanEnabled");
                          });
        sets.begin({"a manager",
                    identity,
                    identity,
                    world.now(),
                    {{instance.name, instance.object, Value{1, ""}, ErrorStatus::noError}}});
    }

    void ask(const std::string& identity = "first") {
        begin(identity);
        sets.commit();
        ASSERT_TRUE(sets.waits());
    }

    void expectAnswer(ErrorStatus error) {
        EXPECT_FALSE(sets.waits());
        EXPECT_STREQ(nameOf(error), nameOf(sets.answer().error));
    }

    const SetRequest& sent() const { return std::get<SetRequest>(world.sent.back()); }
    void answer(Outcome outcome) { sets.take(SetResult{sent().id, outcome, Reason::none, 0}); }

    const Options options;
    World world;
    Link link{world};
    Snapshots snapshots{options, world};
    Sets sets{options, world, link, snapshots};
};

TEST_F(SetsTest, AnswersAsTheDeviceIsReadByTheNextProcess) {
    for (const bool made : {true, false}) {
        ask(made ? "first" : "second");
        restart(made ? 1 : 2);
        show(1, false); // of the process before, in truth
        EXPECT_TRUE(sets.waits());
        show(made ? 1 : 2);
        expectAnswer(made ? ErrorStatus::noError : ErrorStatus::commitFailed);
        sets.release(!made);
    }
    ask("third");
    restart(3, true);
    expectAnswer(ErrorStatus::genErr);
}

TEST_F(SetsTest, IsInDoubtOnlyOnceItWasSent) {
    begin();
    restart(1);
    sets.commit();
    EXPECT_EQ(1U, sent().incarnation);
    show(2);
    EXPECT_TRUE(sets.waits()); // for what the new process has yet to make
    answer(Outcome::done);
    expectAnswer(ErrorStatus::noError);
}

TEST_F(SetsTest, GetsTheSameAnswerWhenItComesAgain) {
    ask();
    answer(Outcome::done);
    sets.release(false);
    begin("another manager's");
    sets.release(true);
    const std::size_t before = world.sent.size();
    begin();
    sets.commit();
    expectAnswer(ErrorStatus::noError);
    EXPECT_EQ(before, world.sent.size());
    sets.release(true);
    EXPECT_EQ(1U, sets.refused());

    world.wait({}, world.now() + seconds(60)); // long ago enough for another request of this number
    show(2);
    ask();
    answer(Outcome::done);
    const std::uint64_t id = sent().id;
    sets.takeBack(); // another part of the request has failed
    EXPECT_EQ(id, std::get<TakeBack>(world.sent.back()).id);
    sets.take(SetResult{id, Outcome::refused, Reason::none, 0});
    EXPECT_FALSE(sets.waits());
    sets.release(true);
    ask(); // noError would not be true any more
}

TEST_F(SetsTest, GivesUpOnAProcessThatHangs) {
    const auto deadline = world.now() + options.setDeadline;
    ask();
    EXPECT_GT(deadline, sent().deadline); // so that it can tell before that it was late
    EXPECT_EQ(deadline, sets.giveUp());
    const std::uint64_t id = sent().id;
    world.wait({}, deadline - seconds(1));
    sets.checkTime();
    EXPECT_TRUE(sets.waits());
    world.wait({}, deadline);
    sets.checkTime();
    expectAnswer(ErrorStatus::genErr);
    EXPECT_EQ(id, std::get<TakeBack>(world.sent.back()).id);  // should it make it all the same
    sets.take(SetResult{id, Outcome::done, Reason::none, 0}); // too late
    expectAnswer(ErrorStatus::genErr);
}

/// Where the other process is not what it was any more.
TEST(Lines, OfWhatIsNotUnderstoodAreLimited) {
    struct Noise : World {
        std::optional<std::string> receive() override { return "noise"; }
    } noise;
    Link link(noise);
    openLog(true);
    testing::internal::CaptureStderr();
    for (const int minute : {1, 2}) {
        for (int i = 0; i < 1000; ++i)
            EXPECT_FALSE(link.receive());
        noise.wait({}, noise.now() + std::chrono::minutes(minute));
    }
    const std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(20 + 1 + 20, std::count(text.begin(), text.end(), '\n'));
    EXPECT_NE(text.npos, text.find(" 980 more lines")) << text;
}

TEST_F(SetsTest, BreaksOffWhereItsStateDoesNotHold) {
    EXPECT_THROW(sets.commit(), BrokenInvariant);
    ask();
    EXPECT_THROW(begin("another manager's"), BrokenInvariant);
    EXPECT_THROW(sets.commit(), BrokenInvariant);
}

} // namespace
