#include "objects/discard_untagged.h"

#include "base/Guard.h"
#include "client/Client.h"
#include "objects/default_bridge.h"

using namespace kavo::snmp;

namespace {

// The client's commands; blanks count.
constexpr char kDeleteFilter[] = " quorlet \" deletekey  BridgeFilter  BridgeId         %d  ;\" ";
constexpr char kInsertFilter[] =
    " quorlet \" insertkey  BridgeFilter  BridgeId integer:%d  FilterRule text:"
    "  VLANId integer:0  PBit integer:0 ;\" ";

constexpr std::string_view kDeleted = "Operation succeeded"; // the client's answer to a delete

int deleteFilter(int bridgeId) {
    ShortAnswer answer;
    TRY(run(kTraced, answer, kDeleteFilter, bridgeId));
    return answer.text == kDeleted ? CORVANTA_OK : CORVANTA_FAILED;
}

int insertFilter(int bridgeId) {
    ShortAnswer answer;
    TRY(run(kTraced, answer, kInsertFilter, bridgeId));
    return answer.number() ? CORVANTA_OK : CORVANTA_FAILED;
}

int setDiscard(int requested) {
    DefaultBridge bridge;
    bridge.lookUp();
    if (requested == 0 && bridge.filterId > 0)
        TRY(deleteFilter(bridge.bridgeId));
    else if (requested != 0 && bridge.filterId <= 0 && bridge.bridgeId > 0)
        TRY(insertFilter(bridge.bridgeId));
    return config_int_access_by_id(access_set, &requested, "VLANSingleParams",
                                   "DiscardUntaggedFrames", 1);
}

int discardUntaggedFrames(access_type access, int* value) {
    if (value == nullptr)
        return CORVANTA_FAILED;
    if (access == access_set)
        return setDiscard(TruthValue_snmp_to_internal(*value));
    int discard = 0;
    TRY(config_int_access_by_id(access, &discard, "VLANSingleParams", "DiscardUntaggedFrames", 1));
    *value = TruthValue_internal_to_snmp(discard);
    return CORVANTA_OK;
}

} // namespace

int kavo::snmp::applyDiscardSetting() {
    int discard = 0;
    TRY(discardUntaggedFrames(access_get, &discard));
    return discardUntaggedFrames(access_set, &discard);
}

int VlanDiscardUntaggedFrames_snmp(access_type access, int* value) {
    return guardedStatus([=] { return discardUntaggedFrames(access, value); });
}
