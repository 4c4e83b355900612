#include "base/Guard.h"
#include "client/Client.h"

using namespace kavo::snmp;

namespace {

// The client's commands; blanks count.
constexpr char kInsertMpoaNode[] =
    " quorlet \" insertkey NetworkSetupNode   Type text:MPoA  InterfaceName text:%s%d"
    "  ParentInterface text:SHDSL  ConfigurationSpecifics text:%d  Enable integer:1  ;\" ";
constexpr char kDeleteMpoaNode[] =
    " quorlet \" deletekey NetworkSetupNode                   InterfaceName      %s%d  ;\" ";

constexpr char kMpoaInterface[] = "wan"; // followed by the circuit's number

int atmEnabled(access_type access, int* value, int index) {
    if (value == nullptr)
        return CORVANTA_FAILED;
    int current = 0;
    TRY(config_int_access_by_id(access_get, &current, "Atm", "Enabled", index));
    if (access == access_get)
        *value = TruthValue_internal_to_snmp(current);
    if (access != access_set)
        return CORVANTA_OK;

    int requested = TruthValue_snmp_to_internal(*value);
    ShortAnswer answer;
    if (current == 0 && requested == 1)
        TRY(run(kTraced, answer, kInsertMpoaNode, kMpoaInterface, index, index));
    else if (current == 1 && requested == 0)
        ignoreStatus(run(kTraced, answer, kDeleteMpoaNode, kMpoaInterface, index));
    return config_int_access_by_id(access_set, &requested, "Atm", "Enabled", index);
}

} // namespace

int AtmEnabled_snmp(access_type access, int* value, int index) {
    return guardedStatus([=] { return atmEnabled(access, value, index); });
}
