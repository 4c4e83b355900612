#include "objects/default_bridge.h"

#include "base/Guard.h"
#include "client/Client.h"

using namespace kavo::snmp;

namespace {

// The client's commands; blanks count.
constexpr char kInsertBridge[] = " quorlet \" insertkey Bridge Name text:wanX Stp integer:0 ;\" ";
constexpr char kInsertLanMember[] =
    " quorlet \" insertkey BridgeInterface  BridgeId integer:%d  Interface text:eth0"
    "  AllowLocalAccess integer:0  AllowDHCP integer:0 ;\" ";
constexpr char kInsertWanMember[] =
    " quorlet \" insertkey BridgeInterface  BridgeId integer:%d  Interface text:%sX"
    "  AllowLocalAccess integer:0  AllowDHCP integer:0 ;\" ";
constexpr char kDeleteMembers[] = " quorlet \" deletekey    BridgeInterface BridgeId %d ;\" ";
constexpr char kDeleteFilter[] =
    " quorlet \" deletekey    BridgeFilter            BridgeId %d  ;\" ";
constexpr char kDeleteBridge[] = " quorlet \" deletekey    Bridge Id %d ;\" ";

// Takes a new row's Id from the answer of its insert.
int takeId(const Answer& answer, int& id) {
    const std::optional<int> number = answer.number();
    if (!number)
        return CORVANTA_FAILED;
    id = *number;
    return CORVANTA_OK;
}

} // namespace

void DefaultBridge::lookUp() {
    *this = {};
    ignoreStatus(config_int_read_by_key(&lanIfaceId, "BridgeInterface", "Id", "Interface", "eth0"));
    if (lanIfaceId > 0) {
        wanIfaceId = nextRow(lanIfaceId);
        ignoreStatus(config_int_access_by_id(access_get, &bridgeId, "BridgeInterface", "BridgeId",
                                             lanIfaceId));
    }
    if (bridgeId > 0)
        ignoreStatus(config_int_read_by_key(&filterId, "BridgeFilter", "Id", "BridgeId",
                                            format("%d", bridgeId).c_str()));
}

int DefaultBridge::create() {
    *this = {};
    ShortAnswer answer;
    TRY(run(kTraced, answer, kInsertBridge));
    TRY(takeId(answer, bridgeId));
    TRY(run(kTraced, answer, kInsertLanMember, bridgeId));
    TRY(takeId(answer, lanIfaceId));
    TRY(run(kTraced, answer, kInsertWanMember, bridgeId, "wan"));
    return takeId(answer, wanIfaceId);
}

int DefaultBridge::remove() {
    lookUp();
    ShortAnswer answer;
    TRY(run(kTraced, answer, kDeleteMembers, bridgeId));
    TRY(run(kTraced, answer, kDeleteFilter, bridgeId));
    return run(kTraced, answer, kDeleteBridge, bridgeId);
}

int default_Bridge(access_type access, int* bridgeId, int* lanIfaceId, int* wanIfaceId,
                   int* filterId) {
    return guardedStatus([=]() -> int {
        if (bridgeId == nullptr || lanIfaceId == nullptr || wanIfaceId == nullptr ||
            filterId == nullptr)
            return CORVANTA_FAILED;
        DefaultBridge bridge;
        int status = CORVANTA_OK;
        switch (access) {
        case access_create:
            status = bridge.create();
            break;
        case access_delete:
            status = bridge.remove();
            break;
        default:
            bridge.lookUp();
        }
        *bridgeId = bridge.bridgeId;
        *lanIfaceId = bridge.lanIfaceId;
        *wanIfaceId = bridge.wanIfaceId;
        *filterId = bridge.filterId;
        return status;
    });
}
