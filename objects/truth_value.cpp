#include <corvanta.h>

int TruthValue_internal_to_snmp(int value) {
    switch (value) {
    case 0:
        return 2;
    case 1:
        return 1;
    default:
        return 0;
    }
}

int TruthValue_snmp_to_internal(int value) {
    return value == 2 ? 0 : value;
}
