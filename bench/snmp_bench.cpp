// A manager that measures agents; scripts/bench starts them.
//
//     snmp_bench latency ROUNDS {NAME ADDRESS OID}...
//         the median latency of a get of each object, in microseconds, asked in turn
//     snmp_bench load ADDRESS ROOT GETS SETS
//         gets mixed with sets from four managers at once; each knows what every answer must be.
//         Prints the numbers of gets, sets, managers, and lost or wrong answers
//     snmp_bench fresh ADDRESS OID CHANGES {COMMAND VALUE} {COMMAND VALUE}
//         for each change, which the two shell commands make in turn, the time in ms from the start
//         of the command to the first get with the new value
//     snmp_bench sets PAIRS ROOT ADDRESS ADDRESS
//         each set and its inverse at two agents in turn: for each, the median ratio of the second
//         agent's time to the first's with the interval of 95 %, and both medians in ms
//
// ROOT is corvantaObjects of an agent on a device with its factory settings.

#include "Pairs.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int kManagers = 4;

class Manager {
public:
    explicit Manager(std::string address) {
        netsnmp_session settings;
        snmp_sess_init(&settings);
        char community[] = "bench";
        settings.version = SNMP_VERSION_2c;
        settings.peername = address.data();
        settings.community = reinterpret_cast<u_char*>(community);
        settings.community_len = std::strlen(community);
        settings.retries = 0;
        settings.timeout = 20'000'000;
        m_session = snmp_sess_open(&settings);
        if (m_session == nullptr)
            std::exit(1);
    }

    /// Gets, or sets when there is a value. @param type  of the value, as of snmpset
    /// @return the value as text, or what went wrong
    std::string ask(const std::string& name, const char* value = nullptr, char type = 'i') {
        oid arcs[MAX_OID_LEN];
        std::size_t length = MAX_OID_LEN;
        if (!read_objid(name.c_str(), arcs, &length))
            return "no OID";
        netsnmp_pdu* request = snmp_pdu_create(value != nullptr ? SNMP_MSG_SET : SNMP_MSG_GET);
        if (value != nullptr)
            snmp_add_var(request, arcs, length, type, value);
        else
            snmp_add_null_var(request, arcs, length);
        netsnmp_pdu* answer = nullptr;
        const int status = snmp_sess_synch_response(m_session, request, &answer);
        std::string text = status == STAT_SUCCESS ? "error" : "lost";
        if (status == STAT_SUCCESS && answer->errstat == SNMP_ERR_NOERROR) {
            const netsnmp_variable_list& variable = *answer->variables;
            text = variable.type == ASN_OCTET_STR
                       ? std::string(reinterpret_cast<char*>(variable.val.string), variable.val_len)
                   : variable.type < 0x80 ? std::to_string(*variable.val.integer)
                                          : "none";
        }
        snmp_free_pdu(answer);
        return text;
    }

private:
    void* m_session;
};

struct Target {
    std::string name;
    std::string oid;
    Manager manager;
    std::vector<double> times;
};

int latency(int rounds, char** arguments) {
    std::vector<Target> targets;
    for (; arguments[0] != nullptr; arguments += 3)
        targets.push_back({arguments[0], arguments[2], Manager(arguments[1]), {}});
    for (int round = -rounds / 10; round < rounds; ++round) { // the first ones warm up
        for (Target& target : targets) {
            const auto start = std::chrono::steady_clock::now();
            const std::string answer = target.manager.ask(target.oid);
            const std::chrono::duration<double, std::micro> taken =
                std::chrono::steady_clock::now() - start;
            if (answer == "lost" || answer == "error" || answer == "none")
                return std::fprintf(stderr, "%s: %s\n", target.name.c_str(), answer.c_str()), 1;
            if (round >= 0)
                target.times.push_back(taken.count());
        }
    }
    for (Target& target : targets) {
        const auto middle = target.times.begin() + rounds / 2;
        std::nth_element(target.times.begin(), middle, target.times.end());
        std::printf("%s\t%.1f\n", target.name.c_str(), *middle);
    }
    return 0;
}

/// One of the managers: changes its own objects, reads these and constant ones. @return mistakes
int loadOne(Manager manager, const std::string& root, int number, int gets, int sets) {
    const std::string row = std::to_string(number);
    const std::string other = std::to_string(9 - number);
    const std::string vci = root + ".6.1.5." + row;
    const std::string tag = root + ".7.1.3." + row;
    struct {
        std::string oid;
        std::string value;
    } objects[] = {
        {vci, manager.ask(vci)},
        {tag, manager.ask(tag)},
        {root + ".6.1.3." + other, "atm" + other},
        {root + ".7.1.4." + other, "wan1"},
    };
    std::minstd_rand random(static_cast<unsigned>(number));
    int mistakes = 0;
    const auto expect = [&](const std::string& wanted, const std::string& answer) {
        if (wanted != answer && ++mistakes < 5)
            std::fprintf(stderr, "manager %d: %s for %s\n", number, answer.c_str(), wanted.c_str());
    };
    for (int i = 0; i < gets; ++i) {
        if (i % (gets / sets) == 0) {
            const bool second = i / (gets / sets) % 2 == 1;
            const long value = static_cast<long>(second ? random() % 2 + 1 : random() % 65536);
            objects[second].value = std::to_string(value);
            expect(objects[second].value,
                   manager.ask(objects[second].oid, objects[second].value.c_str()));
            expect(objects[second].value, manager.ask(objects[second].oid)); // shown at once
            continue;
        }
        const auto& object = objects[random() % 4];
        expect(object.value, manager.ask(object.oid));
    }
    return mistakes;
}

int load(const char* address, const std::string& root, int gets, int sets) {
    for (int number = 1; number <= kManagers; ++number) {
        if (fork() == 0)
            std::_Exit(std::min(
                100, loadOne(Manager(address), root, number, gets / kManagers, sets / kManagers)));
    }
    int mistakes = 0;
    for (int status; wait(&status) > 0;)
        mistakes += WIFEXITED(status) ? WEXITSTATUS(status) : 100;
    std::printf("%d\t%d\t%d\t%d\n", gets, sets, kManagers, mistakes);
    return 0;
}

int fresh(const char* address, const char* oid, int changes, char** arguments) {
    Manager manager(address);
    std::minstd_rand random(1);
    for (int i = 0; i < changes; ++i) {
        char* const command = arguments[i % 2 * 2];
        const std::string value = arguments[i % 2 * 2 + 1];
        // A change meets every moment of an agent that looks once a second, and that reads at most
        // so.
        std::this_thread::sleep_for(std::chrono::milliseconds(random() % 2000));
        const std::string before = manager.ask(oid);
        if (before == value)
            return std::fprintf(stderr, "%s is shown before \"%s\"\n", value.c_str(), command), 1;
        char* const shell[] = {const_cast<char*>("sh"), const_cast<char*>("-c"), command, nullptr};
        const auto start = std::chrono::steady_clock::now();
        pid_t process = 0;
        if (posix_spawn(&process, "/bin/sh", nullptr, nullptr, shell, environ) != 0)
            return 1;
        std::string shown;
        while ((shown = manager.ask(oid)) != value) {
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            if (std::chrono::steady_clock::now() - start > std::chrono::minutes(1))
                return std::fprintf(stderr, "%s is shown after \"%s\"\n", shown.c_str(), command),
                       1;
        }
        const std::chrono::duration<double, std::milli> taken =
            std::chrono::steady_clock::now() - start;
        std::printf("%.1f\n", taken.count());
        waitpid(process, nullptr, 0);
    }
    return 0;
}

constexpr struct {
    const char* name;
    const char* object;
    char type;
    const char* there;
    const char* back;
} kSets[] = {
    {"VLAN object on and off", ".7.1.2.1", 'i', "1", "2"},
    {"tag of one that is off", ".7.1.3.1", 'i', "1", "2"},
    {"parent of one that is off", ".7.1.4.3", 's', "wan3", "wan1"},
    {"default WAN set and emptied", ".3.1.0", 's', "wan2", ""},
    {"discard untagged frames", ".3.2.0", 'i', "1", "2"},
    {"circuit on and off", ".6.1.2.4", 'i', "1", "2"},
    {"VPI and back", ".6.1.4.8", 'i', "255", "8"},
    {"VCI and back", ".6.1.5.1", 'i', "65535", "32"},
};

int sets(int pairs, const std::string& root, char** addresses) {
    Manager managers[] = {Manager(addresses[0]), Manager(addresses[1])};
    for (const auto& each : kSets) {
        Pairs times;
        for (int i = -1; i < 2 * pairs; ++i) { // the first warms up
            const int which = times.next(i);
            const auto start = std::chrono::steady_clock::now();
            for (const char* value : {each.there, each.back})
                if (managers[which].ask(root + each.object, value, each.type) != value)
                    return std::fprintf(stderr, "%s: no '%s'\n", each.name, value), 1;
            times.add(i, std::chrono::steady_clock::now() - start);
        }
        times.print(each.name);
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    setenv("MIBS", "", 1);
    init_snmp("snmp_bench");
    const std::string mode = argc > 1 ? argv[1] : "";
    if (mode == "latency" && argc > 5 && argc % 3 == 0)
        return latency(std::atoi(argv[2]), argv + 3);
    if (mode == "load" && argc == 6)
        return load(argv[2], argv[3], std::atoi(argv[4]), std::atoi(argv[5]));
    if (mode == "fresh" && argc == 9)
        return fresh(argv[2], argv[3], std::atoi(argv[4]), argv + 5);
    if (mode == "sets" && argc == 6)
        return sets(std::atoi(argv[2]), argv[3], argv + 4);
    std::fputs("usage: see the head of snmp_bench.cpp\n", stderr);
    return 2;
}
