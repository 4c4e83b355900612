#include "frame/Guard.h"
#include "objects/client.h"

using namespace kavo::snmp;

namespace {

// The client's commands; blanks count.
constexpr char insertBridge[] = " quorlet \" insertkey Bridge Name text:wanX Stp integer:0 ;\" ";
constexpr char insertLanMember[] =
    " quorlet \" insertkey BridgeInterface  BridgeId integer:%d  Interface text:eth0"
    "  AllowLocalAccess integer:0  AllowDHCP integer:0 ;\" ";
constexpr char insertWanMember[] =
    " quorlet \" insertkey BridgeInterface  BridgeId integer:%d  Interface text:%sX"
    "  AllowLocalAccess integer:0  AllowDHCP integer:0 ;\" ";
constexpr char deleteMembers[] = " quorlet \" deletekey    BridgeInterface BridgeId %d ;\" ";
constexpr char deleteFilter[] =
    " quorlet \" deletekey    BridgeFilter            BridgeId %d  ;\" ";
constexpr char deleteBridge[] = " quorlet \" deletekey    Bridge Id %d ;\" ";

// Takes a new row's Id from the answer of its insert.
int takeId(int status, const Reply& reply, int& id) {
    if (status != CORVANTA_OK)
        return status;
    if (!reply.number())
        return CORVANTA_FAILED;
    id = *reply.number();
    return CORVANTA_OK;
}

int create(int& bridgeId, int& lanIfaceId, int& wanIfaceId) {
    Reply reply;
    if (const int status = takeId(runTraced(reply, insertBridge), reply, bridgeId))
        return status;
    if (const int status = takeId(runTraced(reply, insertLanMember, bridgeId), reply, lanIfaceId))
        return status;
    return takeId(runTraced(reply, insertWanMember, bridgeId, "wan"), reply, wanIfaceId);
}

void lookUp(int& bridgeId, int& lanIfaceId, int& wanIfaceId, int& filterId) {
    ignoreStatus(config_int_read_by_key(&lanIfaceId, "BridgeInterface", "Id", "Interface", "eth0"));
    if (lanIfaceId > 0) {
        wanIfaceId = nextRow(lanIfaceId);
        ignoreStatus(config_int_access_by_id(access_get, &bridgeId, "BridgeInterface", "BridgeId",
                                             lanIfaceId));
    }
    if (bridgeId > 0)
        ignoreStatus(config_int_read_by_key(&filterId, "BridgeFilter", "Id", "BridgeId",
                                            join({bridgeId}).c_str()));
}

int remove(int bridgeId) {
    Reply reply;
    if (const int status = runTraced(reply, deleteMembers, bridgeId))
        return status;
    if (const int status = runTraced(reply, deleteFilter, bridgeId))
        return status;
    return runTraced(reply, deleteBridge, bridgeId);
}

} // namespace

int default_Bridge(access_type access, int* bridgeId, int* lanIfaceId, int* wanIfaceId,
                   int* filterId) {
    return guardedStatus([=]() -> int {
        if (bridgeId == nullptr || lanIfaceId == nullptr || wanIfaceId == nullptr ||
            filterId == nullptr)
            return CORVANTA_FAILED;
        *bridgeId = *lanIfaceId = *wanIfaceId = *filterId = -1;
        if (access == access_create)
            return create(*bridgeId, *lanIfaceId, *wanIfaceId);
        lookUp(*bridgeId, *lanIfaceId, *wanIfaceId, *filterId);
        return access == access_delete ? remove(*bridgeId) : CORVANTA_OK;
    });
}
