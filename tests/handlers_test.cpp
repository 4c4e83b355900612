#include "tests/Platform.h"

#include "objects/data_cache.h"
#include "objects/managed_objects.h"

#include <map>
#include <sstream>

namespace {

using State = std::map<std::string, std::string>; // "v3": VLAN row 3, "s1": slot 1, outputs

/** One line of a sequence. */
struct Step {
    std::string kind;    // as below
    std::string text;    // command, name of a label, or status at the end
    std::string failed;  // how the handler goes on: "return", "ignore", a status, or a label
    std::string unknown; // the same for an unknown row
    std::string answer;
    State done = {};    // what the command's success changes
    State reached = {}; // what has changed before it runs

    bool runs() const { return text[0] == ' '; }
    bool traced() const { return kind == "act" || kind == "num"; }
    bool number() const { return kind == "num" || kind == "get" || kind == "key"; }
};
using Steps = std::vector<Step>;

Steps operator+(Steps steps, const Steps& more) {
    steps.insert(steps.end(), more.begin(), more.end());
    return steps;
}

/** "v1=1,s3=9" and the like. */
State changes(const std::string& list) {
    std::istringstream items(list + ",");
    State changed;
    for (std::string name, value;
         std::getline(items, name, '=') && std::getline(items, value, ',');)
        changed[name] = value;
    return changed;
}

/**
 * The steps of a handler, one a line, each {name} replaced:
 *     KIND FAILED ANSWER CHANGES | COMMAND |
 * KIND is act (traced), num (traced, the answer is a number), get (a number), key (a number, asked
 * once) or run. FAILED may name another way on for an unknown row: FAILED/UNKNOWN. CHANGES come
 * when the command succeeded, with a "*" before it runs. Other lines: "label NAME", "jump NAME"
 * and "end STATUS".
 */
Steps steps(std::string table, const State& names = {}) {
    for (const auto& [name, value] : names)
        for (std::size_t at; (at = table.find("{" + name + "}")) != std::string::npos;)
            table.replace(at, name.size() + 2, value);
    static const State answers = {
        {"ok", "Operation succeeded"}, {"none", "Unknown row"}, {"''", ""}};
    Steps result;
    std::istringstream lines(table);
    for (std::string line; std::getline(lines, line);) {
        Step step;
        std::string changed;
        std::istringstream words(line.substr(0, line.find('|')));
        if (!(words >> step.kind >> step.failed))
            continue;
        words >> step.answer >> changed;
        if (answers.count(step.answer))
            step.answer = answers.at(step.answer);
        const std::size_t command = line.find('|') + 1;
        step.text =
            command ? quorlet(line.substr(command, line.rfind('|') - command)) : step.failed;
        step.unknown = step.failed.substr(step.failed.find('/') + 1);
        step.failed = step.failed.substr(0, step.failed.find('/'));
        (changed[0] == '*' ? step.reached : step.done) = changes(changed.substr(changed[0] == '*'));
        result.push_back(step);
    }
    return result;
}

/** The steps of a called handler whose failures are ignored. */
Steps ignoring(Steps called, const std::string& next) {
    for (Step& step : called)
        for (std::string* on : {&step.failed, &step.unknown})
            if (*on == "return" || *on == "1")
                *on = next;
    return called + steps("label " + next);
}

/** The default bridge 4 with the rows 5 and 6 and the filter 2; where to go without each. */
Steps lookup(const std::string& noLan, const std::string& noBridge = "",
             const std::string& filter = "2", const std::string& noFilter = "ignore") {
    static int lookups = 0;
    const std::string after = "lookup" + std::to_string(++lookups);
    return steps(R"(
        key {l} 5 lan=5,wan=6     | selectkey BridgeInterface Interface eth0 Id ;|
        get {b} 4 bridge=4        | selectkey BridgeInterface Id 5 BridgeId ;|
        key {f} {filter} filter=2 | selectkey BridgeFilter BridgeId 4 Id ;|
        label {after})",
                 {{"l", noLan},
                  {"b", noBridge.empty() ? after : noBridge},
                  {"f", noFilter},
                  {"filter", filter},
                  {"after", after}});
}

const Steps noDefaultBridge =
    steps("key ignore none | selectkey BridgeInterface Interface eth0 Id ;|");

Steps deleteBridge(const std::string& id) {
    return steps(R"(
        act return ok | deletekey    BridgeInterface BridgeId {id} ;|
        act return ok | deletekey    BridgeFilter            BridgeId {id}  ;|
        act return ok | deletekey    Bridge Id {id} ;|)",
                 {{"id", id}});
}

const Steps createBridge = steps(R"(
    num return 4 bridge=4 | insertkey Bridge Name text:wanX Stp integer:0 ;|
    num return 5 lan=5    | insertkey BridgeInterface  BridgeId integer:4  Interface text:eth0  AllowLocalAccess integer:0  AllowDHCP integer:0 ;|
    num return 6 wan=6    | insertkey BridgeInterface  BridgeId integer:4  Interface text:wanX  AllowLocalAccess integer:0  AllowDHCP integer:0 ;|)");

const Steps insertFilter = steps("num return 3 | insertkey  BridgeFilter  BridgeId integer:4  "
                                 "FilterRule text:  VLANId integer:0  PBit integer:0 ;|");

Steps discard(const std::string& setting) {
    return steps("act return ? | updatekey VLANSingleParams Id 1 DiscardUntaggedFrames integer:" +
                 setting + " ;|");
}

/** VLAN object n, its interfaces eth0.10n and wan1.10n, its bridge 9 in slot 3, members 20 and 21.
 */
Steps vlan(int n, const std::string& table, State more = {}) {
    more.insert({{"A", std::to_string(2 * n - 1)},
                 {"B", std::to_string(2 * n)},
                 {"a", "eth0.10" + std::to_string(n)},
                 {"b", "wan1.10" + std::to_string(n)}});
    return steps(table, more);
}

/** Sets the tag of an object that is on: its WAN member `from` becomes `to`. */
Steps setTag(int n, const std::string& tag, const std::string& from, const std::string& to,
             const std::string& parent) {
    const bool create = from == "''" && tag == "1";
    return vlan(n, R"(
        act return ? *v{B}={tag} | updatekey VLAN Id {B} Enable integer:{tag} ;|
        key return 20            | selectkey BridgeInterface Interface {a} Id ;|
        run return {from}        |  selectkey BridgeInterface Id 21 Interface  ;|
        run return {parent}      |  selectkey VLAN Id {B} ParentIf  ;|)",
                {{"tag", tag}, {"from", from}, {"parent", parent}}) +
           vlan(n,
                create ? R"(
        run return 1             |  insertkey   NetworkSetupNode  Type text:VLAN  InterfaceName  text:{b} ParentInterface text:{parent} ConfigurationSpecifics text:  Enable integer:1  ;|
        run ignore 1             |  insertkey  StatusNetifConfig  Name text:{b} ;|)"
                       : "",
                {{"parent", parent}}) +
           vlan(n, R"(
        run return ?             | updatekey BridgeInterface Id 21 Interface text:{to} ;|
        run ignore 1             |  insertkey  NetworkSetupNode  Type text:BridgeInterface   InterfaceName   text:bridge:{to} ParentInterface text:{to} ConfigurationSpecifics text:  Enable integer:1  ;|)",
                {{"to", to}});
}

/** Sets the tag of an object that is off: its WAN side goes. */
Steps setTagOff(int n, const std::string& tag, const std::string& member) {
    return vlan(n, R"(
        act return ? *v{B}={tag} | updatekey VLAN Id {B} Enable integer:{tag} ;|
        key return 20            | selectkey BridgeInterface Interface {a} Id ;|
        run return {member}      |  selectkey BridgeInterface Id 21 Interface  ;|
        run ignore ok            |  deletekey  NetworkSetupNode  InterfaceName        bridge:{member} ;|
        run ignore ok            | deletekey NetworkSetupNode   InterfaceName  {b} ;|
        run ignore ok            |  deletekey  StatusNetifConfig  Name {b} ;|)",
                {{"tag", tag}, {"member", member}});
}

Steps switchOn(const std::string& tag, const std::string& member) {
    return vlan(1, R"(
        act return ? *v{A}=1 | updatekey VLAN Id {A} Enable integer:1 ;|
        get 1 9 s3=9         |  insertkey  Bridge  Name text:br3 Stp integer:0   ;|
        run ignore 1         |  insertkey   NetworkSetupNode  Type text:Bridge  InterfaceName text:br3 ParentInterface text:root   ConfigurationSpecifics text:  Enable integer:1  ;|
        act return 1         | insertkey NetworkSetupNode   Type text:VLAN   InterfaceName  text:{a} ParentInterface text:eth0    ConfigurationSpecifics text:  Enable integer:1  ;|
        run ignore 1         |  insertkey  StatusNetifConfig  Name text:{a} ;|
        act return 20        | insertkey BridgeInterface  BridgeId integer:9  Interface      text:{a}  AllowLocalAccess integer:0  AllowDHCP integer:0 ;|
        act return 1         | insertkey NetworkSetupNode   Type text:BridgeInterface    InterfaceName text:bridge:{a}   ParentInterface text:{a}  ConfigurationSpecifics text:  Enable integer:1  ;|
        act return 21        | insertkey BridgeInterface  BridgeId integer:9  Interface text:  AllowLocalAccess integer:0  AllowDHCP integer:0 ;|)") +
           setTag(1, tag, "''", member, "wan1");
}

Steps switchOff(int n, const std::string& tag, const std::string& member) {
    return vlan(n, R"(
        act return ? *v{A}=0      | updatekey VLAN Id {A} Enable integer:0 ;|)") +
           setTagOff(n, tag, member) + vlan(n, R"(
        act return/ignore ok      | deletekey    NetworkSetupNode ParentInterface  {a} ;|
        key return 9              | selectkey BridgeInterface Interface {a} BridgeId ;|
        run return br3            |  selectkey Bridge Id 9 Name  ;|
        act return ok             | deletekey    BridgeInterface BridgeId 9 ;|
        act return ok             | deletekey NetworkSetupNode   InterfaceName  {a} ;|
        run ignore ok             |  deletekey  StatusNetifConfig  Name {a} ;|
        run ignore ok             |  deletekey   NetworkSetupNode  InterfaceName br3 ;|
        run ignore ok *s3=-1      |  deletekey  Bridge  Id 9 ;|)");
}

/** The walk over the VLAN objects with these parents; object `on` uses the value and goes off. */
Steps walk(const Lines& parents, int on, const std::string& walked) {
    Steps result;
    for (int n = 1; n <= static_cast<int>(parents.size()); ++n) {
        result = result +
                 vlan(n, "run {walked} {parent} |  selectkey VLAN Id {B} ParentIf  ;|",
                      {{"walked", walked}, {"parent", parents[static_cast<std::size_t>(n) - 1]}});
        if (n == on)
            result =
                result + ignoring(switchOff(n, "1", "wan1.10" + std::to_string(n)), walked + "off");
    }
    return result + steps("label " + walked);
}

/** Makes a new default bridge known as `name`, with the WAN member wan1. */
Steps adopt(const std::string& name) {
    return createBridge +
           steps(R"(
        run return ? | updatekey Bridge Id 4 Name text:{name} ;|
        get return 1 | selectkey VLANSingleParams Id 1 DiscardUntaggedFrames ;|)",
                 {{"name", name}}) +
           lookup(name + "filter", name + "filter", "none") + insertFilter +
           steps("label " + name + "filter") + discard("1") +
           walk({"wan1", "wan2", "none"}, 1, name + "walked") + steps(R"(
        run return ? | updatekey BridgeInterface Id 6 Interface text:wan1 ;|
        end 0)");
}

using Call = std::function<int(State& outputs)>;

Call onValue(int (*handler)(access_type, int*, int), access_type access, int value, int index) {
    return [=](State& outputs) {
        int given = value;
        const int status = counted([&] { return handler(access, &given, index); });
        outputs["value"] = std::to_string(given);
        return status;
    };
}
int discardUntagged(access_type access, int* value, int) {
    return VlanDiscardUntaggedFrames_snmp(access, value);
}

Call onText(int (*handler)(access_type, char*, int, int*, int), access_type access,
            const std::string& text) {
    return [=](State& outputs) {
        char buffer[15] = "zzzzzzzzzzzzzz"; // not terminated after the text
        text.copy(buffer, text.size());
        int length = static_cast<int>(text.size());
        const int status =
            counted([&] { return handler(access, buffer, sizeof buffer, &length, 1); });
        outputs["text"] = std::string(buffer, static_cast<std::size_t>(length));
        return status;
    };
}
int defaultWan(access_type access, char* buffer, int size, int* length, int) {
    return VlanDefaultWanInterface(access, buffer, size, length);
}

Call onBridge(access_type access) {
    return [=](State& outputs) {
        int ids[4] = {7, 7, 7, 7};
        const int status =
            counted([&] { return default_Bridge(access, &ids[0], &ids[1], &ids[2], &ids[3]); });
        const char* const names[] = {"bridge", "lan", "wan", "filter"};
        for (int i = 0; i < 4; ++i)
            outputs[names[i]] = std::to_string(ids[i]);
        return status;
    };
}

struct Sequence {
    const char* name;
    Call call;
    const char* before; // outputs, and what differs from a cache of zeroes and free slots
    Steps steps;
};

std::vector<Sequence> sequences() {
    const char* const noIds = "bridge=-1,lan=-1,wan=-1,filter=-1";
    const Steps end = steps("end 0"),
                currentDefault =
                    steps("run return wan1 |  selectkey BridgeInterface Id 6 Interface  ;|");
    const auto parent = [](const std::string& name) {
        return steps("run return ? | updatekey VLAN Id 2 ParentIf text:" + name + " ;|");
    };
    const auto label = [](const std::string& name) { return steps("label " + name); };
    const auto jump = [](const std::string& name) { return steps("jump " + name); };
    const Lines eight(8, "wan1");
    std::string probes;
    for (int k = 1; k <= 9; ++k)
        probes += "key return/free 7 | selectkey Bridge Name br" + std::to_string(k) + " Id ;|\n";
    return {
        {"ATM get", onValue(AtmEnabled_snmp, access_get, 77, 3), "value=77", steps(R"(
            get return 0 value=2 | selectkey Atm Id 3 Enabled ;|
            end 0)")},
        {"ATM, no get or set", onValue(AtmEnabled_snmp, access_create, 1, 3), "value=1", steps(R"(
            get return 0 | selectkey Atm Id 3 Enabled ;|
            end 0)")},
        {"ATM on", onValue(AtmEnabled_snmp, access_set, 1, 3), "value=1", steps(R"(
            get return 0 | selectkey Atm Id 3 Enabled ;|
            act return 5 | insertkey NetworkSetupNode   Type text:MPoA  InterfaceName text:wan3  ParentInterface text:SHDSL  ConfigurationSpecifics text:3  Enable integer:1  ;|
            act return ? | updatekey Atm Id 3 Enabled integer:1 ;|
            end 0)")},
        {"ATM off", onValue(AtmEnabled_snmp, access_set, 2, 3), "value=2", steps(R"(
            get return 1  | selectkey Atm Id 3 Enabled ;|
            act ignore ok | deletekey NetworkSetupNode                   InterfaceName      wan3  ;|
            act return ?  | updatekey Atm Id 3 Enabled integer:0 ;|
            end 0)")},
        {"ATM unchanged", onValue(AtmEnabled_snmp, access_set, 1, 3), "value=1", steps(R"(
            get return 1 | selectkey Atm Id 3 Enabled ;|
            act return ? | updatekey Atm Id 3 Enabled integer:1 ;|
            end 0)")},
        {"ATM, no truth value", onValue(AtmEnabled_snmp, access_set, 5, 3), "value=5", steps(R"(
            get return 0 | selectkey Atm Id 3 Enabled ;|
            act return ? | updatekey Atm Id 3 Enabled integer:5 ;|
            end 0)")},

        {"bridge lookup", onBridge(access_get), noIds,
         lookup("found", "found") + label("found") + end},
        {"bridge create", onBridge(access_create), noIds, createBridge + end},
        {"bridge delete", onBridge(access_delete), noIds,
         lookup("unknown", "unknown") + deleteBridge("4") + end + label("unknown") +
             deleteBridge("-1") + end},

        {"discard get", onValue(discardUntagged, access_get, 77, 0), "value=77", steps(R"(
            get return 1 value=1 | selectkey VLANSingleParams Id 1 DiscardUntaggedFrames ;|
            end 0)")},
        {"discard on", onValue(discardUntagged, access_set, 1, 0), "value=1",
         lookup("write", "write", "none") + insertFilter + label("write") + discard("1") + end},
        {"discard on again", onValue(discardUntagged, access_set, 1, 0), "value=1",
         lookup("write", "write", "2", "insert") + label("write") + discard("1") + end +
             label("insert") + insertFilter + jump("write")},
        {"discard on, no bridge", onValue(discardUntagged, access_set, 1, 0), "value=1",
         noDefaultBridge + discard("1") + end},
        {"discard off", onValue(discardUntagged, access_set, 2, 0), "value=2",
         lookup("write", "write", "2", "write") +
             steps("num return ok | deletekey  BridgeFilter  BridgeId         4  ;|") +
             label("write") + discard("0") + end},

        {"VLAN on, tag carried", onValue(VlanEnabled_snmp, access_set, 1, 1),
         "value=1,v2=1,s1=1,s2=2", switchOn("1", "wan1.101") + end},
        {"VLAN on, tag discarded", onValue(VlanEnabled_snmp, access_set, 1, 1), "value=1,s1=1,s2=2",
         switchOn("0", "wan1") + end},
        {"VLAN on, no free slot", onValue(VlanEnabled_snmp, access_set, 1, 1),
         "value=1,s1=1,s2=2,s3=9,s4=4,s5=5,s6=6,s7=7,s8=8", steps(R"(
            act return ? *v1=1 | updatekey VLAN Id 1 Enable integer:1 ;|
            end 1)")},
        {"VLAN off, tag carried", onValue(VlanEnabled_snmp, access_set, 2, 1),
         "value=2,v1=1,v2=1,s1=1,s3=9", switchOff(1, "1", "wan1.101") + end},
        {"VLAN off, tag discarded", onValue(VlanEnabled_snmp, access_set, 2, 1),
         "value=2,v1=1,s3=9", switchOff(1, "0", "wan1") + end},
        {"VLAN from 1 to 5", onValue(VlanEnabled_snmp, access_set, 5, 1), "value=5,v1=1,v2=1,s3=9",
         steps("act return ? *v1=5 | updatekey VLAN Id 1 Enable integer:5 ;|") +
             setTag(1, "1", "wan1", "wan1.101", "wan1") + end},

        {"tag discarded", onValue(VlanDiscardTag_snmp, access_set, 1, 1), "value=1,v1=1,v2=1",
         setTag(1, "0", "wan1.101", "wan1", "wan1") + end},
        {"tag carried", onValue(VlanDiscardTag_snmp, access_set, 2, 1), "value=2,v1=1",
         setTag(1, "1", "wan1", "wan1.101", "wan1") + end},
        {"tag of an object that is off", onValue(VlanDiscardTag_snmp, access_set, 2, 1), "value=2",
         steps(R"(
            act return ? *v2=1 | updatekey VLAN Id 2 Enable integer:1 ;|
            key return none    | selectkey BridgeInterface Interface eth0.101 Id ;|
            end 3)")},
        {"tag of an object that is off but has rows",
         onValue(VlanDiscardTag_snmp, access_set, 7, 1), "value=7,v2=1",
         setTagOff(1, "0", "wan1") + end},

        {"parent get", onText(VlanWanInterface, access_get, "old"), "text=old", steps(R"(
            run return wan1 text=wan1 |  selectkey VLAN Id 2 ParentIf  ;|
            end 0)")},
        {"parent set", onText(VlanWanInterface, access_set, "wan2"), "text=wan2,v1=1",
         lookup("write") + currentDefault + label("write") + parent("wan2") +
             setTag(1, "0", "wan1", "wan2", "wan2") + end},
        {"parent set to the default", onText(VlanWanInterface, access_set, "wan1"),
         "text=wan1,v1=1",
         lookup("write") + currentDefault + lookup("walk") + lookup("unknown", "unknown") +
             ignoring(deleteBridge("4"), "write") + parent("wan1") +
             setTag(1, "0", "wan1", "wan1", "wan1") + end + label("unknown") +
             ignoring(deleteBridge("-1"), "gone") + jump("write") + label("walk") +
             walk({"none"}, 0, "walked") + jump("write")},
        {"parent emptied", onText(VlanWanInterface, access_set, ""), "text=,v3=1,v4=1,s3=9",
         noDefaultBridge + noDefaultBridge + walk({"wan1", "''", "none"}, 2, "walked") +
             parent("") + setTagOff(1, "0", "wan1") + end},

        {"default get", onText(defaultWan, access_get, "old"), "text=old",
         lookup("none") +
             steps("run return wan1 text=wan1 |  selectkey BridgeInterface Id 6 Interface  ;|") +
             label("none") + end},
        {"default set, new bridge", onText(defaultWan, access_set, "wan1"),
         "text=wan1,v1=1,v2=1,s3=9",
         noDefaultBridge + steps(R"(
            key return/one 1 | selectkey Bridge Name br1 Id ;|
            key return/two 2 | selectkey Bridge Name br2 Id ;|
            key return/ignore none | selectkey Bridge Name br3 Id ;|)") +
             adopt("br3") + label("one") + adopt("br1") + label("two") + adopt("br2")},
        {"default set, no free name", onText(defaultWan, access_set, "wan1"), "text=wan1",
         noDefaultBridge + steps(probes + R"(
            end 1
            label free
            act return ok | insertkey Bridge Name text:wanX Stp integer:0 ;|
            end 1)")},
        {"default moved", onText(defaultWan, access_set, "wan2"), "text=wan2",
         lookup("create") + walk(eight, 0, "walked") + steps(R"(
            run return ? | updatekey BridgeInterface Id 6 Interface text:wan2 ;|
            end 0
            label create
            key return ? | selectkey Bridge Name br1 Id ;|
            end 1)")},
        {"default emptied", onText(defaultWan, access_set, ""), "text=",
         lookup("walk") + lookup("unknown", "unknown") + ignoring(deleteBridge("4"), "gone") + end +
             label("unknown") + ignoring(deleteBridge("-1"), "also gone") + end + label("walk") +
             walk(eight, 0, "walked") + end},
    };
}

/** How a command is refused, and the status that it then has. */
struct Refusal {
    const char* way;
    Answer answer;
    const char* status;
    std::size_t runs;
};

std::vector<Refusal> refusals(const Step& step) {
    const bool key = step.kind == "key";
    std::vector<Refusal> all = {{"not started", notStarted, "1", 1},
                                {"nothing printed", "", "1", 1},
                                {"unknown row", "Unknown row\n", "3", 1},
                                {"locked", "Database locked\n", key ? "1" : "2", key ? 1U : 20U},
                                {"too long", std::string(key ? 99 : 29, '1'), key ? "1" : "6", 1}};
    if (step.number())
        all.push_back({"no number", "?", "1", 1});
    return all;
}

/** The outputs before a call and the cache, which is all zeroes and free slots otherwise. */
State stateBefore(const Sequence& sequence) {
    State state = changes(sequence.before);
    for (int row = 1; row <= 16; ++row)
        state.insert({"v" + std::to_string(row), "0"});
    for (int slot = 1; slot <= 8; ++slot)
        state.insert({"s" + std::to_string(slot), "-1"});
    return state;
}

struct Outcome {
    std::string status;
    Lines commands, log;
    std::deque<Answer> answers;
    std::size_t pauses;
    State state;
};

/** What comes of a call by the table when one command, or none, is refused. */
Outcome outcome(const Sequence& sequence, const Step* refused = nullptr,
                const Refusal& refusal = {}) {
    Outcome result = {"", {}, {}, {}, 0, stateBefore(sequence)};
    const auto change = [&](const State& changed) {
        for (const auto& [name, to] : changed)
            if (result.state.count(name))
                result.state[name] = to;
    };
    const auto labelled = [&](const std::string& name) {
        const Step* at = sequence.steps.data();
        while (at->kind != "label" || at->text != name)
            ++at;
        return at;
    };
    const Step* step = sequence.steps.data();
    for (; step->kind != "end"; ++step) {
        if (step->kind == "jump")
            step = labelled(step->text);
        if (!step->runs())
            continue;
        change(step->reached);
        const bool fails = step == refused;
        const Answer answer = fails ? refusal.answer : Answer(step->answer + "\n");
        std::string shown = answer.text;
        if (!fails && shown != "Unknown row\n")
            shown.pop_back();
        for (std::size_t run = 0; run < (fails ? refusal.runs : 1); ++run) {
            result.commands.push_back(step->text);
            result.answers.push_back(answer);
            result.pauses += run > 0;
            if (step->traced())
                result.log.push_back("trace:corvanta: " + step->text + " ==> " + shown);
        }
        if (!fails) {
            change(step->done);
            continue;
        }
        const std::string& next = refusal.status[0] == '3' ? step->unknown : step->failed;
        if (next == "return" || next == "1") {
            result.status = next == "1" ? next : refusal.status;
            return result;
        }
        if (next != "ignore")
            step = labelled(next);
    }
    result.status = step->text;
    return result;
}

class HandlersTest : public PlatformTest {
protected:
    HandlersTest() { mgmt_o.cache = new data_cache; }
    ~HandlersTest() override {
        delete mgmt_o.cache;
        mgmt_o.cache = nullptr;
    }

    static void fillCache(State state) {
        *mgmt_o.cache = data_cache();
        mgmt_o.cache->init();
        for (int row = 1; row <= 16; ++row)
            mgmt_o.cache->vlan_intern[row] = {std::stoi(state["v" + std::to_string(row)]),
                                              (row % 2 ? "eth0.10" : "wan1.10") +
                                                  std::to_string((row + 1) / 2)};
        for (int slot = 1; slot <= 8; ++slot)
            mgmt_o.cache->bridge[slot].intern_Id = std::stoi(state["s" + std::to_string(slot)]);
    }

    static void expect(const Sequence& sequence, const Outcome& outcome) {
        fillCache(stateBefore(sequence));
        platform.script(outcome.answers);
        platform.sleeps.clear();
        State state;
        EXPECT_EQ(outcome.status, std::to_string(sequence.call(state)));
        for (int row = 1; row <= 16; ++row)
            state["v" + std::to_string(row)] =
                std::to_string(mgmt_o.cache->vlan_intern[row].Enable);
        for (int slot = 1; slot <= 8; ++slot)
            state["s" + std::to_string(slot)] =
                std::to_string(mgmt_o.cache->bridge[slot].intern_Id);
        EXPECT_EQ(outcome.state, state);
        EXPECT_EQ(outcome.commands, platform.takeCommands());
        EXPECT_EQ(outcome.log, platform.takeLog());
        EXPECT_EQ(std::vector<unsigned>(outcome.pauses, 1), platform.sleeps);
        EXPECT_EQ(0, platform.openStreams);
    }
};

TEST_F(HandlersTest, EverySequenceAndEveryRefusal) {
    for (const Sequence& sequence : sequences()) {
        SCOPED_TRACE(sequence.name);
        expect(sequence, outcome(sequence));
        for (const Step* step = sequence.steps.data(); step->kind != "end"; ++step)
            if (step->runs())
                for (const Refusal& refusal : refusals(*step)) {
                    SCOPED_TRACE(step->text + refusal.way);
                    expect(sequence, outcome(sequence, step, refusal));
                    ASSERT_FALSE(HasFailure());
                }
    }
}

TEST_F(HandlersTest, OutOfMemoryAnywhere) {
    for (const Sequence& sequence : sequences()) {
        SCOPED_TRACE(sequence.name);
        const Outcome ordinary = outcome(sequence);
        withEachAllocationFailing([&] {
            fillCache(stateBefore(sequence));
            platform.client = [&](const std::string& command) {
                for (const Step& step : sequence.steps)
                    if (step.text == command)
                        return Answer(step.answer + "\n");
                return notStarted;
            };
            State outputs;
            const std::string status = std::to_string(sequence.call(outputs));
            EXPECT_TRUE(status == "1" || status == ordinary.status) << status;
            EXPECT_EQ(0, Allocations::live());
        });
        platform.takeLog();
        platform.takeCommands();
        expect(sequence, ordinary);
    }
}

TEST_F(HandlersTest, WhatNeedsNoCommand) {
    mgmt_o.cache->vlan_intern[1].Enable = mgmt_o.cache->vlan_intern[2].Enable = 1;
    int value = 1, length = 1;
    char text[20] = "a";
    EXPECT_EQ(1, AtmEnabled_snmp(access_get, nullptr, 1));
    EXPECT_EQ(1, VlanEnabled_snmp(access_set, nullptr, 1));
    EXPECT_EQ(1, VlanDiscardTag_snmp(access_get, nullptr, 1));
    EXPECT_EQ(1, VlanDiscardUntaggedFrames_snmp(access_set, nullptr));
    EXPECT_EQ(1, VlanWanInterface(access_set, nullptr, 20, &length, 1));
    EXPECT_EQ(1, VlanWanInterface(access_set, text, 20, nullptr, 1));
    EXPECT_EQ(1, VlanDefaultWanInterface(access_get, nullptr, 20, &length));
    EXPECT_EQ(1, VlanDefaultWanInterface(access_set, text, 20, nullptr));
    for (int missing = 0; missing < 4; ++missing) {
        int ids[4] = {7, 7, 7, 7};
        int* at[4] = {&ids[0], &ids[1], &ids[2], &ids[3]};
        at[missing] = nullptr;
        EXPECT_EQ(1, default_Bridge(access_create, at[0], at[1], at[2], at[3]));
        EXPECT_EQ(28, ids[0] + ids[1] + ids[2] + ids[3]) << "nothing is written";
    }
    for (const int index : {0, 9, -1, INT_MAX, INT_MIN})
        for (const access_type access : {access_get, access_set}) {
            EXPECT_EQ(1, VlanEnabled_snmp(access, &value, index)) << index;
            EXPECT_EQ(1, VlanDiscardTag_snmp(access, &value, index)) << index;
        }
    const struct {
        int (*handler)(access_type, int*, int);
        access_type access;
        int object, before, after;
    } cached[] = {
        {VlanEnabled_snmp, access_get, 1, 77, 1},     {VlanEnabled_snmp, access_get, 8, 77, 2},
        {VlanEnabled_snmp, access_set, 1, 1, 1},      {VlanEnabled_snmp, access_set, 8, 2, 2},
        {VlanEnabled_snmp, access_create, 1, 2, 2},   {VlanEnabled_snmp, access_none, 1, 2, 2},
        {VlanDiscardTag_snmp, access_get, 1, 77, 2},  {VlanDiscardTag_snmp, access_get, 2, 77, 1},
        {VlanDiscardTag_snmp, access_delete, 1, 5, 5}};
    for (const auto& c : cached) {
        value = c.before;
        EXPECT_EQ(0, c.handler(c.access, &value, c.object));
        EXPECT_EQ(c.after, value);
    }
    // Texts that cannot stand in a command, and lengths that are none.
    for (const char c : std::string("\"$`\\;\n\t\0", 8)) {
        char hostile[] = {'w', c, 'n', '1'};
        length = 4;
        EXPECT_EQ(6, VlanDefaultWanInterface(access_set, hostile, sizeof hostile, &length));
        EXPECT_EQ(6, VlanWanInterface(access_set, hostile, sizeof hostile, &length, 1));
    }
    for (int bad : {-1, 21, INT_MAX, INT_MIN}) {
        EXPECT_EQ(6, VlanDefaultWanInterface(access_set, text, sizeof text, &bad)) << bad;
        EXPECT_EQ(6, VlanWanInterface(access_set, text, sizeof text, &bad, 1)) << bad;
    }
    EXPECT_EQ(Lines{}, platform.takeCommands());
}

TEST_F(HandlersTest, TheCacheKeepsAnEnableThatCannotBeWritten) {
    for (int slot = 1; slot <= 8; ++slot)
        mgmt_o.cache->bridge[slot].intern_Id = slot;
    int on = 1;
    platform.script({"x\n", "Unknown row\n"});
    EXPECT_EQ(1, VlanEnabled_snmp(access_set, &on, 1)) << "no free slot";
    EXPECT_EQ(0, VlanEnabled_snmp(access_set, &on, 1)) << "it is what the cache holds";
    EXPECT_EQ(3, VlanEnabled_snmp(access_set, &on, 2));
    EXPECT_EQ(0, VlanEnabled_snmp(access_set, &on, 2));
}

} // namespace
