#include "agent/net/Alarm.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <algorithm>
#include <utility>

namespace agent::net {

using std::chrono::seconds;

Alarm::Alarm(const System& system, std::function<void()> call)
    : m_system(system), m_call(std::move(call)) {}

void Alarm::setFor(Clock::time_point time) {
    const auto now = m_system.now();
    const auto left = std::max(std::chrono::ceil<seconds>(time - now), seconds(1));
    if (m_due > now && m_due <= now + left)
        return;
    m_due = now + left;
    const auto call = [](unsigned, void* self) { static_cast<Alarm*>(self)->m_call(); };
    snmp_alarm_register(static_cast<unsigned>(left.count()), 0, call, this);
}

} // namespace agent::net
