#include "tests/library/Platform.h"
#include "tests/library/Sequence.h"

#include "objects/data_cache.h"
#include "objects/managed_objects.h"

// The handlers, each by the tables of its commands. Sequence.h tells how such a table is read.

namespace {

using namespace sequence;

// The default bridge: Id 1, members 1 and 2, filter 1.

const Step lanMember =
    key(" selectkey BridgeInterface Interface eth0 Id ;").answers(1).then([](State& s) {
        s.lan = 1, s.wan = 2;
    });
const Step bridgeOfMember =
    get(" selectkey BridgeInterface Id 1 BridgeId ;").answers(1, &State::bridge);
const Step filter = key(" selectkey BridgeFilter BridgeId 1 Id ;").answers(1, &State::filter);
const Step noFilter = filter.answers(unknownRow).ignored();
const Step noBridge = lanMember.answers(unknownRow).ignored();

Steps lookUp(const Steps& elsewhere, const Step& last = filter.ignored()) {
    return {lanMember.orElse(elsewhere), bridgeOfMember.orElse(elsewhere), last};
}
/** As long as the WAN member is all that matters, a bridge not found is no failure. */
Steps find(const Steps& elsewhere) {
    return {lanMember.orElse(elsewhere), ignoring({bridgeOfMember, filter})};
}

const Step insertBridge =
    num(" insertkey Bridge Name text:wanX Stp integer:0 ;").answers(1, &State::bridge);
const Step noNewBridge = insertBridge.answers("?");
Step insertMember(const char* interface) {
    return num(" insertkey BridgeInterface  BridgeId integer:1  Interface text:", interface,
               "  AllowLocalAccess integer:0  AllowDHCP integer:0 ;");
}
const Steps create = {insertBridge, insertMember("eth0").answers(1, &State::lan),
                      insertMember("wanX").answers(2, &State::wan)};
Steps remove(int bridge) {
    return {act(" deletekey    BridgeInterface BridgeId ", bridge, " ;"),
            act(" deletekey    BridgeFilter            BridgeId ", bridge, "  ;"),
            act(" deletekey    Bridge Id ", bridge, " ;")};
}

// ATM circuit 3.

const auto atmRead = [](int on) { return get(" selectkey Atm Id 3 Enabled ;").answers(on); };
const auto atmWrite = [](int on) { return act(" updatekey Atm Id 3 Enabled integer:", on, " ;"); };
const Step insertMpoa =
    act(" insertkey NetworkSetupNode   Type text:MPoA  InterfaceName text:wan3"
        "  ParentInterface text:SHDSL  ConfigurationSpecifics text:3  Enable integer:1  ;");
const Step deleteMpoa =
    act(" deletekey NetworkSetupNode                   InterfaceName      wan3  ;");

// Discarding untagged frames.

const Step discardRead = get(" selectkey VLANSingleParams Id 1 DiscardUntaggedFrames ;").answers(1);
const Step insertFilter = num(" insertkey  BridgeFilter  BridgeId integer:1  FilterRule text:"
                              "  VLANId integer:0  PBit integer:0 ;")
                              .answers(3);
const Step deleteFilter =
    num(" deletekey  BridgeFilter  BridgeId         1  ;").answers("Operation succeeded");
Step discardWrite(int discard) {
    return act(" updatekey VLANSingleParams Id 1 DiscardUntaggedFrames integer:", discard, " ;");
}

// VLAN object n: rows 2n - 1 and 2n, interfaces eth0.10n and wan1.10n, bridge 9 in slot 3,
// members 20 and 21.

Step enable(int row, int to) {
    return act(" updatekey VLAN Id ", row, " Enable integer:", to, " ;").anyway([=](State& s) {
        s.vlan[row] = to;
    });
}
Step parent(int row, const std::string& interface) {
    return run("  selectkey VLAN Id ", row, " ParentIf  ;").answers(interface);
}
Step insertNetif(const char* interface) {
    return run("  insertkey  StatusNetifConfig  Name text:", interface, " ;").ignored();
}
Steps storeTag(int n, int tag, const char* member) {
    return {enable(2 * n, tag),
            key(" selectkey BridgeInterface Interface eth0.10", n, " Id ;").answers(20),
            run("  selectkey BridgeInterface Id 21 Interface  ;").answers(member)};
}
Steps setMember(const char* to) {
    return {run(" updatekey BridgeInterface Id 21 Interface text:", to, " ;"),
            run("  insertkey  NetworkSetupNode  Type text:BridgeInterface  "
                " InterfaceName   text:bridge:",
                to, " ParentInterface text:", to,
                " ConfigurationSpecifics text:  Enable integer:1  ;")
                .ignored()};
}
Steps wanOn(int tag, const char* from, const char* to, const char* parentIf) {
    return {storeTag(1, tag, from), parent(2, parentIf), setMember(to)};
}
Steps wanOff(int n, int tag, const char* member) {
    const char* const deleteMember = "  deletekey  NetworkSetupNode  InterfaceName        bridge:";
    return {storeTag(n, tag, member), run(deleteMember, member, " ;").ignored(),
            run(" deletekey NetworkSetupNode   InterfaceName  wan1.10", n, " ;").ignored(),
            run("  deletekey  StatusNetifConfig  Name wan1.10", n, " ;").ignored()};
}
Steps lanOn(int slot) {
    return {enable(1, 1),
            get("  insertkey  Bridge  Name text:br", slot, " Stp integer:0   ;")
                .answers(9)
                .then([=](State& s) { s.slot[slot] = 9; })
                .failsWith(1),
            run("  insertkey   NetworkSetupNode  Type text:Bridge  InterfaceName text:br", slot,
                " ParentInterface text:root   ConfigurationSpecifics text:  Enable integer:1  ;")
                .ignored(),
            act(" insertkey NetworkSetupNode   Type text:VLAN   InterfaceName  text:eth0.101"
                " ParentInterface text:eth0    ConfigurationSpecifics text:  Enable integer:1  ;"),
            insertNetif("eth0.101"),
            act(" insertkey BridgeInterface  BridgeId integer:9  Interface      text:eth0.101"
                "  AllowLocalAccess integer:0  AllowDHCP integer:0 ;"),
            act(" insertkey NetworkSetupNode   Type text:BridgeInterface    InterfaceName"
                " text:bridge:eth0.101   ParentInterface text:eth0.101"
                "  ConfigurationSpecifics text:  Enable integer:1  ;"),
            act(" insertkey BridgeInterface  BridgeId integer:9  Interface text:"
                "  AllowLocalAccess integer:0  AllowDHCP integer:0 ;")};
}
Steps offButSlot(int n, int tag, const char* member) {
    return {enable(2 * n - 1, 0),
            wanOff(n, tag, member),
            act(" deletekey    NetworkSetupNode ParentInterface  eth0.10", n, " ;").ignored(noRow),
            key(" selectkey BridgeInterface Interface eth0.10", n, " BridgeId ;").answers(9),
            run("  selectkey Bridge Id 9 Name  ;").answers("br3"),
            act(" deletekey    BridgeInterface BridgeId 9 ;"),
            act(" deletekey NetworkSetupNode   InterfaceName  eth0.10", n, " ;"),
            run("  deletekey  StatusNetifConfig  Name eth0.10", n, " ;").ignored()};
}
Steps off(int n, int tag, const char* member) {
    return {offButSlot(n, tag, member),
            run("  deletekey   NetworkSetupNode  InterfaceName br3 ;").ignored(),
            run("  deletekey  Bridge  Id 9 ;").ignored().anyway([](State& s) { s.slot[3] = -1; })};
}

// WAN interfaces.

Step readDefault(const char* interface) {
    return run("  selectkey BridgeInterface Id 2 Interface  ;").answers(interface);
}
Step writeDefault(const char* interface) {
    return run(" updatekey BridgeInterface Id 2 Interface text:", interface, " ;");
}
Step writeParent(const char* interface) {
    return run(" updatekey VLAN Id 2 ParentIf text:", interface, " ;");
}
Steps setParent(const char* to) {
    return {writeParent(to), wanOn(0, "wan1", to, to)};
}
/** The walk over eight objects whose parent is another interface. */
Step walk() {
    Steps parents;
    for (int n = 1; n <= 8; ++n)
        parents.push_back(parent(2 * n, "wan1"));
    return ignoring(parents);
}
Step bridgeNamed(int number) {
    return key(" selectkey Bridge Name br", number, " Id ;").answers(number);
}
/** A new default bridge under the first free name; interface wan1 leaves its VLAN object. */
Steps adopt(const char* freeName) {
    const Steps rest = {discardWrite(1),
                        ignoring({parent(2, "wan1"), ignoring(off(1, 1, "wan1.101")),
                                  parent(4, "wan2"), parent(6, unknownRow)}),
                        writeDefault("wan1")};
    return {create,       run(" updatekey Bridge Id 1 Name text:", freeName, " ;"),
            discardRead,  lookUp(rest, noFilter),
            insertFilter, rest};
}
Steps allNamesTaken() {
    Steps steps;
    for (int number = 1; number <= 9; ++number)
        steps.push_back(bridgeNamed(number).orElse({noNewBridge}, noRow));
    return steps;
}

const Handler bridge = [](access_type access, State& s) {
    s.bridge = s.lan = s.wan = s.filter = 7;
    return default_Bridge(access, &s.bridge, &s.lan, &s.wan, &s.filter);
};
const Handler atm = [](access_type a, State& s) { return AtmEnabled_snmp(a, &s.value, 3); };
const Handler vlan = [](access_type a, State& s) { return VlanEnabled_snmp(a, &s.value, 1); };
const Handler vlanTag = [](access_type a, State& s) { return VlanDiscardTag_snmp(a, &s.value, 1); };
const Handler discard = [](access_type access, State& s) {
    return VlanDiscardUntaggedFrames_snmp(access, &s.value);
};
template <typename Call, typename... Index>
Handler text(Call call, Index... index) {
    return [=](access_type access, State& s) {
        char buffer[15] = "zzzzzzzzzzzzzz"; // not terminated after the value
        int length = static_cast<int>(s.text.copy(buffer, sizeof buffer));
        const int status = call(access, buffer, sizeof buffer, &length, index...);
        s.text.assign(buffer, static_cast<std::size_t>(length));
        return status;
    };
}
const Handler vlanWan = text(VlanWanInterface, 1), defaultWan = text(VlanDefaultWanInterface);

const std::vector<Sequence> sequences = {
    Sequence("BridgeCreate", bridge, {}, create, access_create),
    Sequence("BridgeLookUp", bridge, {}, lookUp({}), access_none),
    Sequence("BridgeMemberOfId0", bridge, {}, {lanMember.answers(0, &State::lan).ignored()},
             access_none),
    Sequence("BridgeOfId0", bridge, {},
             {lanMember.orElse({}), bridgeOfMember.answers(0, &State::bridge).ignored()},
             access_none),
    Sequence("BridgeDelete", bridge, {}, {lookUp(remove(-1)), remove(1)}, access_delete),

    Sequence("AtmGet", atm, 77, {atmRead(0).then([](State& s) { s.value = 2; })}, access_get),
    Sequence("AtmNeitherGetNorSet", atm, 1, {atmRead(0)}, access_create),
    Sequence("AtmOn", atm, 1, {atmRead(0), insertMpoa, atmWrite(1)}),
    Sequence("AtmOff", atm, 2, {atmRead(1), deleteMpoa.ignored(), atmWrite(0)}),
    Sequence("AtmOffFrom5", atm, 2, {atmRead(5), atmWrite(0)}),
    Sequence("AtmUnchanged", atm, 1, {atmRead(1), atmWrite(1)}),
    Sequence("AtmNoTruthValue", atm, 5, {atmRead(0), atmWrite(5)}),

    Sequence("DiscardGet", discard, 77, {discardRead.answers(1, &State::value)}, access_get),
    Sequence("DiscardNeitherGetNorSet", discard, 77, {endsWith(1)}, access_create),
    Sequence(
        "DiscardOn", discard, 1,
        {lookUp({discardWrite(1)}, filter.answers(0).ignored()), insertFilter, discardWrite(1)}),
    Sequence("DiscardOnBridgeOfId0", discard, 1,
             {lanMember.orElse({discardWrite(1)}), bridgeOfMember.answers(0).ignored(),
              discardWrite(1)}),
    Sequence("DiscardOnAgain", discard, 1,
             {lookUp({discardWrite(1)}, filter.orElse({insertFilter, discardWrite(1)})),
              discardWrite(1)}),
    Sequence("DiscardOff", discard, 2,
             {lookUp({discardWrite(0)}, filter.orElse({discardWrite(0)})), deleteFilter,
              discardWrite(0)}),
    Sequence("DiscardOffFilterOfId0", discard, 2,
             {lookUp({discardWrite(0)}, filter.answers(0).ignored()), discardWrite(0)}),

    Sequence("VlanGetOn", vlan, State(77).on({1}), {gives(1)}, access_get),
    Sequence("VlanGetOff", vlan, State(77).on({2}), {gives(2)}, access_get),
    Sequence("VlanUnchanged", vlan, State(1).on({1}), {}),
    Sequence("VlanOffUnchanged", vlan, State(2).on({2}), {}),
    Sequence("VlanNeitherGetNorSet", vlan, State(2).on({1}), {}, access_create),
    Sequence("VlanOnTagCarried", vlan, State(1).on({2}).bridges({0, 2}),
             {lanOn(3), storeTag(1, 1, ""), parent(2, "wan1"),
              run("  insertkey   NetworkSetupNode  Type text:VLAN  InterfaceName  text:wan1.101"
                  " ParentInterface text:wan1 ConfigurationSpecifics text:  Enable integer:1  ;"),
              insertNetif("wan1.101"), setMember("wan1.101")}),
    Sequence("VlanOnTagDiscarded", vlan, State(1).bridges({1, 2, 3, 4, 5, 6, 7}),
             {lanOn(8), wanOn(0, "", "wan1", "wan1")}),
    Sequence("VlanOnNoFreeSlot", vlan, State(1).bridges({1, 2, 9, 4, 5, 6, 7, 8}),
             {enable(1, 1), endsWith(1)}),
    Sequence("VlanOffTagCarried", vlan, State(2).on({1, 2}).bridges({1, -1, 9}),
             off(1, 1, "wan1.101")),
    Sequence("VlanOffBridgeInNoSlot", vlan, State(2).on({1}), offButSlot(1, 0, "wan1")),
    Sequence("VlanFrom1To5", vlan, State(5).on({1, 2}).bridges({-1, -1, 9}),
             {enable(1, 5), wanOn(1, "wan1", "wan1.101", "wan1")}),
    Sequence("VlanFrom5To1", vlan, State(1).on({1}, 5).on({2}),
             {enable(1, 1), wanOn(1, "wan1", "wan1.101", "wan1")}),
    Sequence("VlanFrom5To0", vlan, State(2).on({1}, 5).on({2}),
             {enable(1, 0), wanOff(1, 1, "wan1.101")}),
    Sequence("TagGetCarried", vlanTag, State(77).on({2}), {gives(2)}, access_get),
    Sequence("TagNeitherGetNorSet", vlanTag, 5, {}, access_delete),
    Sequence("TagDiscarded", vlanTag, State(1).on({1, 2}), wanOn(0, "wan1.101", "wan1", "wan1")),
    Sequence("TagCarried", vlanTag, State(2).on({1}), wanOn(1, "wan1", "wan1.101", "wan1")),
    Sequence("TagOfObjectThatIsOff", vlanTag, State(7).on({2}), wanOff(1, 0, "wan1")),

    Sequence("ParentGet", vlanWan, "o;d",
             {parent(2, "wan1").then([](State& s) { s.text = "wan1"; })}, access_get),
    Sequence("ParentNeitherGetNorSet", vlanWan, "old", {endsWith(1)}, access_delete),
    Sequence("ParentSet", vlanWan, State("wan2").on({1}),
             {find(setParent("wan2")), readDefault("-"), setParent("wan2")}),
    Sequence("ParentSetToTheDefault", vlanWan, State("wan1").on({1}),
             {find(setParent("wan1")), readDefault("wan1"),
              find({parent(2, unknownRow).ignored(), setParent("wan1")}),
              lookUp({ignoring(remove(-1)), setParent("wan1")}), ignoring(remove(1)),
              setParent("wan1")}),
    Sequence("ParentSetDefaultTooLongToCompare", vlanWan, "wan2",
             {find({writeParent("wan2").answers(unknownRow)}), readDefault("fourteen-chars"),
              endsWith(6)}),
    Sequence("ParentEmptied", vlanWan, State("").on({3, 4}).bridges({-1, -1, 9}),
             {noBridge, noBridge,
              ignoring({parent(2, "wan1"), parent(4, ""), ignoring(off(2, 1, "wan1.102")),
                        parent(6, unknownRow)}),
              writeParent(""), wanOff(1, 0, "wan1")}),
    Sequence("DefaultGet", defaultWan, "o;d",
             {find({}), readDefault("wan1").then([](State& s) { s.text = "wan1"; })}, access_get),
    Sequence("DefaultNeitherGetNorSet", defaultWan, "old", {find({}), endsWith(1)}, access_create),
    Sequence("DefaultSetNewBridge", defaultWan, State("wan1").on({1, 2}).bridges({-1, -1, 9}),
             {noBridge, bridgeNamed(1).orElse(adopt("br1"), noRow),
              bridgeNamed(2).orElse(adopt("br2"), noRow),
              bridgeNamed(3).answers(unknownRow).orElse(adopt("br3"), noRow)}),
    Sequence("DefaultSetNoFreeName", defaultWan, "wan1", {noBridge, allNamesTaken(), endsWith(1)}),
    Sequence("DefaultMoved", defaultWan, State("wan2").on({1, 3}),
             {find({bridgeNamed(1).answers("?").orElse({noNewBridge}, noRow)}), walk(),
              writeDefault("wan2")}),
    Sequence("DefaultEmptied", defaultWan, "",
             {find({walk()}), lookUp({ignoring(remove(-1))}), ignoring(remove(1))})};

using HandlersTest = PlatformTest;

/** One test for each sequence, which runs alone by its name. */
class SequenceTest : public HandlersTest, public testing::WithParamInterface<Sequence> {};

TEST_P(SequenceTest, EachCommandRefused) {
    refuseEach(GetParam());
}

INSTANTIATE_TEST_SUITE_P(, SequenceTest, testing::ValuesIn(sequences),
                         [](const auto& its) { return its.param.name; });

TEST_F(HandlersTest, WhatNeedsNoCommand) {
    fillCache({});
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
        for (const int index : {0, 9, INT_MIN})
            for (const access_type access : {access_get, access_set})
                EXPECT_EQ(1, handler(access, &value, index)) << index;
    EXPECT_EQ(1, VlanWanInterface(access_set, text, sizeof text, &length, 9));
    // A text that cannot stand in a command, and lengths that are none.
    text[1] = ';';
    const unsigned long failures = client_failures();
    for (int bad : {2, -1, 21, INT_MAX, INT_MIN}) {
        EXPECT_EQ(6, VlanDefaultWanInterface(access_set, text, sizeof text, &bad)) << bad;
        EXPECT_EQ(6, VlanWanInterface(access_set, text, sizeof text, &bad, 1)) << bad;
    }
    EXPECT_EQ(failures + 10, client_failures());
}

/** Those that are logged have 199 characters at most; the others have the runner's limit. */
TEST_F(HandlersTest, LoggedCommandsUpToTheirLimit) {
    const std::string longest(199 - 158, 'x'); // less the length of the rest of the command
    fillCache({});
    mgmt_o.cache->vlan_intern[1].InterfaceName = longest;
    mgmt_o.cache->vlan_intern[3].InterfaceName = longest + "x";
    int on = 1;
    platform.script({"x\n", "9\n", "1\n", "", "x\n", "10\n", "1\n"});
    EXPECT_EQ(1, VlanEnabled_snmp(access_set, &on, 1));
    EXPECT_EQ(199U, platform.commands.back().size());
    EXPECT_EQ(6, VlanEnabled_snmp(access_set, &on, 2)) << "stops before the node";
}

} // namespace
