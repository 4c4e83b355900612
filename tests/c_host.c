/* A host in plain C, with nothing but the public header: the functions bind by their names. */
#include "corvanta.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int main(void) {
    char name[8];
    speedInfo_s rates = {1, 2, 3, 4294967295u};
    atm_entry entry;
    int value = 1;
    int length = 0;
    int ok = atm_access_c(access_get, &entry, 1, 0) == CORVANTA_FAILED && initialize(0) == 1 &&
             debug_level == 7 && m_iLogHandle == -1 && physicalIFNameToIndex("ppp3") == 13;
    indexToLogicalIfName(2, name, 3);
    ok = ok && strcmp(name, "LA") == 0 && strcmp(ly2State2String(ly2State_up), "UP") == 0 &&
         isEnabled() == 5 && testMethod2() == 0 && TruthValue_snmp_to_internal(2) == 0 &&
         AtmEnabled_snmp(access_get, NULL, 1) == CORVANTA_FAILED &&
         VlanEnabled_snmp(access_get, &value, 1) == CORVANTA_FAILED &&
         VlanWanInterface(access_get, name, sizeof name, &length, 1) == CORVANTA_FAILED &&
         config_int_access_by_id(access_create, &value, "Atm", "Vpi", 1) == CORVANTA_FAILED;
    char* const text = speedInfoToString(&rates);
    ok = ok && text != NULL && strstr(text, "dslAttainableDataRateUp=4294967295]") != NULL;
    free(text);
    if (!ok)
        fputs("c_host: an answer is wrong\n", stderr);
    return !ok;
}
