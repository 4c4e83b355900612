#pragma once

#include "agent/Options.h"
#include "agent/net/Identity.h"
#include "agent/net/ToolkitState.h"
#include "agent/system/Invariant.h"
#include "agent/system/System.h"

namespace agent::net {

constexpr const char* kName = "corvantad"; ///< of the configuration

/// The SNMP toolkit's start, rounds and end.
class Toolkit {
public:
    /// Sets it up as a subagent or a master; objects are registered next.
    Toolkit(const Options& options, System& system);

    /// Reads the configuration and connects to the master, or opens the master's port, once what
    /// must outlive a restart is stored.
    /// @return whether that could be done; a subagent goes on trying to connect
    bool open();

    /// Whether the master has refused the objects: somebody else serves them.
    static bool isRefused();

    /// Stores what managers have changed of the toolkit's own objects, such as sysName.
    void storeChanges();

    static void close();

private:
    void prepareSubagent();
    static void prepareMaster();
    bool beginIdentity();

    const Options& m_options;
    System& m_system;
    Identity m_identity;
    ToolkitState m_state;
    Clock::time_point m_storeAgain; ///< after a failure
};

/// Ends the process on a broken invariant: an exception must not pass through the toolkit, which
/// is C. The parent starts it again.
[[noreturn]] void endProcess(const BrokenInvariant& broken);

} // namespace agent::net
