#include <corvanta.h>

#include <stdio.h>
#include <string.h>

int main(void) {
    char name[8];
    if (initialize(0) != 1)
        return 1;
    indexToLogicalIfName(physicalIFNameToIndex("eth0"), name, sizeof name);
    printf("%s %s\n", name, ly2State2String(ly2State_up));
    return strcmp(name, "LAN") != 0;
}
