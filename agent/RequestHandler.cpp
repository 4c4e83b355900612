#include "RequestHandler.h"

#include "Log.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <string>
#include <utility>

namespace agent {

namespace {

using std::chrono::seconds;

// A walk takes many requests. While one goes on, and that isn't for too long, it gets to see one
// snapshot.
constexpr seconds kWalkPause{1};
constexpr seconds kWalkLimit{5};

/// What a manager is told for a corvanta_status.
int errorOf(int status) {
    constexpr int errors[] = {
        SNMP_ERR_NOERROR,             // CORVANTA_OK
        SNMP_ERR_COMMITFAILED,        // CORVANTA_FAILED
        SNMP_ERR_RESOURCEUNAVAILABLE, // CORVANTA_LOCKED
        SNMP_ERR_INCONSISTENTNAME,    // CORVANTA_UNKNOWN_ROW: gone since the last refresh
        SNMP_ERR_GENERR,              // CORVANTA_NO_COMMAND
        SNMP_ERR_INCONSISTENTNAME,    // CORVANTA_BAD_INDEX
        SNMP_ERR_WRONGVALUE,          // CORVANTA_UNFIT
    };
    const auto index = static_cast<std::size_t>(status);
    return index < std::size(errors) ? errors[index] : SNMP_ERR_GENERR;
}

using Position = std::vector<Instance>::const_iterator;

int compare(const Instance& instance, const netsnmp_variable_list& binding) {
    return snmp_oid_compare(instance.name.data(), instance.name.size(), binding.name,
                            binding.name_length);
}

/// The first instance with a variable's name or one behind it.
Position find(const std::vector<Instance>& instances, const netsnmp_variable_list& binding) {
    return std::lower_bound(instances.begin(), instances.end(), binding,
                            [](const Instance& instance, const netsnmp_variable_list& wanted) {
                                return compare(instance, wanted) < 0;
                            });
}

/// cvCircuitUp or cvCircuitDown, which have the numbers of the states, with the objects of a row.
void sendNotification(const Snapshot& snapshot, int row, int state) {
    static const oid trapOid[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
    const oid kind[] = {1, 3, 6, 1, 4, 1, CORVANTA_ENTERPRISE, 1, 0, static_cast<oid>(state)};
    netsnmp_variable_list* bindings = nullptr;
    snmp_varlist_add_variable(&bindings, trapOid, std::size(trapOid), ASN_OBJECT_ID, kind,
                              sizeof kind);
    for (const Instance& instance : snapshot.instances) {
        Value value;
        if (instance.object->rows != Rows::layer2 || instance.row != row ||
            !instance.object->read({snapshot, 0}, row, value))
            continue;
        if (auto* binding = snmp_varlist_add_variable(&bindings, instance.name.data(),
                                                      instance.name.size(), ASN_NULL, nullptr, 0))
            store(*instance.object, value, *binding);
    }
    send_v2trap(bindings);
    snmp_free_varbind(bindings);
}

} // namespace

bool RequestHandler::registerObjects() {
    const std::vector<oid> root = below({});
    netsnmp_handler_registration* registration = netsnmp_create_handler_registration(
        "corvanta", handle, root.data(), root.size(), HANDLER_CAN_RWRITE);
    if (registration == nullptr)
        return false;
    registration->handler->myvoid = this;
    return netsnmp_register_handler(registration) == MIB_REGISTERED_OK;
}

int RequestHandler::handle(netsnmp_mib_handler* handler, netsnmp_handler_registration*,
                 netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    try {
        static_cast<RequestHandler*>(handler->myvoid)->dispatch(info->mode, requests);
    } catch (const std::exception& error) {
        log(LOG_ERR, std::string("a request failed: ") + error.what());
        netsnmp_request_set_error(requests, SNMP_ERR_GENERR);
    }
    return SNMP_ERR_NOERROR;
}

void RequestHandler::dispatch(int mode, netsnmp_request_info* requests) {
    switch (mode) {
    case MODE_GET:
    case MODE_GETNEXT:
        renewSnapshot(mode);
        for (auto* request = requests; request != nullptr; request = request->next) {
            if (const int error = answer(mode, *request); error != SNMP_ERR_NOERROR)
                netsnmp_request_set_error(request, error);
        }
        break;
    case MODE_SET_RESERVE1:
        m_snapshot = m_worker.snapshot();
        m_set = std::make_shared<Transaction>();
        for (auto* request = requests; request != nullptr; request = request->next) {
            if (const int error = reserve(*request->requestvb); error != SNMP_ERR_NOERROR) {
                netsnmp_request_set_error(request, error);
                break;
            }
        }
        break;
    case MODE_SET_ACTION:
        make(requests);
        break;
    case MODE_SET_UNDO:
        if (m_set) // which was made, but something else in the request failed
            m_worker.undo(m_set, Clock::now() + m_settings.setDeadline);
        m_snapshot = m_worker.snapshot();
        [[fallthrough]];
    case MODE_SET_FREE:
        ++m_setsRefused;
        [[fallthrough]];
    case MODE_SET_COMMIT:
        m_set.reset();
        break;
    default:
        break;
    }
}

void RequestHandler::renewSnapshot(int mode) {
    const auto now = Clock::now();
    if (now - m_lastStep > kWalkPause || now - m_walkBegan > kWalkLimit || stale()) {
        m_snapshot = m_worker.snapshot();
        m_walkBegan = now;
    }
    if (mode == MODE_GETNEXT)
        m_lastStep = now;
}

bool RequestHandler::stale() const {
    return !m_snapshot->complete || Clock::now() - m_snapshot->refreshed > m_settings.maxAge;
}

int RequestHandler::answer(int mode, const netsnmp_request_info& request) const {
    netsnmp_variable_list& binding = *request.requestvb;
    const std::vector<Instance>& instances = m_snapshot->instances;
    auto found = find(instances, binding);
    bool here = found != instances.end();
    const bool exact = here && compare(*found, binding) == 0;
    if (mode == MODE_GET)
        here = exact;
    else if (exact && !request.inclusive)
        here = ++found != instances.end();
    const Object* object = here ? found->object : findObject(binding);
    if (stale() && (object == nullptr ? mode == MODE_GETNEXT : object->rows != Rows::health))
        return SNMP_ERR_GENERR;
    if (!here && mode == MODE_GETNEXT)
        return SNMP_ERR_NOERROR; // the toolkit looks on behind this tree
    if (!here)
        return object == nullptr ? SNMP_NOSUCHOBJECT : SNMP_NOSUCHINSTANCE;
    Value value;
    if (!object->read({*m_snapshot, m_setsRefused}, found->row, value))
        return SNMP_ERR_GENERR;
    if (mode == MODE_GETNEXT)
        snmp_set_var_objid(&binding, found->name.data(), found->name.size());
    store(*object, value, binding);
    return SNMP_ERR_NOERROR;
}

int RequestHandler::reserve(const netsnmp_variable_list& binding) {
    const Object* object = findObject(binding);
    if (object == nullptr || object->access == nullptr)
        return SNMP_ERR_NOTWRITABLE;
    Change change{object, 0, {}};
    if (const int error = check(*object, binding, change.value); error != SNMP_ERR_NOERROR)
        return error;
    if (stale())
        return SNMP_ERR_GENERR;
    const auto found = find(m_snapshot->instances, binding);
    if (found == m_snapshot->instances.end() || compare(*found, binding) != 0)
        return SNMP_ERR_NOCREATION;
    change.row = found->row;
    m_set->changes.push_back(std::move(change));
    return SNMP_ERR_NOERROR;
}

void RequestHandler::make(netsnmp_request_info* requests) {
    if (!m_set)
        return;
    const auto deadline = Clock::now() + m_settings.setDeadline;
    const bool inTime = m_worker.make(m_set, deadline);
    int error = inTime ? errorOf(m_set->status) : SNMP_ERR_GENERR;
    if (!inTime)
        log(LOG_WARNING, "a set missed its deadline and will be undone");
    // Not left to the undo step, which comes from the master: it may be gone, or this agent stop.
    if (error != SNMP_ERR_NOERROR && m_worker.undo(m_set, deadline) && inTime && !m_set->undone)
        error = SNMP_ERR_UNDOFAILED;
    m_snapshot = m_worker.snapshot();
    if (error == SNMP_ERR_NOERROR)
        return;
    auto* request = requests;
    for (std::size_t i = m_set->position; i > 0 && request->next != nullptr; --i)
        request = request->next;
    netsnmp_request_set_error(request, error);
    m_set.reset();
}

void RequestHandler::notifyChanges() {
    const auto newest = m_worker.snapshot();
    const auto previous = std::exchange(m_notified, newest);
    if (!m_settings.notifications || !previous->complete)
        return;
    int row = 0;
    for (const Layer2If& now : newest->model.layer2) {
        ++row;
        if (now.name.compare(0, 2, "VC") != 0) // what runs over a circuit goes with it
            continue;
        const auto& old = previous->model.layer2; // rows can have moved: known by name
        const auto before = std::find_if(old.begin(), old.end(), [&now](const Layer2If& other) {
            return other.name == now.name;
        });
        if (before != old.end() && before->state != now.state)
            sendNotification(*newest, row, now.state);
    }
}

} // namespace agent
