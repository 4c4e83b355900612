#pragma once

#include "tests/agent/site/Device.h"
#include "tests/agent/site/Managers.h"

#include <functional>
#include <memory>
#include <string>

/// A device with an agent, and managers.
class Site : public Device, public Managers {
public:
    /// @param options  of an agent that is started at once, by itself; none is when they are empty
    explicit Site(const std::string& options = "");
    ~Site(); // sees that the sandbox has everything that its agents needed

    void startAgent(const std::string& options);

    void startAlone(const std::string& options);

    void awaitAgent();

    /// Sets several objects, given as in "3.1.0 s wan2 3.2.0 i 1". @return as set() does, and "no
    /// answer" where the agent was killed
    std::string request(const std::string& text, const std::string& seconds = kLong) const;

    /// Lets the operator of the shipped access rules ask the agent, and the community.
    void addOperator();

    /// Waits for a line in the agent's log. @param pattern  as grep takes it
    void awaitLog(const std::string& pattern) const;

    /// How many lines the agent itself has logged, but for one for each set, and one for root.
    int logged() const;

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
