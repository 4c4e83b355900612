#include "objects/wan_interface.h"

#include "client/Client.h"
#include "objects/default_bridge.h"
#include "objects/vlan.h"

int kavo::snmp::readDefaultWan(char* buffer, int bufferSize, int* length) {
    DefaultBridge bridge;
    bridge.lookUp();
    if (!bridge.exists())
        return CORVANTA_OK;
    return readText(buffer, bufferSize, length, "BridgeInterface", "Interface", bridge.wanIfaceId);
}

int kavo::snmp::readVlanParent(char* buffer, int bufferSize, int* length, int vlanIndex) {
    return readText(buffer, bufferSize, length, "VLAN", "ParentIf", wanRow(vlanIndex));
}
