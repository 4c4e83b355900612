#include "agent/net/RequestHandler.h"

#include "agent/net/Toolkit.h"
#include "agent/net/Traps.h"
#include "agent/net/Variables.h"

#include <chrono>
#include <exception>
#include <string>
#include <utility>
#include <variant>

namespace agent::net {

namespace {

constexpr std::chrono::seconds kHeldBack{1}; ///< until a notification is tried again

} // namespace

RequestHandler::RequestHandler(const Options& options, System& system)
    : m_options(options),
      m_system(system),
      m_link(system),
      m_snapshots(options, system),
      m_sets(options, system, m_link, m_snapshots),
      m_held(system),
      m_notifications(options, system),
      m_alarm(system, [this] { receive(); }) {
    m_notifications.setReachable(!isSubagent());
    while (m_link.receive()) { // what was meant for the process before
    }
    m_link.send(Hello{});
}

bool RequestHandler::registerObjects() {
    const Oid root = below({});
    netsnmp_handler_registration* registration = netsnmp_create_handler_registration(
        "corvanta", handle, root.data(), root.size(), HANDLER_CAN_RWRITE);
    if (registration == nullptr)
        return false;
    registration->handler->myvoid = this;
    return netsnmp_register_handler(registration) == MIB_REGISTERED_OK;
}

void RequestHandler::setReachable(bool reachable) {
    m_notifications.setReachable(reachable);
    if (reachable)
        m_alarm.setFor(m_system.now() + kHeldBack);
}

// -------------------------------------------------------------------------- from the toolkit

int RequestHandler::handle(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                           netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    auto& self = *static_cast<RequestHandler*>(handler->myvoid);
    try {
        self.dispatch(*handler, *registration, *info, requests);
    } catch (const BrokenInvariant& broken) {
        endProcess(broken);
    } catch (const std::exception& error) {
        self.m_failures.log(self.m_system.now(), LOG_ERR,
                            std::string("a request failed: ") + error.what());
        netsnmp_request_set_error(requests, SNMP_ERR_GENERR);
    }
    return SNMP_ERR_NOERROR;
}

void RequestHandler::dispatch(netsnmp_mib_handler& handler,
                              netsnmp_handler_registration& registration,
                              netsnmp_agent_request_info& info, netsnmp_request_info* requests) {
    switch (info.mode) {
    case MODE_GET:
    case MODE_GETNEXT:
        get(info.mode, requests);
        break;
    case MODE_SET_RESERVE1:
        m_sets.begin(toManagerRequest(info, requests, m_held.arrivalOf(info.asp), isSubagent()));
        setAnswer(requests, m_sets.answer());
        break;
    case MODE_SET_ACTION:
        m_sets.commit();
        if (m_sets.waits() && !isSubagent()) {
            m_held.delegate(handler, registration, info, requests);
            m_alarm.setFor(m_sets.giveUp());
            break;
        }
        await(); // a master asks nothing else meanwhile
        setAnswer(requests, m_sets.answer());
        break;
    case MODE_SET_UNDO:
        m_sets.takeBack();
        await();
        if (m_sets.answer().error == ErrorStatus::undoFailed)
            setAnswer(requests, m_sets.answer());
        [[fallthrough]];
    case MODE_SET_FREE:
    case MODE_SET_COMMIT:
        m_sets.release(info.mode != MODE_SET_COMMIT);
        break;
    default:
        break;
    }
}

void RequestHandler::get(int mode, netsnmp_request_info* requests) {
    m_snapshots.showForGet(mode == MODE_GETNEXT);
    for (auto* request = requests; request != nullptr; request = request->next) {
        if (const int error = answer(mode, *request); error != SNMP_ERR_NOERROR)
            netsnmp_request_set_error(request, error);
    }
}

int RequestHandler::answer(int mode, const netsnmp_request_info& request) const {
    netsnmp_variable_list& binding = *request.requestvb;
    const Oid name = nameOf(binding);
    const std::vector<Instance>& instances = m_snapshots.shown().instances;
    auto found = findInstance(m_snapshots.shown(), name);
    bool here = found != instances.end();
    const bool exact = here && found->name == name;
    if (mode == MODE_GET)
        here = exact;
    else if (exact && request.inclusive == 0)
        here = ++found != instances.end();
    const Object* object = here ? found->object : findObject(name);
    if (m_snapshots.stale() &&
        (object == nullptr ? mode == MODE_GETNEXT : object->source() != Source::agent))
        return SNMP_ERR_GENERR;
    if (!here && mode == MODE_GETNEXT)
        return SNMP_ERR_NOERROR; // the toolkit looks on behind this tree
    if (!here)
        return object == nullptr ? SNMP_NOSUCHOBJECT : SNMP_NOSUCHINSTANCE;
    Value value;
    if (!object->read(m_snapshots.view(m_sets.refused()), found->row, value))
        return SNMP_ERR_GENERR;
    if (mode == MODE_GETNEXT)
        snmp_set_var_objid(&binding, found->name.data(), found->name.size());
    store(*object, value, binding);
    return SNMP_ERR_NOERROR;
}

/// Waits for the device's process, and does nothing else.
void RequestHandler::await() {
    while (m_sets.waits()) {
        m_system.wait({true, false, false, false}, m_sets.giveUp());
        receive();
    }
}

void RequestHandler::releaseRequests() {
    if (m_held.release())
        m_sets.hangUp();
    m_sets.forgetAnswers(m_held.oldest());
}

// ------------------------------------------------------------------ from the device's process

void RequestHandler::receive() {
    try {
        while (const auto message = m_link.receive()) {
            take(*message);
            notify(); // of each snapshot: the next can say the same again
        }
        m_sets.checkTime();
        if (m_sets.waits())
            m_alarm.setFor(m_sets.giveUp());
        else
            m_held.resume([this](auto* requests) { setAnswer(requests, m_sets.answer()); });
        notify();
    } catch (const BrokenInvariant& broken) {
        endProcess(broken);
    }
}

void RequestHandler::take(const Message& message) {
    if (const auto* snapshot = std::get_if<Snapshot>(&message)) {
        const auto before = m_snapshots.take(*snapshot);
        m_sets.take(*snapshot, before.get());
    } else if (const auto* result = std::get_if<SetResult>(&message)) {
        m_sets.take(*result);
    } else if (const auto* hello = std::get_if<Hello>(&message)) {
        m_snapshots.take(*hello);
        m_sets.take(*hello);
    }
}

void RequestHandler::notify() {
    if (!m_snapshots.received())
        return;
    const Snapshot& now = m_snapshots.newest();
    for (const Notification& notification : m_notifications.news(now))
        send(notification, now);
    if (m_notifications.holdsBack())
        m_alarm.setFor(m_system.now() + kHeldBack);
}

} // namespace agent::net
