#include "frame/Guard.h"
#include "objects/client.h"

using namespace kavo::snmp;

namespace {

// The client's commands; blanks count.
constexpr char insertMpoaNode[] =
    " quorlet \" insertkey NetworkSetupNode   Type text:MPoA  InterfaceName text:%s%d"
    "  ParentInterface text:SHDSL  ConfigurationSpecifics text:%d  Enable integer:1  ;\" ";
constexpr char deleteMpoaNode[] =
    " quorlet \" deletekey NetworkSetupNode                   InterfaceName      %s%d  ;\" ";

constexpr char mpoaInterface[] = "wan"; // followed by the circuit's number

int atmEnabled(access_type access, int* value, int index) {
    if (value == nullptr)
        return CORVANTA_FAILED;
    int current = 0;
    if (const int status = config_int_access_by_id(access_get, &current, "Atm", "Enabled", index))
        return status;
    if (access == access_get)
        *value = TruthValue_internal_to_snmp(current);
    if (access != access_set)
        return CORVANTA_OK;

    int requested = TruthValue_snmp_to_internal(*value);
    Reply reply;
    if (current == 0 && requested == 1) {
        if (const int status = runTraced(reply, insertMpoaNode, mpoaInterface, index, index))
            return status;
    } else if (current == 1 && requested == 0) {
        ignoreStatus(runTraced(reply, deleteMpoaNode, mpoaInterface, index));
    }
    return config_int_access_by_id(access_set, &requested, "Atm", "Enabled", index);
}

} // namespace

int AtmEnabled_snmp(access_type access, int* value, int index) {
    return guardedStatus([=] { return atmEnabled(access, value, index); });
}
