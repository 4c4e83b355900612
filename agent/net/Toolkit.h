#pragma once

#include "agent/Options.h"
#include "agent/net/Identity.h"
#include "agent/system/Invariant.h"

namespace agent::net {

constexpr const char* kName = "corvantad"; ///< of the configuration and the state file

/// The SNMP toolkit's start, rounds and end.
class Toolkit {
public:
    /// Sets it up as a subagent or a master; objects are registered next.
    explicit Toolkit(const Options& options);

    /// Reads the configuration and connects to the master, or opens the master's port, once what
    /// must outlive a restart is stored.
    /// @return whether that could be done; a subagent goes on trying to connect
    bool open();

    /// Whether the master has refused the objects: somebody else serves them.
    static bool isRefused();

    /// Stores what managers have changed of the toolkit's own objects, such as sysName.
    void storeChanges() { m_identity.storeChanges(); }

    static void close();

private:
    void prepareSubagent();
    static void prepareMaster();

    const Options& m_options;
    Identity m_identity;
};

/// Ends the process where something does not hold that always has to, which the toolkit, being C,
/// can't be left by an exception for. The parent starts it again.
[[noreturn]] void endProcess(const BrokenInvariant& broken);

} // namespace agent::net
