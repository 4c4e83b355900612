#pragma once

#include "agent/system/System.h"

#include <chrono>
#include <functional>

namespace agent::net {

/// Has the toolkit call a function after a time, again and again if wanted.
void callAfter(std::chrono::microseconds time, bool repeat, void (*call)(unsigned, void*),
               void* with);

/// Calls a function at a time.
class Alarm {
public:
    Alarm(const System& system, std::function<void()> call);
    Alarm(const Alarm&) = delete;
    Alarm& operator=(const Alarm&) = delete;

    /// Sees to a call at that time. Earlier calls are possible.
    void setFor(Clock::time_point time);

private:
    const System& m_system;
    const std::function<void()> m_call;
    Clock::time_point m_due; ///< the next call
};

} // namespace agent::net
