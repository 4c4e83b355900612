#pragma once

#include "agent/Options.h"
#include "agent/link/Messages.h"
#include "agent/system/System.h"

#include <cstdint>
#include <memory>

namespace agent::net {

/// The newest snapshot of the device, and the one that requests are answered from: the same but
/// during a walk, which should not see the device change between two of its steps.
class Snapshots {
public:
    Snapshots(const Options& options, System& system);

    const Snapshot& newest() const { return *m_newest; }
    const Snapshot& shown() const { return *m_shown; }

    bool received() const { return m_received; } ///< any

    /// The next snapshots may come from a new process, whose counters begin at 0.
    void take(const Hello& hello);

    /// Takes a snapshot in. Before its process has read everything, it gets the values that the
    /// process before had read. @return the snapshot before it; null for the first
    std::shared_ptr<const Snapshot> take(Snapshot snapshot);

    void showNewest() { m_shown = m_newest; }

    /// Shows the newest, unless a walk goes on. @param step  whether this request is part of one
    void showForGet(bool step);

    /// Whether the one that is shown is older than managers may be told.
    bool stale() const;

    /// What an object's value is read from.
    View view(std::uint32_t setsRefused) const { return {*m_shown, m_system.now(), setsRefused}; }

private:
    const Options& m_options;
    System& m_system;
    std::shared_ptr<const Snapshot> m_newest;
    std::shared_ptr<const Snapshot> m_shown;
    bool m_received = false;
    std::uint64_t m_incarnation = 0; ///< of the process that sends them
    Counters m_before;               ///< of those before it
    Clock::time_point m_walkBegan;
    Clock::time_point m_lastStep; ///< of a walk
};

/// The first instance whose name is this one or comes after it.
std::vector<Instance>::const_iterator findInstance(const Snapshot& snapshot, const Oid& name);

/// The instance with a name; null when there is none.
const Instance* instanceOf(const Snapshot& snapshot, const Oid& name);

} // namespace agent::net
