#pragma once

#include "agent/system/System.h"

#include <functional>

namespace agent::net {

/// Calls a function at a given time. The toolkit's clock, which it uses, counts whole seconds.
class Alarm {
public:
    Alarm(const System& system, std::function<void()> call);
    Alarm(const Alarm&) = delete;
    Alarm& operator=(const Alarm&) = delete;

    /// Schedules a call at that time or up to a second later. Calls before it are possible.
    void setFor(Clock::time_point time);

private:
    const System& m_system;
    const std::function<void()> m_call;
    Clock::time_point m_due; ///< the next call
};

} // namespace agent::net
