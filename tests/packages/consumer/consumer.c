#include <corvanta.h>

#include <string.h>

int main(void) {
    char name[8];
    if (initialize(0) != 1)
        return 1;
    indexToLogicalIfName(physicalIFNameToIndex("eth0"), name, sizeof name);
    return strcmp(name, "LAN") != 0 || strcmp(ly2State2String(ly2State_up), "UP") != 0;
}
