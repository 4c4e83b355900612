/* A host in plain C, with nothing but the public header: every function binds by its name. */
#include "corvanta.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int failures;

static void expect(int truth, const char* what) {
    if (truth)
        return;
    ++failures;
    fprintf(stderr, "c_host: %s\n", what);
}

int main(void) {
    char name[8];
    speedInfo_s rates = {1, 2, 3, 4294967295u};
    int value = 1;
    int length = 0;
    atm_entry entry;

    /* Nothing is ready yet: failure values, no crash. */
    expect(!m_bVerbose && debug_level == 7 && m_iLogHandle == -1, "globals");
    char* none = getLayer2IfStatus();
    expect(none != NULL && *none == '\0', "report before initialize");
    free(none);
    expect(getSpeedInfo(&rates) == 0 && physicalIFNameToIndex("eth0") == 0,
           "query before initialize");
    expect(mappingTableToString() == NULL && speedInfoToString(&rates) == NULL,
           "text before initialize");
    expect(VlanEnabled_snmp(access_get, &value, 1) == CORVANTA_FAILED &&
               VlanDiscardTag_snmp(access_get, &value, 1) == CORVANTA_FAILED &&
               VlanWanInterface(access_get, name, sizeof name, &length, 1) == CORVANTA_FAILED &&
               VlanDefaultWanInterface(access_get, name, sizeof name, &length) == CORVANTA_FAILED &&
               atm_access_c(access_get, &entry, 1, 0) == CORVANTA_FAILED,
           "objects before the first update");

    expect(initialize(0) == 1, "initialize");
    expect(physicalIFNameToIndex("ppp3") == 13, "index");
    indexToLogicalIfName(2, name, 3);
    expect(strcmp(name, "LA") == 0, "name");
    char* text = speedInfoToString(&rates);
    expect(text != NULL && strstr(text, "dslAttainableDataRateUp=4294967295]") != NULL, "rates");
    free(text);
    text = getRowSnmpAgent();
    expect(text != NULL && strcmp(text, "==> FIL <==") == 0, "row");
    free(text);
    expect(strcmp(ly2State2String(ly2State_up), "UP") == 0, "state");
    expect(isEnabled() == 5 && testMethod2() == 0, "constants");
    expect(TruthValue_internal_to_snmp(0) == 2 && TruthValue_snmp_to_internal(2) == 0, "truth");
    expect(AtmEnabled_snmp(access_get, NULL, 1) == CORVANTA_FAILED &&
               VlanDiscardUntaggedFrames_snmp(access_get, NULL) == CORVANTA_FAILED,
           "null values");
    expect(config_int_access_by_id(access_create, &value, "Atm", "Vpi", 1) == CORVANTA_FAILED,
           "access");
    return failures != 0;
}
