#pragma once

#include "tests/agent/site/Device.h"

#include <functional>
#include <memory>
#include <string>

/// For what comes, however busy the machine is; in seconds.
inline const std::string kLong = "900";

/// What names a user of an agent with the shipped access rules, up to the end of the user's name.
inline const std::string kUser =
    "-v3 -a SHA -A 'auth passphrase' -x AES -X 'priv passphrase' -u corvanta";

/// A device with an agent, and managers that ask it: the stock SNMP tools, run in the folder.
/// Objects are named from where those of the MIB begin, as "3.1.0".
class Site : public Device {
public:
    /// @param options  of an agent that is started at once, by itself; none is when they are empty
    explicit Site(const std::string& options = "");
    ~Site(); // sees that the sandbox has everything that its agents needed

    void startAgent(const std::string& options);

    void startAlone(const std::string& options);

    void awaitAgent();

    std::string tool(const std::string& command, const std::string& arguments) const;

    /// The value, as "INTEGER: 1"; empty when there is an error.
    std::string get(const std::string& object) const;

    /// @return what is said of an error: "wrongType"; empty without one
    std::string set(const std::string& object, const std::string& typeAndValue) const;

    /// The error in what a tool prints, as set() returns it.
    static std::string errorIn(const std::string& answer);

    static std::string oid(const std::string& object) { return ROOT_OID ".1." + object; }

    /// Sets several objects, given as in "3.1.0 s wan2 3.2.0 i 1". @return as set() does, and "no
    /// answer" where the agent was killed
    std::string request(const std::string& text, const std::string& seconds = kLong) const;

    /// Lets the operator of the shipped access rules ask the agent, and the community.
    void addOperator();

    /// Waits for a line in the agent's log. @param pattern  as grep takes it
    void awaitLog(const std::string& pattern) const;

    /// How many lines the agent itself has logged, but for one for each set, and one for root.
    int logged() const;

    const int port; ///< of managers' requests
    std::string address = "127.0.0.1:" + std::to_string(port);
    std::string environment = "MIBS= ";
    std::string manager = "-v2c -c test";
    std::string patience = kLong;  ///< of managers, in seconds
    std::string tracer;            ///< what the agent is run by
    std::function<void()> confine; ///< what an agent does before it starts
    std::unique_ptr<Process> agent;
};

/// The agent as a subagent of snmpd, with users for the access rules that are shipped.
class Subagent : public Site {
public:
    Subagent();

    void startMaster(); ///< instead of the one that runs

    std::unique_ptr<Process> master;
};
