#include "agent/net/Alarm.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <algorithm>
#include <utility>

namespace agent::net {

using std::chrono::microseconds;
using std::chrono::seconds;

namespace {

constexpr std::chrono::milliseconds kShortest{1};

} // namespace

void callAfter(microseconds time, bool repeat, void (*call)(unsigned, void*), void* with) {
    const auto whole = std::chrono::floor<seconds>(time);
    timeval after{};
    after.tv_sec = static_cast<time_t>(whole.count());
    after.tv_usec = static_cast<suseconds_t>((time - whole).count());
    snmp_alarm_register_hr(after, repeat ? SA_REPEAT : 0, call, with);
}

Alarm::Alarm(const System& system, std::function<void()> call)
    : m_system(system), m_call(std::move(call)) {}

void Alarm::setFor(Clock::time_point time) {
    const auto now = m_system.now();
    const auto left = std::max<Clock::duration>(time - now, kShortest);
    if (m_due > now && m_due <= now + left)
        return;
    m_due = now + left;
    const auto call = [](unsigned, void* self) {
        static_cast<Alarm*>(self)->m_due = {};
        static_cast<Alarm*>(self)->m_call();
    };
    callAfter(std::chrono::ceil<microseconds>(left), false, call, this);
}

} // namespace agent::net
