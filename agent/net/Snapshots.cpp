#include "agent/net/Snapshots.h"

#include <algorithm>
#include <utility>

namespace agent::net {

namespace {

using std::chrono::seconds;

// Requests that are further apart belong to two walks. A walk that takes longer than the limit gets
// a newer snapshot.
constexpr seconds kWalkPause{1};
constexpr seconds kWalkLimit{5};

} // namespace

Snapshots::Snapshots(const Options& options, System& system)
    : m_options(options), m_system(system) {
    Snapshot nothing;
    nothing.refreshed = m_system.now();
    nothing.instances = listInstances(nothing);
    m_newest = m_shown = std::make_shared<const Snapshot>(std::move(nothing));
}

void Snapshots::take(const Hello& hello) {
    if (hello.incarnation == m_incarnation)
        return;
    m_incarnation = hello.incarnation;
    m_before = m_newest->counters;
}

std::shared_ptr<const Snapshot> Snapshots::take(Snapshot snapshot) {
    snapshot.counters += m_before;
    if (!snapshot.complete && m_newest->complete) {
        snapshot.model = m_newest->model;
        snapshot.refreshed = m_newest->refreshed;
        snapshot.complete = true;
        snapshot.instances = listInstances(snapshot);
    }
    auto before = std::exchange(m_newest, std::make_shared<const Snapshot>(std::move(snapshot)));
    return std::exchange(m_received, true) ? before : nullptr;
}

void Snapshots::showForGet(bool step) {
    const auto now = m_system.now();
    if (now - m_lastStep > kWalkPause || now - m_walkBegan > kWalkLimit || stale()) {
        showNewest();
        m_walkBegan = now;
    }
    if (step)
        m_lastStep = now;
}

bool Snapshots::stale() const {
    return !m_shown->complete || m_system.now() - m_shown->refreshed > m_options.maxAge;
}

std::vector<Instance>::const_iterator findInstance(const Snapshot& snapshot, const Oid& name) {
    return std::lower_bound(
        snapshot.instances.begin(), snapshot.instances.end(), name,
        [](const Instance& instance, const Oid& wanted) { return instance.name < wanted; });
}

const Instance* instanceOf(const Snapshot& snapshot, const Oid& name) {
    const auto found = findInstance(snapshot, name);
    return found != snapshot.instances.end() && found->name == name ? &*found : nullptr;
}

} // namespace agent::net
