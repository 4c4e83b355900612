#pragma once

#include "tests/library/Platform.h"

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

// A handler's test is a table of the client commands that it must run, in order. All that has to
// come of a refused command follows from the table: the status, the commands after it, the log, the
// waits for the lock, and what is left in the outputs and the cache. Each command is refused in
// every way. Switching ATM circuit 3 off reads it, deletes its node, whether that succeeds or not,
// and writes it:
//
//     Sequence("AtmOff", atm, 2, {get(" selectkey Atm Id 3 Enabled ;").answers(1), // a number
//                                 act(" deletekey NetworkSetupNode ...").ignored(), // logged
//                                 act(" updatekey Atm Id 3 Enabled integer:0 ;")})
//
// where `atm` makes the call, and 2, off, is what it is given: a number, a text, or
// State(1).on({1}) for VLAN rows that are on and .bridges({...}) for bridges in the cache. Words on
// a step:
//
//     .answers(7, &State::bridge)    the answer is 7, and goes into that output
//     .then(effect)                  changes the state when the command has succeeded
//     .anyway(effect)                changes it before, whatever comes of the command
//     .ignored(noRow)                goes on after this failure only
//     .orElse({steps}, noRow)        after it, the rest of the sequence is another
//     .failsWith(1)                  a failure ends the sequence with this status
//     ignoring({steps})              the first failure ends these steps, not the sequence
//     endsWith(6), gives(2)          the sequence ends here, or succeeds here with a value
//
// The sequences are in handlers_test.cpp; each is a test that runs alone by its name.

namespace sequence {

/** What a call can change: its output, and in the cache the VLAN rows and the bridge slots. */
struct State {
    State() : hasIds(true) {}
    State(int given) : value(given) {}
    State(const char* given) : text(given) {}

    State& on(std::initializer_list<int> rows, int enable = 1) {
        for (const int row : rows)
            vlan[row] = enable;
        return *this;
    }
    State& bridges(std::initializer_list<int> held) {
        std::copy(held.begin(), held.end(), &slot[1]);
        return *this;
    }
    std::string show() const {
        using testing::PrintToString;
        const std::string ids = PrintToString(std::vector{bridge, lan, wan, filter});
        return PrintToString(value) + PrintToString(text) + (hasIds ? ids : "") +
               PrintToString(vlan) + PrintToString(slot);
    }

    bool hasIds = false;
    int value = 0, bridge = -1, lan = -1, wan = -1, filter = -1;
    std::string text;
    int vlan[17] = {}, slot[9] = {0, -1, -1, -1, -1, -1, -1, -1, -1};
};
using Effect = std::function<void(State&)>;

inline const std::string unknownRow = "Unknown row", locked = "Database locked";
inline constexpr int noRow = CORVANTA_UNKNOWN_ROW;

/** A step of a sequence: a command, or steps together, or the end. */
struct Step {
    enum Failure { ends, goesOn, isElsewhere };
    struct Kind {
        bool traced = false, exact = false, once = false;
    };

    Step(std::vector<Step> steps) : together(std::move(steps)) {}
    Step(std::string text, Kind its) : command(std::move(text)), kind(its) {}

    template <typename Value>
    Step with(Value Step::*member, Value value) const {
        Step other = *this;
        other.*member = std::move(value);
        return other;
    }
    Step answers(const std::string& text) const { return with(&Step::answer, text + "\n"); }
    Step answers(int id) const { return answers(std::to_string(id)); }
    Step answers(int id, int State::*to) const {
        return answers(id).then([=](State& s) { s.*to = id; });
    }
    /** What it changes when it succeeds, or even before. */
    Step then(Effect effect) const { return with(&Step::onSuccess, std::move(effect)); }
    Step anyway(Effect effect) const { return with(&Step::always, std::move(effect)); }
    /** A failure, or that with a status only, does not end the sequence. */
    Step ignored(int only = 0) const {
        return with(&Step::failure, goesOn).with(&Step::onlyStatus, only);
    }
    /** The same, and the rest of the sequence is another. */
    Step orElse(std::vector<Step> steps, int only = 0) const {
        return ignored(only).with(&Step::failure, isElsewhere).with(&Step::elsewhere, steps);
    }
    Step failsWith(int status) const { return with(&Step::end, std::optional(status)); }

    int statusOf(const Answer& given) const {
        const std::string& text = given.text;
        if (given.fault == Answer::Fault::start)
            return 1;
        if (text == unknownRow + "\n")
            return 3;
        if (text == locked + "\n")
            return kind.once ? 1 : 2;
        if (text.size() > (kind.once ? 98U : 28U))
            return kind.once ? 1 : 6;
        return 0;
    }
    /** Whether the client gave an answer, but not the one that is needed. */
    bool isOther(const Answer& given) const { return kind.exact && given.text[0] == '?'; }

    std::string command, answer = "?\n";
    Kind kind;
    Effect onSuccess = [](State&) {}, always = onSuccess;
    Failure failure = ends;
    int onlyStatus = 0;
    std::optional<int> end;
    std::vector<Step> together, elsewhere;
};
using Steps = std::vector<Step>;

/** Makes commands from their parts: "act" and "num" are traced, "key" is not repeated while the
 *  database is locked, and "num", "get" and "key" need a certain answer, a number but for one. */
struct Maker : Step::Kind {
    template <typename... Parts>
    Step operator()(const Parts&... parts) const {
        std::ostringstream command;
        (command << ... << parts);
        return Step(quorlet(command.str()), *this);
    }
};
inline constexpr Maker run = {}, act = {{true}}, num = {{true, true}}, get = {{false, true}},
                       key = {{false, true, true}};

/** Steps of which the first failure ends no more than these. */
inline Step ignoring(Steps steps) {
    return Step(std::move(steps)).ignored();
}
/** The end of the sequence. */
inline Step endsWith(int status) {
    return Step(Steps()).failsWith(status);
}
inline Step gives(int value) {
    return endsWith(0).anyway([=](State& s) { s.value = value; });
}

using Handler = std::function<int(access_type, State&)>;

struct Sequence {
    Sequence(const char* title, Handler of, State given, Steps all, access_type how = access_set)
        : name(title), handler(std::move(of)), access(how), before(given), steps(std::move(all)) {}

    const char* name;
    Handler handler;
    access_type access;
    State before;
    Steps steps;
};

inline std::ostream& operator<<(std::ostream& out, const Sequence& sequence) {
    return out << sequence.name;
}

/** Runs a sequence with each of its commands refused in every way, alone and after others. */
void refuseEach(const Sequence& sequence);

/** Makes the cache as it is before a call. */
void fillCache(const State& before);

} // namespace sequence
