/*
 * A command line for the managed objects, written as a host of the library:
 *
 *     objects [--verbose] list
 *     objects [--verbose] get NAME [INDEX]
 *     objects [--verbose] set NAME [INDEX] VALUE
 *
 * A get without INDEX reads all. --verbose turns the library's trace on, in the
 * system log. Exit status: 0 done, 1 the library refused, 2 wrong use.
 */
#include <corvanta.h>

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { truth_true = 1, truth_false = 2 };

/* An object's value; its kind tells which members it has. */
struct value {
    int number; /* or TruthValue */
    char text[64];
    int length; /* below 0: no text was read */
};

enum kind { kind_truth, kind_number, kind_name };

struct object {
    const char* name;
    int count; /* instances, numbered from 1; 0: there is one, without a number */
    enum kind kind;
    int max; /* highest number */
    bool writable;
    int (*access)(access_type access, struct value* value, int index);
    const char* meaning;
};

/* ------------------------------------------- from the library's handlers -- */

static int atm_enabled(access_type access, struct value* value, int index) {
    return AtmEnabled_snmp(access, &value->number, index);
}

/* A circuit's row is read and written as a whole. */
static int atm_number(access_type access, struct value* value, int index, int param) {
    atm_entry row;
    const int status = atm_access_c(access_get, &row, index, param);
    if (status != CORVANTA_OK)
        return status;
    int32_t* const column = param == vantorKx9_Vpi ? &row.Vpi : &row.Vci;
    if (access == access_get) {
        value->number = *column;
        return status;
    }
    *column = value->number;
    return atm_access_c(access, &row, index, param);
}

static int atm_vpi(access_type access, struct value* value, int index) {
    return atm_number(access, value, index, vantorKx9_Vpi);
}

static int atm_vci(access_type access, struct value* value, int index) {
    return atm_number(access, value, index, vantorKx9_Vci);
}

static int atm_device(access_type access, struct value* value, int index) {
    atm_entry row;
    const int status = atm_access_c(access, &row, index, 0);
    if (status == CORVANTA_OK)
        value->length = snprintf(value->text, sizeof value->text, "%s", row.DeviceName);
    return status;
}

static int vlan_enabled(access_type access, struct value* value, int index) {
    return VlanEnabled_snmp(access, &value->number, index);
}

static int vlan_discard_tag(access_type access, struct value* value, int index) {
    return VlanDiscardTag_snmp(access, &value->number, index);
}

static int vlan_wan(access_type access, struct value* value, int index) {
    return VlanWanInterface(access, value->text, sizeof value->text, &value->length, index);
}

static int default_wan(access_type access, struct value* value, int index) {
    (void)index;
    return VlanDefaultWanInterface(access, value->text, sizeof value->text, &value->length);
}

static int discard_untagged(access_type access, struct value* value, int index) {
    (void)index;
    return VlanDiscardUntaggedFrames_snmp(access, &value->number);
}

static const struct object objects[] = {
    {"atm-enabled", 8, kind_truth, 0, true, atm_enabled, "the ATM circuit is enabled"},
    {"atm-vpi", 8, kind_number, 255, true, atm_vpi, "its virtual path identifier"},
    {"atm-vci", 8, kind_number, 65535, true, atm_vci, "its virtual circuit identifier"},
    {"atm-device", 8, kind_name, 0, false, atm_device, "its device name"},
    {"vlan-enabled", 8, kind_truth, 0, true, vlan_enabled, "the VLAN object is on"},
    {"vlan-discard-tag", 8, kind_truth, 0, true, vlan_discard_tag,
     "its WAN side goes untagged (only stored while the object is off)"},
    {"vlan-wan", 8, kind_name, 0, true, vlan_wan, "its WAN parent interface"},
    {"default-wan", 0, kind_name, 0, true, default_wan, "the default bridge's WAN interface"},
    {"discard-untagged", 0, kind_truth, 0, true, discard_untagged,
     "the default bridge discards untagged frames"},
};
static const size_t object_count = sizeof objects / sizeof objects[0];

/* --------------------------------------------------------- as people write -- */

/* By TruthValue; what is printed comes first. */
static const char* const truths[][3] = {
    [truth_true] = {"true", "on", "yes"},
    [truth_false] = {"false", "off", "no"},
};

static const char* const kind_help[] = {"true or false (on, off, yes, no)",
                                        "a number (VPI up to 255, VCI up to 65535)",
                                        "an interface name, or none"};

static const char* const meanings[] = {
    [CORVANTA_OK] = "done",
    [CORVANTA_FAILED] = "the database's client gave no usable answer, or no bridge is free",
    [CORVANTA_LOCKED] = "the database stayed locked by someone else",
    [CORVANTA_UNKNOWN_ROW] = "the database has no such row",
    [CORVANTA_NO_COMMAND] = "nothing was asked",
    [CORVANTA_BAD_INDEX] = "there is no such ATM circuit",
    [CORVANTA_UNFIT] = "a value does not fit, or cannot be written",
};

static bool read_number(const char* text, int min, int max, int* number) {
    char* end;
    errno = 0;
    const long read = strtol(text, &end, 10);
    if (errno != 0 || end == text || *end != '\0' || read < min || read > max)
        return false;
    *number = (int)read;
    return true;
}

static bool read_value(const struct object* object, const char* text, struct value* value) {
    switch (object->kind) {
    case kind_truth:
        for (value->number = truth_true; value->number <= truth_false; ++value->number)
            for (size_t i = 0; i < 3; ++i)
                if (strcmp(text, truths[value->number][i]) == 0)
                    return true;
        return false;
    case kind_number:
        return read_number(text, 0, object->max, &value->number);
    case kind_name:
        if (strcmp(text, "none") == 0)
            text = "";
        value->length = snprintf(value->text, sizeof value->text, "%s", text);
        return (size_t)value->length < sizeof value->text;
    }
    return false;
}

static void print_value(const struct object* object, const struct value* value) {
    if (object->kind == kind_number)
        printf("%d\n", value->number);
    else if (object->kind == kind_name)
        puts(value->length > 0 ? value->text : "none");
    else
        puts(value->number == truth_true || value->number == truth_false
                 ? truths[value->number][0]
                 : "neither true nor false");
}

/* ---------------------------------------------------------------- commands -- */

static void print_name(FILE* out, const struct object* object, int index) {
    fputs(object->name, out);
    if (object->count > 0)
        fprintf(out, " %d", index);
    fputs(": ", out);
}

static int refused(const struct object* object, int index, int status) {
    fputs("objects: ", stderr);
    print_name(stderr, object, index);
    fprintf(stderr, "%s (status %d)\n", meanings[status], status);
    return 1;
}

static int get(const struct object* object, int index) {
    struct value value = {.length = -1};
    const int status = object->access(access_get, &value, index);
    if (status != CORVANTA_OK)
        return refused(object, index, status);
    print_name(stdout, object, index);
    print_value(object, &value);
    return 0;
}

/* A set that fails halfway undoes nothing, so the outcome is read back. */
static int set(const struct object* object, int index, struct value* value) {
    const int status = object->access(access_set, value, index);
    const int result = status == CORVANTA_OK ? 0 : refused(object, index, status);
    return get(object, index) != 0 ? 1 : result;
}

static int list(void) {
    for (size_t i = 0; i < object_count; ++i)
        printf("%-17s %-6s %-9s %s\n", objects[i].name, objects[i].count > 0 ? "INDEX" : "",
               objects[i].writable ? "get, set" : "get", objects[i].meaning);
    return 0;
}

static int wrong(const char* text, const char* detail) {
    fprintf(stderr, "objects: %s%s\n", text, detail);
    return 2;
}

int main(int argc, char** argv) {
    const bool verbose = argc > 1 && strcmp(argv[1], "--verbose") == 0;
    argc -= verbose ? 2 : 1;
    argv += verbose ? 2 : 1;
    if (argc == 1 && strcmp(argv[0], "list") == 0)
        return list();
    const bool sets = argc > 0 && strcmp(argv[0], "set") == 0;
    if (argc < 2 || (!sets && strcmp(argv[0], "get") != 0))
        return wrong("usage: objects [--verbose] list | get NAME [INDEX] | set NAME [INDEX] VALUE",
                     "");

    const struct object* object = objects;
    while (object < objects + object_count && strcmp(object->name, argv[1]) != 0)
        ++object;
    if (object == objects + object_count)
        return wrong("no such object (see: objects list): ", argv[1]);
    if (sets && !object->writable)
        return wrong("can only be read: ", object->name);

    const int words = argc - 2 - (sets ? 1 : 0); /* what is left for INDEX */
    int index = 0;
    struct value value = {.length = -1};
    if (words > (object->count > 0 ? 1 : 0) || words < (sets && object->count > 0 ? 1 : 0))
        return wrong(object->count > 0 ? "one INDEX goes with " : "no INDEX goes with ",
                     object->name);
    if (words == 1 && !read_number(argv[2], 1, object->count, &index))
        return wrong("no such INDEX: ", argv[2]);
    if (sets && !read_value(object, argv[argc - 1], &value))
        return wrong("VALUE is ", kind_help[object->kind]);

    if (!initialize(verbose)) {
        fputs("objects: the library is not ready, see the system log\n", stderr);
        return 1;
    }
    update_managed_objects();
    if (sets)
        return set(object, index, &value);
    int result = 0;
    const bool all = object->count > 0 && index == 0;
    for (int i = all ? 1 : index; i <= (all ? object->count : index); ++i)
        result = get(object, i) != 0 ? 1 : result;
    return result;
}
