// A set request in the process that faces the network: what the simulation does not play.

#include "Machine.h"
#include "Values.h"

#include "agent/Log.h"
#include "agent/dev/Worker.h"
#include "agent/net/Sets.h"
#include "agent/system/Invariant.h"

#include <gtest/gtest.h>

#include <chrono>
#include <deque>
#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

using namespace agent;
using namespace agent::net;
using simulation::Machine;
using simulation::objectCalled;

namespace {

using std::chrono::seconds;

/// A machine that does nothing by itself, and what is sent on it.
struct Quiet : Machine {
    Quiet() : Machine(false) {
        onStep = onNetwork = [] {};
        writer = [] { return simulation::kOthers; };
        onSent = onReceived = onAsked = [this](const Message& message) { sent.push_back(message); };
    }

    std::deque<Message> sent;
};

class SetsTest : public testing::Test {
protected:
    SetsTest() { show(); }

    /// The device's process has read everything.
    void show() {
        Snapshot snapshot;
        snapshot.model.values["cvVlanEnabled"][1] = {2, ""};
        snapshot.complete = true;
        snapshot.refreshed = machine.now();
        snapshot.instances = listInstances(snapshot);
        sets.take(snapshot, snapshots.take(snapshot).get());
    }

    void begin(const std::string& identity = "first", ErrorStatus error = ErrorStatus::noError) {
        const Object& object = objectCalled("cvVlanEnabled");
        Oid name = object.name();
        name.push_back(1);
        sets.begin({"a manager",
                    identity,
                    identity,
                    machine.now(),
                    {{name, &object, Value{1, ""}, error}}});
    }

    /// From its check to its answer.
    ErrorStatus make(const std::string& identity) {
        begin(identity);
        if (sets.answer().error == ErrorStatus::noError)
            sets.commit();
        if (sets.waits())
            sets.take(SetResult{std::get<SetRequest>(machine.sent.back()).id, Outcome::done,
                                Reason::none, 0});
        const ErrorStatus error = sets.answer().error;
        sets.release(error != ErrorStatus::noError);
        return error;
    }

    const Options options;
    Quiet machine;
    Link link{machine.network()};
    Snapshots snapshots{options, machine.network()};
    Sets sets{options, machine.network(), link, snapshots};
};

TEST_F(SetsTest, IsInDoubtOnlyOnceItWasSent) {
    begin();
    snapshots.take(Hello{1, false}); // the device's process has been started again
    sets.take(Hello{1, false});
    sets.commit();
    const auto& sent = std::get<SetRequest>(machine.sent.back());
    EXPECT_EQ(1U, sent.incarnation);
    show();
    EXPECT_TRUE(sets.waits()); // for what the new process has yet to make
    sets.take(SetResult{sent.id, Outcome::done, Reason::none, 0});
    EXPECT_FALSE(sets.waits());
    EXPECT_EQ(ErrorStatus::noError, sets.answer().error);
}

TEST_F(SetsTest, IsTakenBackByWhicheverProcessLastsThatLong) {
    // How the process that has made it does not take it back.
    const auto late = [this](std::uint64_t) {
        machine.pass(options.setDeadline);
        sets.checkTime();
        EXPECT_EQ(ErrorStatus::genErr, sets.answer().error);
    };
    const auto anotherIsLate = [&](std::uint64_t id) {
        late(id);
        begin("another");
        sets.commit();
        late(0);
        sets.take(SetResult{id + 1, Outcome::late, Reason::failed, 0});
    };
    const auto diskIsFull = [this](std::uint64_t id) {
        sets.take(SetResult{id, Outcome::done, Reason::none, 0});
        sets.takeBack(); // something else in its packet has failed
        sets.take(SetResult{id, Outcome::notUndone, Reason::none, 0});
        EXPECT_EQ(ErrorStatus::undoFailed, sets.answer().error);
    };
    std::uint64_t process = 0;
    for (const auto& fails :
         std::vector<std::function<void(std::uint64_t)>>{late, anotherIsLate, diskIsFull}) {
        begin(std::to_string(process));
        sets.commit();
        const std::uint64_t id = std::get<SetRequest>(machine.sent.back()).id;
        fails(id);
        for (int i = 0; i < 2; ++i) { // the next one ends early, too
            machine.sent.clear();
            sets.take(Hello{++process, false, id});
            ASSERT_EQ(1U, machine.sent.size()) << process;
            EXPECT_EQ(id, std::get<TakeBack>(machine.sent.back()).id);
        }
        sets.take(SetResult{id, Outcome::refused, Reason::none, 0});
        machine.sent.clear();
        sets.take(Hello{++process, false, id});
        EXPECT_TRUE(machine.sent.empty());
        show();
    }
}

TEST_F(SetsTest, BreaksOffWhereItsStateDoesNotHold) {
    EXPECT_THROW(sets.commit(), BrokenInvariant);
    begin();
    sets.commit();
    EXPECT_THROW(begin("another manager's"), BrokenInvariant);
    EXPECT_THROW(sets.commit(), BrokenInvariant);
}

TEST_F(SetsTest, IsNotMadeAgainHoweverManyCameBetween) {
    const std::string much(100000, '.');
    EXPECT_EQ(ErrorStatus::noError, make("first"));
    for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(ErrorStatus::noError, make(std::to_string(i)));
    int made = 0;
    while (made < 1000 && make(much + std::to_string(made)) == ErrorStatus::noError)
        ++made;
    EXPECT_GT(1000, made); // memory has a bound, at which nothing more is made
    const std::size_t sent = machine.sent.size();
    EXPECT_EQ(ErrorStatus::resourceUnavailable, make(much + "another"));
    EXPECT_EQ(ErrorStatus::noError, make("first"));
    EXPECT_EQ(sent, machine.sent.size());

    machine.pass(seconds(60));
    show();
    sets.forgetAnswers(machine.now());
    for (int i = 0; i < 100; ++i) { // a manager that is mistaken keeps no other from sets
        begin(much + std::to_string(i), ErrorStatus::wrongValue);
        sets.release(true);
    }
    EXPECT_EQ(ErrorStatus::noError, make(much + "another"));
}

/// Lines that have a text, of those that are logged meanwhile.
template <class Do>
long countLines(const std::string& text, Do action) {
    openLog(true); // to standard error
    testing::internal::CaptureStderr();
    action();
    std::istringstream log(testing::internal::GetCapturedStderr());
    long lines = 0;
    for (std::string line; std::getline(log, line);)
        lines += line.find(text) != line.npos;
    return lines;
}

// The other process may not be what it was any more: one that asks without end fills no log.

TEST(Lines, OfWhatIsNotUnderstoodAreLimited) {
    Quiet machine;
    Link link(machine.device());
    EXPECT_EQ(20 + 1 + 20, countLines("", [&] {
                  for (const int minute : {1, 2}) {
                      for (int i = 0; i < 1000; ++i) {
                          machine.network().send("noise");
                          EXPECT_FALSE(link.receive());
                      }
                      machine.pass(std::chrono::minutes(minute));
                  }
              }));
}

/// The network's side of a process that it does not trust any more: sends sets of its own.
struct Taken : Quiet {
    Taken() {
        onNetwork = [this] {
            while (network().receive())
                ;
        };
        onSent = [this](const Message& message) {
            if (const auto* const hello = std::get_if<Hello>(&message))
                incarnation = hello->incarnation;
            const auto* const snapshot = std::get_if<Snapshot>(&message);
            const auto* const result = std::get_if<SetResult>(&message);
            if (snapshot != nullptr && told)
                told(*snapshot);
            if (result != nullptr || (asked == 0 && snapshot != nullptr && snapshot->complete))
                next(result);
        };
    }

    /// Asks for a VLAN on trial, or for the end of that.
    void ask(seconds trial, Verdict verdict = Verdict::notGiven) {
        SetRequest set{};
        set.id = ++asked;
        set.incarnation = incarnation;
        set.deadline = now() + seconds(4);
        set.trial = trial;
        set.verdict = verdict;
        if (verdict == Verdict::notGiven)
            set.changes = {{&objectCalled("cvVlanEnabled"), 1, {1, ""}, 0}};
        network().send(pack(set));
    }

    std::uint64_t asked = 0;
    std::uint64_t incarnation = 0;
    std::function<void(const SetResult*)> next; ///< null once the device has been read
    std::function<void(const Snapshot&)> told;
};

TEST(Lines, OfSetsThatAreTakenBackAreLimited) {
    // On trial, and every other one takes that back; or each trial ends by itself, in a second.
    for (const bool expires : {false, true}) {
        Taken machine;
        machine.options.foreground = true;
        const std::uint64_t kSets = expires ? 30 : 80;
        const auto ask = [&] {
            if (machine.asked == kSets)
                machine.askToStop();
            else if (expires || machine.asked % 2 == 0)
                machine.ask(seconds(expires ? 1 : 60));
            else
                machine.ask(seconds(0), Verdict::revert);
        };
        machine.next = [&](const SetResult* result) {
            EXPECT_TRUE(result == nullptr || result->outcome == Outcome::done) << machine.asked;
            if (result == nullptr || !expires)
                ask();
        };
        bool restores = false;
        machine.told = [&](const Snapshot& snapshot) {
            const bool now = snapshot.trial.state == ChangeState::restoring;
            if (std::exchange(restores, now) && !now && expires)
                ask();
        };
        EXPECT_EQ(20, countLines("taken back",
                                 [&] { dev::Worker(machine.options, machine.device()).run(); }))
            << expires;
        EXPECT_EQ(kSets, machine.asked);
    }
}

TEST(Lines, OfRowsThatAreLeftAloneAreNotLeftOutWithOthers) {
    constexpr std::uint64_t kSets = 80;
    Taken machine;
    machine.options.foreground = true;
    machine.next = [&](const SetResult*) {
        if (machine.asked == kSets)
            return machine.askToStop();
        if (machine.asked % 2 == 0)
            return machine.ask(seconds(60));
        if (machine.asked == kSets - 1)
            machine.database.run(
                "updatekey BridgeInterface Id " +
                    std::to_string(machine.database[Table::bridgeInterface].back().id()) +
                    " Interface text:other;",
                simulation::kOthers);
        machine.ask(seconds(0), Verdict::revert);
    };
    EXPECT_EQ(1, countLines("left as they are",
                            [&] { dev::Worker(machine.options, machine.device()).run(); }));
}

// Nor does one that keeps a job waiting hold up the end of a trial, or a stop.
TEST(Jobs, WithoutEndLeaveTheRestItsTurn) {
    Taken machine;
    std::uint64_t whenReverted = 0;
    machine.told = [&](const Snapshot& snapshot) {
        if (snapshot.trial.state != ChangeState::restoring || whenReverted != 0)
            return;
        whenReverted = machine.asked;
        machine.askToStop();
    };
    machine.next = [&](const SetResult* result) {
        if (result == nullptr)
            machine.ask(seconds(5));
        for (int more = result == nullptr ? 2 : 1; more > 0 && machine.asked < 900; --more) {
            machine.pass(std::chrono::milliseconds(100));
            machine.ask(seconds(0)); // refused, as long as the first one is pending
        }
    };
    dev::Worker(machine.options, machine.device()).run();
    EXPECT_GT(100U, whenReverted);
    EXPECT_GT(300U, machine.asked);
}

} // namespace
