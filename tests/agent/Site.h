#pragma once

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <thread>

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

inline int msSince(Clock::time_point start) {
    return static_cast<int>((Clock::now() - start) / milliseconds(1));
}

inline void pause(int ms) {
    std::this_thread::sleep_for(milliseconds(ms));
}

/// Tries until it holds; gives up after a time in which even a busy machine gets there.
template <class Condition>
bool soon(Condition condition, int ms = 120000) {
    for (const auto start = Clock::now(); !condition(); pause(50)) {
        if (msSince(start) > ms)
            return false;
    }
    return true;
}

/// What a command in a folder prints, errors included.
inline std::string output(const fs::path& folder, const std::string& command) {
    std::string text;
    FILE* pipe = popen(("cd " + folder.string() + " && " + command + " 2>&1").c_str(), "r");
    char buffer[4096];
    for (std::size_t size; (size = fread(buffer, 1, sizeof buffer, pipe)) > 0;)
        text.append(buffer, size);
    pclose(pipe);
    return text;
}

/// A program that runs in a folder, in a process group of its own.
class Process {
public:
    Process(const fs::path& folder, const std::string& command,
            const std::function<void()>& prepare = {})
        : m_pid(fork()) {
        if (m_pid != 0)
            return;
        if (prepare)
            prepare();
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL); // a test that is interrupted leaves nothing
        fs::current_path(folder);
        execl("/bin/sh", "sh", "-c", ("exec env " + command).c_str(), nullptr);
        _exit(127);
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process() {
        if (m_pid > 0)
            end(SIGKILL);
    }

    pid_t pid() const { return m_pid; }

    bool running() const {
        siginfo_t ended{};
        return waitid(P_PID, static_cast<id_t>(m_pid), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               ended.si_pid == 0;
    }

    /// @return the exit status, or -1 when the signal ended it
    int end(int signal) {
        kill(signal == SIGKILL ? -m_pid : m_pid, signal);
        int status = 0;
        waitpid(m_pid, &status, 0);
        m_pid = 0;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

private:
    pid_t m_pid;
};

/// A socket on loopback, with a port that the kernel gives.
struct Port {
    int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    int number = 0;

    static sockaddr_in loopback(int port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        return address;
    }

    Port() {
        sockaddr_in address = loopback(0);
        socklen_t size = sizeof address;
        auto* generic = reinterpret_cast<sockaddr*>(&address);
        if (bind(descriptor, generic, size) == 0 && getsockname(descriptor, generic, &size) == 0)
            number = ntohs(address.sin_port);
    }
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;
    ~Port() { close(descriptor); }

    void send(int port, const std::string& packet) const {
        const sockaddr_in to = loopback(port);
        sendto(descriptor, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr*>(&to),
               sizeof to);
    }

    /// @return the next packet; empty when none comes in time
    std::string receive(int ms) const {
        pollfd waiting{descriptor, POLLIN, 0};
        if (poll(&waiting, 1, ms) != 1)
            return "";
        std::string packet(4096, '\0');
        const ssize_t length = recv(descriptor, packet.data(), packet.size(), 0);
        packet.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
        return packet;
    }
};

/// For what comes, however busy the machine is; in seconds.
inline const std::string kLong = "90";

/// A device in a folder, with an agent, and managers.
class Site {
public:
    explicit Site(const std::string& options = "") {
        std::string name = (fs::temp_directory_path() / "agent_test.XXXXXX").string();
        folder = mkdtemp(name.data());
        address = "127.0.0.1:" + std::to_string(Port().number);
        // A client between the agent and the real one: it can be told to hold each command that
        // changes something until the test releases it, to take its time, or not to answer, and
        // notes the sockets that it inherits, and its runs.
        fs::create_directory(folder / "bin");
        write("bin/quorlet",
              "#!/bin/sh\ncd " + folder.string() +
                  "\nfor f in /proc/$$/fd/*; do [ ! -S $f ] || echo $f >>sockets; done\n"
                  "[ ! -e silent ] || exit\n"
                  "while [ -e stall ]; do touch stalled; sleep 0.05; done\n"
                  "[ ! -e delay ] || sleep $(cat delay)\n"
                  "[ ! -e runs ] || echo \"$1\" >>runs\n"
                  "case $1 in *updatekey*) [ ! -e hold ] || { echo $$ >held; while [ -e held ]; do "
                  "sleep 0.05; done; } ;; esac\n"
                  "exec " QUORLET " \"$@\"\n");
        write("agent.conf", "rwcommunity test 127.0.0.1\n");
        run("chmod +x bin/quorlet && " ON_DEVICE " device true");
        if (!options.empty())
            startAlone(options);
    }
    ~Site() {
        agent.reset();
        std::error_code busy; // a client may just be ending
        soon([&] { return fs::remove_all(folder, busy), !busy; });
    }
    Site(const Site&) = delete;
    Site& operator=(const Site&) = delete;

    std::string run(const std::string& command) const { return output(folder, command); }

    bool has(const char* file) const { return fs::exists(folder / file); }

    void write(const char* file, const std::string& text) const {
        std::ofstream(folder / file) << text;
    }

    void startAgent(const std::string& options) {
        const std::string parts = fs::path(QUORLET).parent_path().string();
        agent = std::make_unique<Process>(
            folder,
            environment + ON_DEVICE " device env PATH=$PWD/bin:" + parts + ":$PATH " + tracer +
                CORVANTAD " -f " + options + " >>agent.log 2>&1",
            confine);
    }

    void startAlone(const std::string& options) {
        startAgent("-m " + address + " -c agent.conf -s state -d 60 " +
                   options); // a later -d counts
        awaitAgent();
    }

    void awaitAgent() {
        patience = "0.3";
        EXPECT_TRUE(soon([this] { return get("3.2.0") == "INTEGER: 2"; })) << run("cat agent.log");
        patience = kLong;
    }

    std::string tool(const std::string& command, const std::string& arguments) const {
        return run(environment + command + " " + manager + " -r 0 -t " + patience + " -On " +
                   address + " " + arguments);
    }

    /// The value, as "INTEGER: 1"; empty when there is an error.
    std::string get(const std::string& object) const {
        const std::string answer = tool("snmpget", oid(object));
        const std::size_t value = answer.find(" = ") + 3;
        return value < 3 ? "" : answer.substr(value, answer.size() - value - 1);
    }

    /// What is said of an error: "wrongType"; empty without one.
    static std::string errorIn(const std::string& answer) {
        const std::size_t reason = answer.find("Reason: ") + 8;
        if (reason >= 8)
            return answer.substr(reason, answer.find_first_of(" \n", reason) - reason);
        return answer.find(" = ") == answer.npos ? answer : "";
    }

    std::string set(const std::string& object, const std::string& typeAndValue) const {
        return errorIn(tool("snmpset", oid(object) + " " + typeAndValue));
    }

    /// Sets several objects, given as in "3.1.0 s wan2 3.2.0 i 1". @return as set() does, and "no
    /// answer" where the agent was killed
    std::string request(const std::string& text, const std::string& seconds = "90") const {
        std::istringstream words(text);
        std::string bindings;
        for (std::string object, type, value; words >> object >> type >> value;)
            bindings += " " + oid(object) + " " + type + " " + value;
        fs::remove(folder / "answer");
        Process asking(folder, environment + "snmpset " + manager + " -r 0 -t " + seconds +
                                   " -On " + address + bindings + " >answer 2>&1");
        while (asking.running() && agent->running())
            pause(5);
        soon([&] { return !asking.running(); }, 100);
        const std::string answer = run("cat answer");
        return answer.empty() ? "no answer" : errorIn(answer);
    }

    std::string sql(const std::string& statement) const {
        return run("sqlite3 -batch device/config.db '.timeout 5000' \"" + statement + "\"");
    }

    /// Holds the database from another process, until release("locked").
    std::unique_ptr<Process> lock() const {
        write("lock.sql", ".timeout 60000\nBEGIN EXCLUSIVE;\n.shell touch locked; while [ -e "
                          "locked ]; do sleep 0.05; done\nCOMMIT;\n");
        auto process = std::make_unique<Process>(folder, "sqlite3 device/config.db <lock.sql");
        EXPECT_TRUE(soon([this] { return has("locked"); }));
        return process;
    }

    /// How often the client has run since "runs" was written.
    int runs() const { return std::stoi(run("wc -l <runs")); }

    void release(const char* file) const { fs::remove(folder / file); }

    /// Waits for a client that is held. @return its process
    int held() const {
        EXPECT_TRUE(soon([this] { return has("held") && fs::file_size(folder / "held") > 0; }));
        return std::atoi(run("cat held").c_str());
    }

    /// As the kernel would.
    void setCircuit(bool open) const {
        run((open ? "cp " : "grep -v ' 8 ' ") + std::string(PVC) + (open ? " " : " >") +
            "pvc.new; mv pvc.new device/pvc");
    }

    /// How many lines the agent itself has logged, but for one for each set.
    int logged() const {
        return std::stoi(run("grep :corvantad: agent.log | grep -vc ' set by '"));
    }

    static std::string oid(const std::string& object) { return ROOT_OID ".1." + object; }

    fs::path folder;
    std::string address;
    std::string environment = "MIBS= ";
    std::string manager = "-v2c -c test";
    std::string tracer;            ///< what the agent is run by
    std::string patience = kLong;  ///< in seconds
    std::function<void()> confine; ///< what an agent does before it starts
    std::unique_ptr<Process> agent;
};

inline const std::string kUser =
    "-v3 -a SHA -A 'auth passphrase' -x AES -X 'priv passphrase' -u corvanta";

/// The agent as a subagent of snmpd, with users for the access rules that are shipped.
class Subagent : public Site {
public:
    Subagent() {
        manager = kUser + "Operator -l authPriv";
        environment += "SNMPCONFPATH=. ";
        std::string configuration =
            "agentaddress udp:" + address + "\nagentXSocket " + folder.string() +
            "/agentx\nincludeFile " SNMPD_CONF "\nagentXTimeout 100\n"; // for busy machines
        for (const char* user : {"Reader", "Operator", "Stranger"})
            configuration += std::string("createUser corvanta") + user +
                             " SHA \"auth passphrase\" AES \"priv passphrase\"\n";
        write("master.conf", configuration);
        startMaster();
        startAgent("-x agentx -s state -d 60"); // the master waits longer
        awaitAgent();
    }

    void startMaster() {
        master = std::make_unique<Process>(
            folder, environment + "SNMP_PERSISTENT_DIR=snmpd " SNMPD
                                  " -f -Lo -C -I -smux -c master.conf >>master.log 2>&1");
    }

    std::unique_ptr<Process> master;
};

constexpr int kUp = 1;
constexpr int kDown = 2;

/// Where notifications arrive.
struct Sink : Port {
    explicit Sink(const Site& site) {
        site.write("agent.conf",
                   "rwcommunity test\ntrap2sink 127.0.0.1:" + std::to_string(number) + " test\n");
    }

    /// Waits for those of a kind, 0 for coldStart, with a text in them. @param any  whether there
    /// has to be one. @return how many there were until none came for longer than the agent waits
    int count(int kind, const std::string& text = "", bool any = true) const {
        const std::string name = kind == 0
                                     ? std::string("\x2b\x06\x01\x06\x03\x01\x01\x05\x01", 9)
                                     : std::string("\x01\x00", 2) + static_cast<char>(kind) + '0';
        int found = 0;
        const auto start = Clock::now();
        for (std::string packet;
             !(packet = receive(1500)).empty() || (any && found == 0 && msSince(start) < 120000);) {
            found += packet.find(name) != packet.npos && packet.find(text) != packet.npos;
            if (!packet.empty())
                last = packet;
        }
        return found;
    }

    mutable std::string last;
};
