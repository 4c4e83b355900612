/*
 * A host in C, as an SNMP agent would be: asks the library for everything that
 * its status side offers and prints it.
 *
 *     status [--verbose] [INTERFACE...]
 *
 * INTERFACE is a physical interface to look up. --verbose turns the library's
 * trace on, in the system log.
 */
#include <corvanta.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const char* const some_interfaces[] = {"lo",   "eth0", "wlan1", "wan1", "wan2",
                                              "wan3", "ppp1", "ppp2",  "ppp3"};

/* The report reads "VC1=1|PPPoE1=1|VC8=2". */
static bool print_layer2(void) {
    char* report = getLayer2IfStatus();
    if (report == NULL)
        return false;
    puts("Layer-2 interfaces");
    if (report[0] == '\0')
        puts("  none configured, or the report failed (see the system log)");
    for (char* entry = strtok(report, "|"); entry != NULL; entry = strtok(NULL, "|")) {
        char* const state = strchr(entry, '=');
        if (state == NULL)
            continue;
        *state = '\0';
        printf("  %-10s %s\n", entry, ly2State2String(atoi(state + 1)));
    }
    free(report);
    return true;
}

static bool print_rates(void) {
    speedInfo_s rates;
    if (!getSpeedInfo(&rates))
        return false;
    puts("\nDSL line rates  downstream    upstream");
    printf("  actual      %12lu%12lu\n", (unsigned long)rates.dslActualDataRateDown,
           (unsigned long)rates.dslActualDataRateUp);
    printf("  attainable  %12lu%12lu\n", (unsigned long)rates.dslAttainableDataRateDown,
           (unsigned long)rates.dslAttainableDataRateUp);
    return true;
}

static void print_interface(const char* name) {
    char logical[32];
    const int index = physicalIFNameToIndex(name);
    indexToLogicalIfName(index, logical, sizeof logical);
    printf("  %-10s %5d  %s\n", name, index, logical);
}

/* Prints a text that the library allocated, and releases it. */
static bool print_text(const char* title, char* text) {
    if (text == NULL)
        return false;
    printf("\n%s\n  %s\n", title, text);
    free(text);
    return true;
}

int main(int argc, char** argv) {
    const bool verbose = argc > 1 && strcmp(argv[1], "--verbose") == 0;
    if (!initialize(verbose)) {
        fputs("status: the library is not ready, see the system log\n", stderr);
        return 1;
    }

    bool complete = print_layer2();
    complete = print_rates() && complete;

    puts("\nInterface   index  logical name");
    const int first = verbose ? 2 : 1;
    for (int i = first; i < argc; ++i)
        print_interface(argv[i]);
    if (first >= argc)
        for (size_t i = 0; i < sizeof some_interfaces / sizeof some_interfaces[0]; ++i)
            print_interface(some_interfaces[i]);

    complete = print_text("Mapping table", mappingTableToString()) && complete;
    complete = print_text("Agent row", getRowSnmpAgent()) && complete;
    printf("\nEnabled\n  %d\n", isEnabled());
    if (!complete)
        fputs("status: some queries failed, see the system log\n", stderr);
    return complete ? 0 : 1;
}
