#include "tests/agent/site/Site.h"

#include "tests/agent/site/Port.h"

#include <gtest/gtest.h>

#include <csignal>
#include <sstream>

Site::Site(const std::string& options) : port(Port().number) {
    write("agent.conf", "rwcommunity test 127.0.0.1\n");
    if (!options.empty())
        startAlone(options);
}

Site::~Site() {
    EXPECT_EQ("", run("grep -hs 'sandbox has refused' agent.log"));
}

namespace {

/// Neither a set nor a value is ever too old on a busy machine; what comes later on a line counts.
const char* const kPatient = " -s state -d 900 --max-age 3600 ";

} // namespace

void Site::startAgent(const std::string& options) {
    const std::string parts = fs::path(QUORLET).parent_path().string();
    agent = std::make_unique<Process>(folder,
                                      environment + ON_DEVICE " device env PATH=$PWD/bin:" + parts +
                                          ":$PATH " + tracer + CORVANTAD " -f " + options +
                                          " >>agent.log 2>&1",
                                      confine);
}

void Site::startAlone(const std::string& options) {
    startAgent("-m " + address + " -c agent.conf" + kPatient + options);
    awaitAgent();
}

void Site::awaitAgent() {
    int tries = 0; // the first ones can come before it listens
    EXPECT_TRUE(soon([&] {
        patience = ++tries < 20 ? "0.3" : "10";
        return get("3.2.0") == "INTEGER: 2";
    })) << run("cat agent.log");
    patience = kLong;
}

std::string Site::tool(const std::string& command, const std::string& arguments) const {
    return output(folder, environment + command + " " + manager + " -r 0 -t " + patience + " -On " +
                              address + " " + arguments);
}

std::string Site::get(const std::string& object) const {
    const std::string answer = tool("snmpget", oid(object));
    const std::size_t value = answer.find(" = ") + 3;
    return value < 3 ? "" : answer.substr(value, answer.size() - value - 1);
}

std::string Site::set(const std::string& object, const std::string& typeAndValue) const {
    return errorIn(tool("snmpset", oid(object) + " " + typeAndValue));
}

std::string Site::errorIn(const std::string& answer) {
    const std::size_t reason = answer.find("Reason: ") + 8;
    if (reason >= 8)
        return answer.substr(reason, answer.find_first_of(" \n", reason) - reason);
    return answer.find(" = ") == answer.npos ? answer : "";
}

std::string Site::request(const std::string& text, const std::string& seconds) const {
    std::istringstream words(text);
    std::string bindings;
    for (std::string object, type, value; words >> object >> type >> value;)
        bindings += " " + oid(object) + " " + type + " " + value;
    release("answer");
    Process asking(folder, environment + "snmpset " + manager + " -r 0 -t " + seconds + " -On " +
                               address + bindings + " >answer 2>&1");
    while (asking.running() && agent->running())
        pause(5);
    soon([&] { return !asking.running(); }, 100);
    const std::string answer = run("cat answer");
    return answer.empty() ? "no answer" : errorIn(answer);
}

void Site::addOperator() {
    write("agent.conf", "rwcommunity test\ncreateUser corvantaOperator SHA 'auth passphrase' AES "
                        "'priv passphrase'\nrwuser corvantaOperator\n");
    environment += "SNMPCONFPATH=. ";
}

void Site::awaitLog(const std::string& pattern) const {
    const std::string command = "grep \"" + pattern + "\" agent.log";
    EXPECT_TRUE(soon([&] { return !run(command).empty(); })) << pattern << run("cat agent.log");
}

int Site::logged() const {
    return std::stoi(run("grep :corvantad: agent.log | grep -vc -e ' set by ' -e 'runs as root'"));
}

Subagent::Subagent() {
    manager = kUser + "Operator -l authPriv";
    environment += "SNMPCONFPATH=. ";
    std::string configuration =
        "agentaddress udp:" + address + "\nagentXSocket " + folder.string() +
        "/agentx\nincludeFile " SNMPD_CONF "\nagentXTimeout 1000\n"; // for busy machines
    for (const char* user : {"Reader", "Operator", "Stranger"})
        configuration += std::string("createUser corvanta") + user +
                         " SHA \"auth passphrase\" AES \"priv passphrase\"\n";
    write("master.conf", configuration);
    startMaster();
    startAgent(std::string("-x agentx") + kPatient); // the master waits longer
    awaitAgent();
}

void Subagent::startMaster() {
    if (master && master->pid() > 0)
        master->end(SIGTERM);
    master = std::make_unique<Process>(
        folder, environment + "SNMP_PERSISTENT_DIR=snmpd " SNMPD
                              " -f -Lo -C -I -smux -c master.conf >>master.log 2>&1");
}
