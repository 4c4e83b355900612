#include "tests/Platform.h"

#include "objects/data_cache.h"
#include "objects/managed_objects.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

// Drives the handlers by their sequences in handlers.txt: what comes of any failure follows
// from that file.

namespace {

using State = std::map<std::string, std::string>; // "v3": VLAN row 3, "s1": slot 1, outputs

/** A line of a sequence; see handlers.txt. */
struct Step {
    std::string kind;
    std::string text; // command, name of a label, or status at the end
    std::string failed, unknown, answer;
    State done, reached;

    bool runs() const { return text[0] == ' '; }
    bool traced() const { return kind == "act" || kind == "num"; }
    bool number() const { return kind == "num" || kind == "get" || kind == "key"; }
};
using Steps = std::vector<Step>;

struct Sequence {
    std::string name;
    Lines call;   // handler, access, value, index
    State before; // outputs, and the cache where it isn't all zeroes and free slots
    Steps steps;

    const Step* labelled(const std::string& label) const {
        const Step* at = steps.data();
        while (at->kind != "label" || at->text != label)
            ++at;
        return at;
    }
};

struct Macro {
    Lines parameters, body;
};

std::string meant(const std::string& word) {
    const State words = {{"ok", "Operation succeeded"}, {"none", "Unknown row"}, {"''", ""}};
    return words.count(word) ? words.at(word) : word;
}

Lines split(const std::string& text, char separator) {
    std::istringstream in(text);
    Lines pieces;
    for (std::string piece; std::getline(in, piece, separator);)
        if (!piece.empty())
            pieces.push_back(piece);
    return pieces;
}

State changes(const std::string& list) {
    State changed;
    for (const std::string& change : split(list, ','))
        if (const auto equals = change.find('='); equals != std::string::npos)
            changed[change.substr(0, equals)] = meant(change.substr(equals + 1));
    return changed;
}

std::string replaced(std::string text, const std::string& name, const std::string& value) {
    for (std::size_t at; (at = text.find(name)) != std::string::npos;)
        text.replace(at, name.size(), value);
    return text;
}

/** Appends a line's steps. */
void append(Steps& steps, const std::map<std::string, Macro>& macros, const std::string& line) {
    Lines words = split(line.substr(0, line.find('|')), ' ');
    if (words[0] == "ignoring") {
        Steps called;
        append(called, macros, line.substr(line.find(" use ") + 1));
        for (Step& step : called)
            for (std::string* on : {&step.failed, &step.unknown})
                if (*on == "return" || *on == "1")
                    *on = words[1];
        steps.insert(steps.end(), called.begin(), called.end());
        append(steps, macros, "label " + words[1]);
    } else if (words[0] == "use") {
        static int uses = 0;
        const std::string number = std::to_string(++uses);
        const Macro& macro = macros.at(words.at(1));
        for (std::string body : macro.body) {
            for (std::size_t i = 0; i < macro.parameters.size(); ++i)
                body = replaced(body, "{" + macro.parameters[i] + "}", words.at(i + 2));
            append(steps, macros, replaced(body, "{#}", number));
        }
    } else if (words[0] == "each") {
        for (const std::string& each : split(words[1], ','))
            append(steps, macros, replaced(line.substr(line.find(words[2])), "{each}", each));
    } else {
        words.resize(4);
        Step step = {words[0], words[1], words[1], words[1], meant(words[2]), {}, {}};
        if (const auto command = line.find('|'); command != std::string::npos)
            step.text = quorlet(line.substr(command + 1, line.rfind('|') - command - 1));
        step.failed.erase(std::min(step.failed.find('/'), step.failed.size()));
        step.unknown.erase(0, step.unknown.find('/') + 1);
        (words[3][0] == '*' ? step.reached : step.done) =
            changes(words[3].substr(words[3][0] == '*'));
        steps.push_back(step);
    }
}

std::vector<Sequence> sequences() {
    std::ifstream file(TESTS "/handlers.txt");
    std::vector<Sequence> all;
    std::map<std::string, Macro> macros;
    Macro* macro = nullptr;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line[0] == '#')
            continue;
        Lines words = split(line, ' ');
        if (words[0] == "macro") {
            macro = &macros[words[1]];
            macro->parameters.assign(words.begin() + 2, words.end());
        } else if (words[0] == "sequence") {
            macro = nullptr;
            const Lines parts = split(line, '|');
            all.push_back({parts[0], split(parts.at(1), ' '), changes(parts.at(2).substr(1)), {}});
        } else if (macro) {
            macro->body.push_back(line);
        } else {
            append(all.back().steps, macros, line);
        }
    }
    for (Sequence& sequence : all)
        append(sequence.steps, macros, "end 0");
    EXPECT_EQ(30U, all.size());
    return all;
}

/** Calls a sequence's handler, its allocations counted. @return the status */
int call(const Sequence& sequence, State& outputs) {
    Lines words = sequence.call;
    words.resize(4);
    const std::string &handler = words[0], given = meant(words[2]);
    const std::string accesses[] = {"none", "get", "set", "create", "delete"};
    const auto access = access_type(std::find(accesses, std::end(accesses), words[1]) - accesses);
    int ids[4] = {7, 7, 7, 7}, length = static_cast<int>(given.size());
    int value = std::atoi(given.c_str()), index = std::atoi(words[3].c_str());
    char text[15] = "zzzzzzzzzzzzzz"; // not terminated after the value
    given.copy(text, given.size());
    const int status = counted([&] {
        return handler == "atm"       ? AtmEnabled_snmp(access, &value, index)
               : handler == "enabled" ? VlanEnabled_snmp(access, &value, index)
               : handler == "tag"     ? VlanDiscardTag_snmp(access, &value, index)
               : handler == "discard" ? VlanDiscardUntaggedFrames_snmp(access, &value)
               : handler == "parent"  ? VlanWanInterface(access, text, 15, &length, 1)
               : handler == "default" ? VlanDefaultWanInterface(access, text, 15, &length)
                                      : default_Bridge(access, &ids[0], &ids[1], &ids[2], &ids[3]);
    });
    if (handler == "bridge")
        outputs = {{"bridge", std::to_string(ids[0])},
                   {"lan", std::to_string(ids[1])},
                   {"wan", std::to_string(ids[2])},
                   {"filter", std::to_string(ids[3])}};
    else if (handler == "parent" || handler == "default")
        outputs["text"] = std::string(text, static_cast<std::size_t>(length));
    else
        outputs["value"] = std::to_string(value);
    return status;
}

/** How a command is refused, and the status that it then has. */
struct Refusal {
    const char* way = "";
    Answer answer;
    const char* status = "";
    std::size_t runs = 0;
};

std::vector<Refusal> refusals(const Step& step) {
    const bool key = step.kind == "key";
    std::vector<Refusal> all = {{"not started", notStarted, "1", 1},
                                {"unknown row", "Unknown row\n", "3", 1},
                                {"locked", "Database locked\n", key ? "1" : "2", key ? 1U : 20U},
                                {"too long", std::string(key ? 99 : 29, '1'), key ? "1" : "6", 1}};
    if (step.number())
        all.push_back({"no number", "?", "1", 1});
    return all;
}

/** What the sequences name of the cache. */
std::map<std::string, std::int32_t*> cached() {
    std::map<std::string, std::int32_t*> values;
    for (int row = 1; row <= 16; ++row)
        values["v" + std::to_string(row)] = &mgmt_o.cache->vlan_intern[row].Enable;
    for (int slot = 1; slot <= 8; ++slot)
        values["s" + std::to_string(slot)] = &mgmt_o.cache->bridge[slot].intern_Id;
    return values;
}

/** The outputs and the cache as they are now. */
State now(State outputs) {
    for (const auto& [name, value] : cached())
        outputs[name] = std::to_string(*value);
    return outputs;
}

/** Makes the cache as it is before a call. */
void fillCache(const State& before) {
    delete mgmt_o.cache;
    mgmt_o.cache = new data_cache;
    mgmt_o.cache->init();
    for (int row = 1; row <= 16; ++row)
        mgmt_o.cache->vlan_intern[row].InterfaceName =
            (row % 2 ? "eth0.10" : "wan1.10") + std::to_string((row + 1) / 2);
    for (const auto& [name, value] : cached())
        *value = before.count(name) ? std::stoi(before.at(name))
                 : name[0] == 's'   ? data_cache::freeSlot
                                    : 0;
}

class HandlersTest : public PlatformTest {
protected:
    ~HandlersTest() override {
        delete mgmt_o.cache;
        mgmt_o.cache = nullptr;
    }

    /** Calls a handler, whose commands the table answers, but for one. @return the status */
    static std::string expect(const Sequence& sequence, const Step* refused = nullptr,
                              const Refusal& refusal = {}) {
        fillCache(sequence.before);
        State expected = now(sequence.before), outputs;
        const auto change = [&](const State& changed) {
            for (const auto& [name, to] : changed)
                if (expected.count(name))
                    expected[name] = to;
        };
        const Step* step = nullptr; // that runs next, or ends the sequence
        const auto goOn = [&](const Step* from) {
            for (step = from; !step->runs() && step->kind != "end"; ++step)
                if (step->kind == "jump")
                    step = sequence.labelled(step->text);
        };
        std::string status;
        std::size_t runs = 0; // of the command that is refused
        Lines log;
        goOn(sequence.steps.data());
        platform.client = [&](const std::string& command) {
            if (command != step->text) {
                ADD_FAILURE() << "instead of" << step->text << "came" << command;
                return notStarted;
            }
            change(step->reached);
            const bool fails = step == refused;
            const Answer answer = fails ? refusal.answer : Answer(step->answer + "\n");
            std::string shown = answer.text;
            if (!fails && shown != "Unknown row\n")
                shown.pop_back();
            if (step->traced())
                log.push_back("trace:corvanta: " + command + " ==> " + shown);
            const std::string& next = refusal.status[0] == '3' ? step->unknown : step->failed;
            if (!fails)
                change(step->done);
            else if (++runs < refusal.runs)
                return answer;
            else if (next == "return" || next == "1")
                status = next == "1" ? next : refusal.status;
            goOn(!status.empty()              ? &sequence.steps.back()
                 : !fails || next == "ignore" ? step + 1
                                              : sequence.labelled(next));
            return answer;
        };
        platform.sleeps.clear();
        const std::string given = std::to_string(call(sequence, outputs));
        EXPECT_EQ("end", step->kind) << "not run:" << step->text;
        EXPECT_EQ(status.empty() ? step->text : status, given);
        EXPECT_EQ(expected, now(outputs));
        EXPECT_EQ(log, platform.takeLog());
        EXPECT_EQ(std::vector<unsigned>(runs > 0 ? runs - 1 : 0, 1), platform.sleeps);
        EXPECT_EQ(0, platform.openStreams);
        platform.commands.clear();
        return given;
    }
};

TEST_F(HandlersTest, EverySequenceRefusalAndLackOfMemory) {
    for (const Sequence& sequence : sequences()) {
        SCOPED_TRACE(sequence.name);
        const std::string ordinary = expect(sequence);
        for (const Step& step : sequence.steps)
            if (step.runs())
                for (const Refusal& refusal : refusals(step)) {
                    SCOPED_TRACE(step.text + refusal.way);
                    expect(sequence, &step, refusal);
                    ASSERT_FALSE(HasFailure());
                }
        withEachAllocationFailing([&] {
            fillCache(sequence.before);
            platform.client = [&](const std::string& command) {
                for (const Step& step : sequence.steps)
                    if (step.text == command)
                        return Answer(step.answer + "\n");
                return notStarted;
            };
            State outputs;
            const std::string status = std::to_string(call(sequence, outputs));
            EXPECT_TRUE(status == "1" || status == ordinary) << status;
        });
        platform.takeLog();
        expect(sequence);
    }
}

TEST_F(HandlersTest, WhatNeedsNoCommand) {
    fillCache({{"v1", "1"}, {"v2", "1"}});
    int value = 1, length = 1;
    char text[20] = "a";
    for (const int status :
         {AtmEnabled_snmp(access_get, nullptr, 1), VlanEnabled_snmp(access_set, nullptr, 1),
          VlanDiscardTag_snmp(access_get, nullptr, 1),
          VlanDiscardUntaggedFrames_snmp(access_set, nullptr),
          VlanWanInterface(access_set, nullptr, 20, &length, 1),
          VlanWanInterface(access_set, text, 20, nullptr, 1),
          VlanDefaultWanInterface(access_get, nullptr, 20, &length),
          VlanDefaultWanInterface(access_set, text, 20, nullptr)})
        EXPECT_EQ(1, status);
    for (int missing = 0; missing < 4; ++missing) {
        int ids[4] = {7, 7, 7, 7};
        const auto at = [&](int id) { return id == missing ? nullptr : &ids[id]; };
        EXPECT_EQ(1, default_Bridge(access_create, at(0), at(1), at(2), at(3)));
        EXPECT_EQ(28, ids[0] + ids[1] + ids[2] + ids[3]) << "nothing is written";
    }
    for (const auto handler : {VlanEnabled_snmp, VlanDiscardTag_snmp})
        for (const access_type access : {access_get, access_set})
            for (const int index : {0, 9, -1, INT_MAX, INT_MIN})
                EXPECT_EQ(1, handler(access, &value, index)) << index;
    const auto enabled = &VlanEnabled_snmp, tag = &VlanDiscardTag_snmp;
    const struct {
        decltype(enabled) handler;
        access_type access;
        int object, before, after;
    } calls[] = {{enabled, access_get, 1, 77, 1},   {enabled, access_get, 8, 77, 2},
                 {enabled, access_set, 1, 1, 1},    {enabled, access_set, 8, 2, 2},
                 {enabled, access_create, 1, 2, 2}, {tag, access_get, 1, 77, 2},
                 {tag, access_get, 2, 77, 1},       {tag, access_delete, 1, 5, 5}};
    for (const auto& [handler, access, object, before, after] : calls) {
        value = before;
        EXPECT_EQ(0, handler(access, &value, object));
        EXPECT_EQ(after, value);
    }
    // A text that cannot stand in a command, and lengths that are none.
    text[1] = ';';
    for (int bad : {2, -1, 21, INT_MAX, INT_MIN}) {
        EXPECT_EQ(6, VlanDefaultWanInterface(access_set, text, sizeof text, &bad)) << bad;
        EXPECT_EQ(6, VlanWanInterface(access_set, text, sizeof text, &bad, 1)) << bad;
    }
    EXPECT_RUN();
}

/** Those that are logged have 199 characters at most, the others 198. */
TEST_F(HandlersTest, CommandsUpToTheirLimits) {
    // Less the length of the rest of the command.
    const std::string lan(199 - 158, 'x'), wan(198 - 156, 'x');
    fillCache({{"v5", "1"}, {"v7", "1"}});
    data_cache::vlan_row* const rows = mgmt_o.cache->vlan_intern;
    rows[1].InterfaceName = lan;
    rows[3].InterfaceName = lan + "x";
    rows[6].InterfaceName = wan;
    rows[8].InterfaceName = wan + "x";
    int on = 1, carried = 2;
    platform.script({"x\n", "9\n", "1\n", "", "x\n", "10\n", "1\n"});
    EXPECT_EQ(1, VlanEnabled_snmp(access_set, &on, 1));
    EXPECT_EQ(199U, platform.commands.back().size());
    EXPECT_EQ(6, VlanEnabled_snmp(access_set, &on, 2)) << "stops before the node";
    platform.script({"x\n", "20\n", "\n", "wan1\n", "", "x\n", "20\n", "\n", "wan1\n"});
    EXPECT_EQ(1, VlanDiscardTag_snmp(access_set, &carried, 3));
    EXPECT_EQ(198U, platform.commands.back().size());
    EXPECT_EQ(6, VlanDiscardTag_snmp(access_set, &carried, 4)) << "stops before the node";
}

} // namespace
