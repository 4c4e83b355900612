// What an agent meets in the field over the years: kills, replays, slow devices, other agents,
// masters that go away, strangers. On the stand-in device, with the stock SNMP tools.

#include "tests/agent/site/Port.h"
#include "tests/agent/site/Site.h"

#include <gtest/gtest.h>

#include <poll.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <thread>
#include <tuple>
#include <vector>

namespace {

using Packets = std::vector<std::string>;

/// What a tool sends, in order: as it tells itself, sixteen bytes a line.
Packets packetsOf(const Site& site, const std::string& command, const std::string& arguments) {
    Packets packets;
    bool sent = false;
    std::istringstream lines(site.tool(command + " -d", arguments));
    for (std::string line; std::getline(lines, line);) {
        if (line.rfind("Sending ", 0) == 0) {
            sent = true;
            packets.emplace_back();
        } else if (line.empty()) {
            sent = false;
        } else if (sent) {
            std::istringstream bytes(line.substr(6, 52));
            for (unsigned byte; bytes >> std::hex >> byte;)
                packets.back() += static_cast<char>(byte);
        }
    }
    return packets;
}

/// The packet that asks for a circuit's VCI, or sets it to what it is.
std::string makeRequest(const Site& site, bool set = false) {
    const std::string object = Site::oid("6.1.5.1");
    return packetsOf(site, set ? "snmpset" : "snmpget", object + (set ? " i 32" : "")).back();
}

/// The process of the agent's that faces the network, or owns the device.
int side(const Site& site, const std::string& name) {
    const int pid = std::atoi(
        site.run("pgrep -P " + std::to_string(site.agent->pid()) + " corvantad-" + name).c_str());
    EXPECT_GT(pid, 0) << name;
    return pid > 0 ? pid : INT_MAX; // that of nobody: 0 would mean this process and all beside it
}

/// Lets everybody in. @return whether nobody can then run the client, as it can't in root's folders
bool admitsNobody(const Site& site) {
    site.run("chmod -R a+rwX .");
    return site.run("setpriv --reuid=nobody --clear-groups test -x " QUORLET " && echo so") ==
           "so\n";
}

/// What is stored alone knows the user, with keys that fit one engine ID only.
TEST(Field, TheIdentityOutlivesAKill) {
    Site site;
    site.run("mkdir -p state; echo 'createUser corvantaOperator SHA \"auth passphrase\" AES \"priv "
             "passphrase\"' >state/corvantad.conf; echo 'rwuser corvantaOperator' >agent.conf");
    site.environment += "SNMPCONFPATH=. ";
    site.manager = kUser + "Operator -l authPriv";
    const auto engine = [&] {
        site.startAlone("-i 60");
        return site.tool("snmpget -Oqv", ".1.3.6.1.6.3.10.2.1.1.0 .1.3.6.1.6.3.10.2.1.2.0");
    };
    const std::string first = engine();
    const std::size_t end = first.rfind('"') + 1; // of the ID; the number of boots follows
    const std::string captured = makeRequest(site);
    site.agent->end(SIGKILL);
    EXPECT_EQ("agent.lock\ndev\nnet\n", site.run("ls state")); // each process has what is its own
    const std::string second = engine();
    EXPECT_EQ(first.substr(0, end), second.substr(0, end));
    EXPECT_LT(std::atoi(first.c_str() + end), std::atoi(second.c_str() + end));
    const std::string notInTimeWindows("\x2b\x06\x01\x06\x03\x0f\x01\x01\x02\x00", 10);
    const Port replayer;
    replayer.send(site.port, captured);
    EXPECT_NE(std::string::npos, replayer.receive(120000).find(notInTimeWindows));
}

TEST(Field, NoGetWaitsForASet) {
    Site site;
    const std::string datagrams = site.address;
    site.address = "udp:" + datagrams + ",tcp:" + datagrams;
    site.startAgent("-m " + site.address + " -c agent.conf -s state -i 60 -a 3600 -d 900 -l 600");
    site.address = datagrams;
    site.awaitAgent();
    const std::string request = makeRequest(site);
    const std::string set = makeRequest(site, true);
    site.write("hold", "");
    std::vector<std::thread> managers;
    for (const std::string transport : {"udp:", "udp:", "tcp:"})
        managers.emplace_back([&, transport] {
            EXPECT_EQ("", Site::errorIn(output(site.folder,
                                               site.environment + "snmpset -v2c -c test -r 0 -t " +
                                                   kLong + " " + transport + datagrams + " " +
                                                   Site::oid("6.1.5.1") + " i 77")));
        });
    site.held(); // the first; the others wait behind it
    const Port other;
    const Port impatient;
    for (int gets = 0; gets < 20; ++gets) {
        impatient.send(site.port, set); // again and again, without an answer
        other.send(site.port, request);
        EXPECT_NE("", other.receive(60000));
    }
    EXPECT_TRUE(soon([&] { // nor does what waits grow without end
        for (int sets = 0; sets < 50; ++sets)
            impatient.send(site.port, set);
        return site.run("grep -c 'too many others wait' agent.log") != "0\n";
    }));
    EXPECT_EQ("32\n", site.sql("SELECT Vci FROM Atm WHERE Id=1"));
    site.letGo();
    for (std::thread& manager : managers)
        manager.join();
}

TEST(Field, ASlowDeviceIsNotOverstrained) {
    Site site;
    site.write("delay", "0.1"); // 43 runs take twice the deadline, three a sixth of it
    site.startAlone("-i 60 -d 2 -a 600");
    const std::string before = site.sql(".dump");
    site.write("runs", "");
    const std::string answer = site.set("3.1.0", "s wan2"); // genErr where reading takes as long
    EXPECT_TRUE(answer == "resourceUnavailable" || answer == "(genError)") << answer;
    EXPECT_EQ(before, site.sql(".dump"));
    EXPECT_EQ("", site.run("grep -e updatekey -e insertkey runs"));
    EXPECT_NE("", site.run("grep 'on this device: --set-deadline is shorter' agent.log"));
}

TEST(Field, AStopLetsAWriteEnd) {
    Site site("-i 60 -l 60");
    site.patience = "1"; // there may be no answer
    site.write("hold", "");
    std::thread manager([&] { site.set("6.1.5.1", "i 77"); });
    site.held();
    kill(-site.agent->pid(), SIGINT); // as from a terminal, to the clients too
    kill(site.agent->pid(), SIGTERM);
    pause(300);
    site.letGo();
    EXPECT_EQ(0, site.agent->end(SIGTERM));
    EXPECT_EQ("77\n", site.sql("SELECT Vci FROM Atm WHERE Id=1"));
    manager.join();
}

TEST(Field, WaitsForAClientOfBeforeAndForNothingElse) {
    Site site;
    // At its first command the client starts a service, as a web interface's may.
    site.run("sed -i '3i [ ! -e start ] || { rm start; sleep 1000 & echo $! >service; }' "
             "bin/quorlet");
    site.write("start", "");
    site.startAlone("-i 60 -l 1000");
    site.write("hold", "");
    site.patience = "1";
    std::thread manager([&] { EXPECT_NE("", site.set("6.1.5.1", "i 77")); });
    const std::string client = "/proc/" + std::to_string(site.held());
    site.release("hold");
    kill(site.agent->pid(), SIGKILL); // the client goes on
    manager.join();
    const auto start = [&](const char* limit) {
        site.agent = nullptr;
        site.write("agent.log", "");
        site.startAgent("-m " + site.address + " -c agent.conf -s state -l " + limit);
        site.awaitLog("started");
    };
    start("1000");
    EXPECT_EQ(0, site.agent->end(SIGTERM)); // at once
    EXPECT_TRUE(fs::exists(client));
    start("3");
    EXPECT_TRUE(soon([&] { return !fs::exists(client); }));
    EXPECT_EQ("1\n", site.run("grep -c 'hangs and is killed' agent.log"));
    site.awaitAgent();
    const int service = std::atoi(site.run("cat service").c_str());
    EXPECT_EQ("sleep\n", site.run("cat /proc/" + std::to_string(service) + "/comm"));
    kill(service, SIGTERM);
}

TEST(Field, ASecondAgentOfOneMasterEnds) {
    Subagent site;
    EXPECT_EQ("status 1\n", site.run("timeout 600 " ON_DEVICE " device " CORVANTAD
                                     " -f -x agentx -s second >second.log 2>&1; echo status $?"));
    EXPECT_NE("", site.run("grep 'another agent serves them' second.log"));
    EXPECT_EQ("INTEGER: 2", site.get("3.2.0"));
}

TEST(Field, AnUndoThatFailsIsTold) {
    Subagent site;
    // snmpd itself serves what fails in the same request, once the agent's part is made and
    // changed.
    site.write("fails", "#!/bin/sh\ncd " + site.folder.string() + R"sh(
[ $1 = -s ] || { echo $2; echo integer; echo 1; exit; }
vci() { sqlite3 -cmd '.timeout 5000' device/config.db "$1 WHERE Id=1"; }
until [ "$(vci 'SELECT Vci FROM Atm')" = 77 ] && [ ! -e state/dev/change.journal ]
do sleep 0.1; done
[ ! -e meddle ] || vci 'UPDATE Atm SET Vci=99'
echo not-writable
)sh");
    site.run(
        "mkdir -p snmpd; chmod +x fails; printf '%s\\n' 'pass .1.3.6.1.4.1.8072.9999.7 ./fails' "
        "'view corvanta included .1.3.6.1.4.1.8072' >>master.conf");
    site.startMaster();
    site.awaitAgent();
    const std::string both = "i 77 .1.3.6.1.4.1.8072.9999.7.0 i 1";
    EXPECT_EQ("notWritable", site.set("6.1.5.1", both));
    EXPECT_EQ("32\n", site.sql("SELECT Vci FROM Atm WHERE Id=1"));
    site.write("meddle", "");
    EXPECT_EQ("undoFailed", site.set("6.1.5.1", both));
    EXPECT_EQ("99\n", site.sql("SELECT Vci FROM Atm WHERE Id=1"));
    EXPECT_EQ("Counter32: 1", site.get("1.7.0"));
}

TEST(Field, EachChangeIsToldOnce) {
    Site site;
    const Sink sink(site);
    const std::string options = "-n -i 600 -a 6000"; // none is found by reading again
    site.startAlone(options);
    EXPECT_EQ(1, sink.count(0));
    // While no agent runs.
    site.agent->end(SIGTERM);
    site.setCircuit(false);
    site.startAlone(options);
    EXPECT_EQ(1, sink.count(kDown, "VC8"));
    site.agent->end(SIGKILL);
    site.startAlone(options);
    EXPECT_EQ(0, sink.count(kDown, "", false));
    site.setCircuit(true);
    EXPECT_EQ(1, sink.count(kUp, "VC8"));
    // Another VPI takes it down.
    EXPECT_EQ("", site.set("6.1.4.8", "i 255"));
    EXPECT_EQ(1, sink.count(kDown, "VC255"));
    EXPECT_EQ("", site.set("6.1.4.8", "i 8"));
    EXPECT_EQ(1, sink.count(kUp, "VC8"));
    // It flaps: once a second at most, the last state in the end.
    const auto start = Clock::now();
    for (int i = 0; msSince(start) < 2500; ++i, pause(100))
        site.setCircuit(i % 2 == 0);
    site.setCircuit(false);
    const int seconds = msSince(start) / 1000 + 2;
    int told = 0;
    EXPECT_LE(told = sink.count(kDown, "VC8"), seconds);
    EXPECT_GE(told, 1);
    const std::string down("\x01\x00\x02\x30", 4);
    EXPECT_TRUE(soon([&] {
        return sink.last.find(down) != down.npos || sink.count(kDown, "VC8", false) < 0;
    })) << "the last state";
}

TEST(Field, AMasterThatWasAwayIsToldAfterwards) {
    Subagent site;
    const Sink sink(site); // what it writes to agent.conf, snmpd reads too
    site.run("cat agent.conf >>master.conf");
    site.agent->end(SIGTERM);
    site.master->end(SIGTERM);
    site.write("agent.log", "");
    site.startAgent("-x agentx -s state -n -i 1"); // before its master
    site.awaitLog("the master at");
    site.startMaster();
    site.awaitAgent();
    site.write("agent.log", "");
    site.master->end(SIGKILL);
    site.setCircuit(false);
    site.awaitLog("the master at");
    site.startMaster();
    site.awaitAgent();
    EXPECT_EQ(1, sink.count(kDown, "VC8"));
    EXPECT_EQ("", site.set("6.1.5.1", "i 33"));
    EXPECT_LT(site.logged(), 8) << site.run("cat agent.log");
}

TEST(Field, StrangersUseNothingUp) {
    Site site;
    const std::string datagrams = site.address;
    site.startAgent("-m udp:" + datagrams + ",tcp:" + datagrams +
                    " -c agent.conf -s state -i 60 -d 900");
    site.awaitAgent();
    const Port stranger;
    // The toolkit tells of it: the sender takes one byte.
    const std::string noMessage("\x30\x0e\x02\x01\x03\x30\x09\x02\x01\x01\x02\x01\x01\x04\x01\x04",
                                16);
    for (int i = 0; i < 5000; ++i)
        stranger.send(site.port, noMessage);
    const sockaddr_in address = Port::loopback(site.port);
    const auto call = [&](int blocking) {
        const int caller = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | blocking, 0);
        connect(caller, reinterpret_cast<const sockaddr*>(&address), sizeof address);
        return caller;
    };
    std::vector<int> silent;
    for (int i = 0; i < 600; ++i, pause(3)) // the agent takes some at a time
        silent.push_back(call(SOCK_NONBLOCK));
    for (const std::string transport : {"udp:", "tcp:"}) {
        site.address = transport + datagrams;
        EXPECT_EQ("INTEGER: 32", site.get("6.1.5.1")) << transport;
        EXPECT_EQ("", site.set("3.1.0", transport == "udp:" ? "s wan2" : "s ''")) << transport;
    }
    const std::string open = site.run("for p in $(pgrep -g " + std::to_string(site.agent->pid()) +
                                      "); do ls /proc/$p/fd; done | wc -l");
    EXPECT_LT(std::stoi(open), 200);
    EXPECT_LT(std::atoi(site.run("wc -l <agent.log").c_str()), 60) << site.run("tail -3 agent.log");
    for (const int descriptor : silent)
        close(descriptor);

    // Who hangs up leaves nothing to the next one who calls.
    site.address = datagrams;
    const std::string set = makeRequest(site, true);
    const std::string refreshes = site.get("1.1.0"); // a set is followed by one
    site.write("hold", "");
    const int first = call(0);
    EXPECT_LT(0, send(first, set.data(), set.size(), 0));
    site.held();
    close(first);
    const int second = call(0);
    site.letGo();
    EXPECT_TRUE(soon([&] { return site.get("1.1.0") != refreshes; }));
    pollfd waiting{second, POLLIN, 0};
    EXPECT_EQ(0, poll(&waiting, 1, 500));
    close(second);
}

TEST(Field, ARepeatedRequestIsAnsweredNotMadeAgain) {
    Site site("-i 600 -a 6000");
    std::string request = packetsOf(site, "snmpset", Site::oid("6.1.5.1") + " i 77").back();
    const Port manager;
    site.write("runs", "");
    // Some managers give all their requests one Id.
    for (const int value : {40, 41, 40}) {
        request.back() = static_cast<char>(value);
        std::string answers[2];
        for (std::string& answer : answers) {
            manager.send(site.port, request);
            answer = manager.receive(60000);
        }
        EXPECT_NE("", answers[0]);
        EXPECT_EQ(answers[0], answers[1]);
        EXPECT_EQ("INTEGER: " + std::to_string(value), site.get("6.1.5.1"));
    }
    EXPECT_EQ("3\n", site.run("grep -c updatekey runs"));
}

TEST(Field, TheLogTellsWhoChangedWhat) {
    Site site;
    site.addOperator();
    site.startAlone("-i 600 -a 6000");
    const std::string community = site.manager;
    const std::string user = kUser + "Operator -l authPriv";
    const std::string refused = "refused: nothing has changed ";
    const std::string trial = "cvCircuitVpi.1 1 -> 9, cvConfirmTimeout.0 -> 600: ";
    const std::string sets[][3] = {
        {community, "6.1.5.1 i 77", ": cvCircuitVci.1 32 -> 77: made, "},
        {community, "6.1.5.1 s text", ": cvCircuitVci.1 77: " + refused + "(wrongType), "},
        {community, "3.1.0 s '$(x)'", "'' -> '$(x)': " + refused + "(wrongValue), "},
        {community, "1.9.0 i 1", ROOT_OID ".1.1.9.0: " + refused + "(notWritable), "},
        {user, "6.1.4.1 i 9 8.1.0 u 600", trial + "made, on trial for 600 s, "},
        {community, "8.3.0 i 3", trial + "taken back, since a manager wanted it"},
        {user, "7.1.2.2 i 1 8.1.0 u 600", "corvantaOperator from UDP: [127.0.0.1]:"},
        {community, "8.3.0 i 2", "made, confirms set by corvantaOperator from UDP: "},
    };
    for (const auto& [manager, values, line] : sets) {
        site.write("agent.log", "");
        site.manager = manager;
        site.request(values);
        EXPECT_TRUE(soon([&, &text = line] {
            return site.run("cat agent.log").find(text) + 1 > 0;
        })) << line
            << site.run("cat agent.log");
        EXPECT_EQ("", site.run("grep -e trace: -e passphrase -e '[^_]test' agent.log"));
    }
    // However many sets a trial is of.
    for (int value = 40; value < 60; ++value)
        EXPECT_EQ("", site.request("6.1.5.1 i " + std::to_string(value) + " 8.1.0 u 600"));
    EXPECT_EQ("", site.set("8.3.0", "i 3"));
    site.awaitLog("and more: taken back");
    EXPECT_EQ("", site.run("grep '.\\{1500\\}' agent.log"));
}

TEST(Field, TheLogTellsWhyNothingWorks) {
    const Site site;
    for (const auto& [prepare, path, line, most] :
         {std::tuple("true", "", "quorlet: not found in PATH /usr/bin:/bin", 1),
          std::tuple("chmod -x bin/quorlet",
                     "$PWD/bin:", "bin/quorlet: may not be run by this user", 1),
          std::tuple("mv wordy bin/quorlet; chmod +x bin/quorlet",
                     "$PWD/bin:", "quorlet says: 0000", 20)}) {
        site.write(
            "wordy",
            "#!/bin/sh\nprintf '%02000d\\n' 1 2 3 >&2\nseq 200000 >&2\necho 'Unknown row'\n");
        site.run(prepare);
        const Process agent(site.folder, std::string("PATH=") + path +
                                             "/usr/bin:/bin " CORVANTAD
                                             " -f -s state -i 1 -a 9 -m udp:" +
                                             site.address + " >why.log 2>&1");
        EXPECT_TRUE(soon([&] { return site.run("cat why.log").find(line) != std::string::npos; }));
        pause(1500); // for more, that should not come
        EXPECT_GE(most, std::stoi(site.run("grep -c 'quorlet' why.log")));
        EXPECT_EQ("", site.run("grep -e '.\\{300\\}' -e 'hung and' -e 'sh: 1' why.log"));
    }
}

/// With the configuration of 1.0, changed and kept, snmpd lets no user in.
TEST(Field, AConfigurationOfBeforeIsSaidToShutTheAgentOut) {
    Subagent site;
    if (!admitsNobody(site))
        GTEST_SKIP() << "needs root, and a client that everybody can run";
    site.run("sed '/^agentXPerms/d' " SNMPD_CONF " >old.conf; sed -i "
             "'s,includeFile.*,includeFile '$PWD/old.conf, master.conf");
    site.agent->end(SIGTERM);
    site.startMaster();
    EXPECT_TRUE(soon([&] { return site.has("agentx"); }));
    site.write("agent.log", "");
    site.run("chmod a+w agent.log");
    site.tracer = "setpriv --reuid=nobody --clear-groups --no-new-privs ";
    site.startAgent("-x agentx -s upgraded -d 9");
    site.awaitLog("reach the master at .*: Permission denied: snmpd lets user nobody in by a line "
                  ".agentXPerms");
    site.run("echo agentXPerms 0660 0751 nobody nogroup >>old.conf");
    site.startMaster();
    site.awaitAgent();
    EXPECT_EQ("1\n", site.run("grep -c agentXPerms agent.log"));
    site.master->end(SIGTERM);
    site.awaitLog("cannot reach the master at .*: does snmpd run");
}

TEST(Field, TellsTheServiceManagerThatItMoves) {
    Site site;
    const std::string path = site.folder.string() + "/notices";
    const int notices = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, path.size());
    ASSERT_EQ(0, bind(notices, reinterpret_cast<sockaddr*>(&address), sizeof address));
    // A beat of 2 s; a side that gives no sign for six of them would be replaced.
    site.environment += "WATCHDOG_USEC=24000000 NOTIFY_SOCKET=" + path + " ";
    site.startAlone("-i 60 -l 600 -d 600");
    const auto hears = [&](const std::string& notice, int ms) {
        pollfd waiting{notices, POLLIN, 0};
        char text[100];
        for (const auto start = Clock::now(); msSince(start) < ms;)
            if (poll(&waiting, 1, ms) == 1 &&
                std::string(text, recv(notices, text, sizeof text, 0)) == notice)
                return true;
        return false;
    };
    const std::string sign = "WATCHDOG=1";
    EXPECT_TRUE(hears("READY=1", 120000));
    site.write("stall", ""); // waiting for something that has an end is a sign of life
    std::thread manager([&] { EXPECT_EQ("", site.set("6.1.5.1", "i 77")); });
    EXPECT_TRUE(soon([&] { return site.has("stalled"); }));
    for (int i = 0; i < 7; ++i)
        EXPECT_TRUE(hears(sign, 120000)) << i;
    site.release("stall");
    manager.join();
    kill(site.agent->pid(), SIGSTOP);
    EXPECT_TRUE(soon([&] { return !hears(sign, 6000); }));
    kill(site.agent->pid(), SIGCONT);
    EXPECT_TRUE(hears(sign, 120000));
    EXPECT_EQ(0, site.agent->end(SIGTERM));
    site.environment += "WATCHDOG_USEC=soon "; // nobody watches
    site.startAgent("-m " + site.address + " -c agent.conf -s state");
    EXPECT_TRUE(hears("READY=1", 120000));
    EXPECT_FALSE(hears(sign, 500));
    close(notices);
}

TEST(Field, TheLogTellsWhoCouldWriteWhat) {
    Site site;
    site.confine = [] { // as on a kernel without Landlock
        const scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ALLOW);
        seccomp_rule_add(filter, SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(landlock_create_ruleset), 0);
        seccomp_load(filter);
    };
    site.startAlone("-i 60");
    EXPECT_EQ("1\n", site.run("grep -c 'without Landlock.*--net-user' agent.log"));
    EXPECT_EQ(geteuid() == 0 ? "1\n" : "0\n", site.run("grep -c 'runs as root: --user' agent.log"));
}

/// snmpd would drop an agent that doesn't answer, and with it the objects.
TEST(Field, AMasterIsAnsweredThoughTheDeviceSideIsFrozen) {
    Subagent site;
    site.run("echo agentXTimeout 20 >>master.conf");
    site.agent->end(SIGTERM);
    site.startMaster();
    site.startAgent("-x agentx -s state -d 5");
    site.awaitAgent();
    const int frozen = side(site, "dev");
    kill(frozen, SIGSTOP);
    EXPECT_EQ("(genError)", site.set("6.1.5.1", "i 77"));
    EXPECT_EQ("INTEGER: 32", site.get("6.1.5.1")); // from what it has read
    kill(frozen, SIGCONT);
    EXPECT_TRUE(soon([&] { return site.set("6.1.5.2", "i 33").empty(); }));
    EXPECT_EQ("32\n", site.sql("SELECT Vci FROM Atm WHERE Id=1"));
}

TEST(Field, AUserOwnsItsState) {
    Site site;
    if (!admitsNobody(site))
        GTEST_SKIP() << "needs root, and a client that everybody can run";
    site.confine = [] { signal(SIGCHLD, SIG_IGN); }; // as some who start it leave it
    for (const std::string net : {"nobody", "daemon"}) {
        site.agent.reset();
        site.startAlone("-i 60 -u nobody -U " + net);
        for (const std::string name : {"net", "dev"})
            kill(side(site, name), SIGKILL); // each is started again as its user
        site.awaitAgent();
        EXPECT_TRUE(soon([&] { return site.set("6.1.5.1", "i 77").empty(); })); // with its journal
        EXPECT_EQ("nobody\nnobody\n" + net + "\nnobody\n" + net + "\n",
                  site.run("cd state; stat -c %U . dev net /proc/" +
                           std::to_string(side(site, "dev")) + " /proc/" +
                           std::to_string(side(site, "net"))));
    }
    // Root follows no link of the device's user.
    site.run("mkdir others; mv state/dev state/moved; ln -s $PWD/others state/dev");
    kill(side(site, "net"), SIGKILL);
    site.awaitAgent();
    EXPECT_EQ("root\n", site.run("stat -c %U others; rm state/dev; mv state/moved state/dev"));
    EXPECT_EQ(0, site.agent->end(SIGTERM));
    // Who faces the network can't have rows changed by a journal, whatever the kernel has.
    EXPECT_EQ("written\n",
              site.run("setpriv --reuid=daemon --regid=daemon --clear-groups sh -c 'for file in "
                       "dev/change.journal change.journal net/change.journal; do echo forged "
                       ">state/$file && echo written; done' 2>/dev/null | cat"));
    // Where no state can be, nothing starts.
    EXPECT_EQ("status 1\n", site.run("timeout 600 " ON_DEVICE " device " CORVANTAD
                                     " -f -x agentx -s /proc/none >none.log 2>&1; echo status $?"));
    EXPECT_NE("", site.run("grep 'cannot make the state folder /proc/none' none.log"));
}

/// Adds what a name of the service manager stands for: a call, or those of a group and its groups.
void addCalls(const std::string& name, std::set<std::string>& calls) {
    if (name[0] != '@') {
        calls.insert(name);
        return;
    }
    std::istringstream names(
        output(".", "systemd-analyze syscall-filter " + name + " | sed '1d; s/#.*//'"));
    for (std::string each; names >> each;)
        addCalls(each, calls);
}

/// Puts the process under what the unit says, as far as a process can do that to itself.
void confineAs(const std::map<std::string, Packets>& unit) {
    std::set<std::string> calls;
    for (const std::string& line : unit.at("SystemCallFilter")) {
        const bool out = line[0] == '~';
        std::set<std::string> named;
        std::istringstream words(line.substr(out));
        for (std::string word; words >> word;)
            addCalls(word, named);
        if (out)
            for (const std::string& call : named)
                calls.erase(call);
        else
            calls.merge(named);
    }
    const scmp_filter_ctx filter = seccomp_init(SCMP_ACT_ERRNO(EPERM));
    const auto allow = [&](const char* call, auto... conditions) {
        seccomp_rule_add(filter, SCMP_ACT_ALLOW, seccomp_syscall_resolve_name(call),
                         sizeof...(conditions), conditions...);
    };
    for (const char* special : {"mmap", "mprotect", "pkey_mprotect", "socket"})
        calls.erase(special);
    for (const std::string& call : calls)
        if (seccomp_syscall_resolve_name(call.c_str()) >= 0)
            allow(call.c_str());
    // RestrictAddressFamilies and MemoryDenyWriteExecute
    for (const int family : {AF_UNIX, AF_INET, AF_INET6})
        allow("socket", SCMP_A0(SCMP_CMP_EQ, static_cast<scmp_datum_t>(family)));
    for (const int access : {0, PROT_WRITE, PROT_EXEC})
        allow("mmap", SCMP_A2(SCMP_CMP_MASKED_EQ, PROT_WRITE | PROT_EXEC,
                              static_cast<scmp_datum_t>(access)));
    allow("mprotect", SCMP_A2(SCMP_CMP_MASKED_EQ, PROT_EXEC, 0));
    umask(static_cast<mode_t>(std::stoi(unit.at("UMask").at(0), nullptr, 8)));
    for (int capability = 0; prctl(PR_CAPBSET_DROP, capability) == 0; ++capability) {
    }
    if (seccomp_load(filter) != 0) // rules out new privileges too
        _exit(126);
}

TEST(Field, WorksAsConfinedAsTheUnitSays) {
    Site site;
    EXPECT_EQ("0\n", site.run("systemd-analyze security --offline=true --threshold=20 " UNIT
                              " >scores; echo $?"))
        << site.run("tail -n 1 scores");
    std::map<std::string, Packets> unit;
    std::ifstream file(UNIT);
    for (std::string line; std::getline(file, line);)
        if (const auto equals = line.find('='); equals != line.npos && line[0] != '#')
            unit[line.substr(0, equals)].push_back(line.substr(equals + 1));
    ASSERT_EQ(Packets{""}, unit["CapabilityBoundingSet"]);
    site.confine = [&] { confineAs(unit); };
    site.startAlone("-i 60");
    for (const std::string name : {"net", "dev"})
        EXPECT_EQ("Threads:\t1\nCapBnd:\t0000000000000000\nNoNewPrivs:\t1\n",
                  site.run("grep -e Threads -e CapBnd: -e NoNewPrivs /proc/" +
                           std::to_string(side(site, name)) + "/status"));
    EXPECT_EQ("", site.set("3.1.0", "s wan2"));
    EXPECT_EQ("\"wan2\"", site.get("3.1.0").substr(8));
    EXPECT_NE("", site.get("2.1.0")) << "the DSL tool";
    EXPECT_EQ("", site.run("find state ! -perm -077 -a -perm /077"));
    EXPECT_EQ(
        "",
        site.run(
            "grep -e error: -e warning: agent.log | grep -v -e 'is shorter' -e 'runs as root'"));
    EXPECT_EQ(0, site.agent->end(SIGTERM));
}

TEST(Field, MutatedPacketsHurtNobody) {
    constexpr int kPackets = 3000;
    Site site;
    site.addOperator();
    site.startAlone("-i 60");
    const std::string whole = makeRequest(site);
    const std::string id = whole.substr(whole.find('\xa0') + 2, 6); // of the request, with its tag
    Packets seeds;
    for (const std::string& manager : {std::string("-v1 -c test"), std::string("-v2c -c test"),
                                       kUser + "Operator -l authPriv"}) {
        site.manager = manager;
        for (const auto& [command, arguments] :
             {std::pair("snmpget", "6.1.5.1"), std::pair("snmpgetnext", "3"),
              std::pair("snmpbulkget", "7"),
              std::pair("snmpset", "6.1.5.9 i 5")}) // a row that is not there
            for (const std::string& packet : packetsOf(site, command, Site::oid(arguments)))
                seeds.push_back(packet);
    }
    site.manager = "-v2c -c test";
    const int network = side(site, "net");
    std::mt19937 random(1);
    const auto below = [&](std::size_t n) { return static_cast<std::size_t>(random() % n); };
    const Port stranger;
    int lost = 0;
    for (int i = 0; i < kPackets; ++i) {
        std::string packet = seeds[below(seeds.size())];
        for (std::size_t left = 1 + below(4); left > 0; --left)
            if (const std::size_t at = below(packet.size()), way = below(3); way == 0)
                packet.resize(at + 1);
            else if (way == 1)
                packet.insert(at, 1 + below(40), static_cast<char>(random()));
            else
                packet[at] = static_cast<char>(random());
        stranger.send(site.port, packet);
        while (!stranger.receive(0).empty()) {
        }
        if (i % 50 != 49)
            continue;
        stranger.send(site.port, whole); // nothing of those before is left
        bool answered = false;
        for (std::string answer; !answered && !(answer = stranger.receive(60000)).empty();)
            answered = answer.find(id) != answer.npos;
        lost += !answered;
    }
    EXPECT_EQ(0, lost) << "times, a whole packet had no answer";
    EXPECT_EQ(network, side(site, "net"));
}

} // namespace
