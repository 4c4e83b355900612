// A set request in the process that faces the network: what the simulation does not play.

#include "Machine.h"

#include "agent/Log.h"
#include "agent/dev/Worker.h"
#include "agent/net/Sets.h"
#include "agent/system/Invariant.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <deque>
#include <sstream>
#include <string>

using namespace agent;
using namespace agent::net;
using simulation::Machine;

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
        const Instance& instance =
            *std::find_if(snapshots.newest().instances.begin(), snapshots.newest().instances.end(),
                          [](const Instance& each) {
                              return each.object->label() == std::string("cvVlanEnabled");
                          });
        sets.begin({"a manager",
                    identity,
                    identity,
                    machine.now(),
                    {{instance.name, instance.object, Value{1, ""}, error}}});
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

TEST(Lines, OfSetsThatAreTakenBackAreLimited) {
    const auto object = std::find_if(objects().begin(), objects().end(), [](const Object& each) {
        return each.label() == std::string("cvVlanEnabled");
    });
    // On trial, and every other one takes that back; or each trial ends by itself, in a second.
    for (const bool expires : {false, true}) {
        Quiet machine;
        machine.options.foreground = true;
        const std::uint64_t kSets = expires ? 30 : 80;
        std::uint64_t asked = 0;
        std::uint64_t incarnation = 0;
        bool restores = false;
        machine.onNetwork = [&] {
            while (machine.network().receive())
                ;
        };
        machine.onSent = [&](const Message& message) {
            if (const auto* const hello = std::get_if<Hello>(&message))
                incarnation = hello->incarnation;
            const auto* const snapshot = std::get_if<Snapshot>(&message);
            const auto* const result = std::get_if<SetResult>(&message);
            EXPECT_TRUE(result == nullptr || result->outcome == Outcome::done) << asked;
            const bool before = restores;
            if (snapshot != nullptr)
                restores = snapshot->trial.state == ChangeState::restoring;
            const bool next = expires ? before && !restores : result != nullptr;
            if (!next && (asked != 0 || snapshot == nullptr || !snapshot->complete))
                return;
            if (asked == kSets)
                return machine.askToStop();
            SetRequest set{};
            set.id = ++asked;
            set.incarnation = incarnation;
            set.deadline = machine.now() + seconds(4);
            if (expires || asked % 2 == 1) {
                set.changes = {{&*object, 1, {1, ""}, 0}};
                set.trial = seconds(expires ? 1 : 60);
            } else {
                set.verdict = Verdict::revert;
            }
            machine.network().send(pack(set));
        };
        EXPECT_EQ(20, countLines("taken back",
                                 [&] { dev::Worker(machine.options, machine.device()).run(); }))
            << expires;
        EXPECT_EQ(kSets, asked);
    }
}

// Nor does one that keeps a job waiting hold up the end of a trial, or a stop.
TEST(Jobs, WithoutEndLeaveTheRestItsTurn) {
    Quiet machine;
    int asked = 0;
    int whenReverted = 0;
    const auto ask = [&](std::uint64_t incarnation) {
        SetRequest set{};
        set.id = static_cast<std::uint64_t>(++asked);
        set.incarnation = incarnation;
        set.deadline = machine.now() + seconds(4);
        set.trial = seconds(asked == 1 ? 5 : 0);
        const auto object = std::find_if(objects().begin(), objects().end(), [](const Object& o) {
            return o.label() == std::string("cvVlanEnabled");
        });
        set.changes = {
            {&*object, 1, {1, ""}, 0}}; // refused, but for the first, as long as it is pending
        machine.network().send(pack(set));
    };
    std::uint64_t incarnation = 0;
    machine.onSent = [&](const Message& message) {
        if (const auto* const hello = std::get_if<Hello>(&message))
            incarnation = hello->incarnation;
        const auto* const snapshot = std::get_if<Snapshot>(&message);
        if (snapshot != nullptr && snapshot->trial.state == ChangeState::restoring &&
            whenReverted == 0) {
            whenReverted = asked;
            machine.askToStop();
        }
        if (std::holds_alternative<SetResult>(message) && asked < 900) {
            machine.pass(std::chrono::milliseconds(100));
            ask(incarnation);
        } else if (snapshot != nullptr && snapshot->complete && asked == 0) {
            for (int i = 0; i < 3; ++i)
                ask(incarnation);
        }
    };
    machine.onNetwork = [&] {
        while (machine.network().receive())
            ;
    };
    dev::Worker(machine.options, machine.device()).run();
    EXPECT_GT(100, whenReverted);
    EXPECT_GT(300, asked);
}

} // namespace
