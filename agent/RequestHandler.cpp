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

constexpr seconds kRepeated{60}; ///< for how long a request that comes again is known

/// What a manager is told of a set that has ended.
int errorOf(const Transaction& set) {
    constexpr int kStatusErrors[] = {
        SNMP_ERR_COMMITFAILED,        // CORVANTA_OK, where the outcome is not
        SNMP_ERR_COMMITFAILED,        // CORVANTA_FAILED
        SNMP_ERR_RESOURCEUNAVAILABLE, // CORVANTA_LOCKED
        SNMP_ERR_INCONSISTENTNAME,    // CORVANTA_UNKNOWN_ROW: gone since the last refresh
        SNMP_ERR_GENERR,              // CORVANTA_NO_COMMAND
        SNMP_ERR_INCONSISTENTNAME,    // CORVANTA_BAD_INDEX
        SNMP_ERR_WRONGVALUE,          // CORVANTA_UNFIT
    };
    switch (set.outcome) {
    case Outcome::done:
        return SNMP_ERR_NOERROR;
    case Outcome::notUndone:
        return SNMP_ERR_UNDOFAILED;
    case Outcome::undoing:
        return SNMP_ERR_GENERR;
    case Outcome::unavailable:
        return SNMP_ERR_RESOURCEUNAVAILABLE;
    case Outcome::inconsistent:
        return SNMP_ERR_INCONSISTENTVALUE;
    case Outcome::refused:
        break;
    }
    const auto index = static_cast<std::size_t>(set.status);
    return index < std::size(kStatusErrors) ? kStatusErrors[index] : SNMP_ERR_GENERR;
}

/// Gives the error to the request that stands at a place of the list.
void setError(netsnmp_request_info* requests, std::size_t place, int error) {
    for (; place > 0 && requests->next != nullptr; --place)
        requests = requests->next;
    if (error != SNMP_ERR_NOERROR)
        netsnmp_request_set_error(requests, error);
}

/// Who sent which request: the same when it comes again. A subagent can't tell, but its master
/// doesn't let it see such a request either.
std::string identify(const netsnmp_agent_request_info& info, const netsnmp_request_info* requests) {
    const netsnmp_pdu* pdu = info.asp != nullptr ? info.asp->pdu : nullptr;
    if (pdu == nullptr || pdu->transport_data == nullptr || pdu->transport_data_length <= 0)
        return "";
    std::string text(static_cast<const char*>(pdu->transport_data),
                     static_cast<std::size_t>(pdu->transport_data_length));
    text.append(pdu->securityName != nullptr ? pdu->securityName : "", pdu->securityNameLen);
    text += std::to_string(pdu->reqid);
    for (const auto* request = requests; request != nullptr; request = request->next) {
        const netsnmp_variable_list& binding = *request->requestvb;
        text.append(reinterpret_cast<const char*>(binding.name),
                    binding.name_length * sizeof *binding.name);
        text.append(reinterpret_cast<const char*>(binding.val.string), binding.val_len);
    }
    return text;
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

enum class Notification : oid { circuitUp = 1, circuitDown = 2, changeReverted = 3 };

/// The bindings of a notification, which are sent and released with it.
class Bindings {
public:
    explicit Bindings(Notification kind) {
        static const oid trapOid[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
        const oid name[] = {1, 3, 6, 1, 4, 1, CORVANTA_ENTERPRISE, 1, 0, static_cast<oid>(kind)};
        snmp_varlist_add_variable(&m_list, trapOid, std::size(trapOid), ASN_OBJECT_ID, name,
                                  sizeof name);
    }
    ~Bindings() { snmp_free_varbind(m_list); }
    Bindings(const Bindings&) = delete;
    Bindings& operator=(const Bindings&) = delete;

    netsnmp_variable_list* add(const std::vector<oid>& name) {
        return snmp_varlist_add_variable(&m_list, name.data(), name.size(), ASN_NULL, nullptr, 0);
    }
    void send() { send_v2trap(m_list); }

private:
    netsnmp_variable_list* m_list = nullptr;
};

/// cvCircuitUp or cvCircuitDown, which have the numbers of the states, with the objects of a row.
void sendCircuit(const Snapshot& snapshot, int row, int state) {
    Bindings bindings(static_cast<Notification>(state));
    for (const Instance& instance : snapshot.instances) {
        Value value;
        if (instance.object->source() != Source::layer2 || instance.row != row ||
            !instance.object->read({snapshot}, row, value))
            continue;
        if (auto* binding = bindings.add(instance.name))
            store(*instance.object, value, *binding);
    }
    bindings.send();
}

/// cvChangeReverted with cvChangeReason.
void sendReverted(RevertReason reason) {
    Bindings bindings(Notification::changeReverted);
    if (auto* binding = bindings.add(below({8, 5, 0})))
        snmp_set_var_typed_integer(binding, ASN_INTEGER, static_cast<long>(reason));
    bindings.send();
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
        static_cast<RequestHandler*>(handler->myvoid)->dispatch(*info, requests);
    } catch (const std::exception& error) {
        log(LOG_ERR, std::string("a request failed: ") + error.what());
        netsnmp_request_set_error(requests, SNMP_ERR_GENERR);
    }
    return SNMP_ERR_NOERROR;
}

void RequestHandler::dispatch(const netsnmp_agent_request_info& info,
                              netsnmp_request_info* requests) {
    m_undoing = m_worker.undoing(); // before the snapshot, which then tells what came of it
    switch (info.mode) {
    case MODE_GET:
    case MODE_GETNEXT:
        renewSnapshot(info.mode);
        for (auto* request = requests; request != nullptr; request = request->next) {
            if (const int error = answer(info.mode, *request); error != SNMP_ERR_NOERROR)
                netsnmp_request_set_error(request, error);
        }
        break;
    case MODE_SET_RESERVE1:
        m_request = identify(info, requests);
        m_again = !m_request.empty() && m_request == m_answered.request &&
                  Clock::now() - m_answered.when < kRepeated;
        if (!m_again)
            reserveAll(requests);
        break;
    case MODE_SET_ACTION:
        if (m_again)
            setError(requests, m_answered.place, m_answered.error);
        else
            make(requests);
        break;
    case MODE_SET_UNDO:
        if (m_set) // which was made, but something else in the request failed
            m_worker.takeBack(m_set, Clock::now() + m_settings.setDeadline);
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
    if (stale() && (object == nullptr ? mode == MODE_GETNEXT : object->source() != Source::agent))
        return SNMP_ERR_GENERR;
    if (!here && mode == MODE_GETNEXT)
        return SNMP_ERR_NOERROR; // the toolkit looks on behind this tree
    if (!here)
        return object == nullptr ? SNMP_NOSUCHOBJECT : SNMP_NOSUCHINSTANCE;
    Value value;
    if (!object->read({*m_snapshot, m_setsRefused, m_undoing}, found->row, value))
        return SNMP_ERR_GENERR;
    if (mode == MODE_GETNEXT)
        snmp_set_var_objid(&binding, found->name.data(), found->name.size());
    store(*object, value, binding);
    return SNMP_ERR_NOERROR;
}

void RequestHandler::reserveAll(netsnmp_request_info* requests) {
    m_snapshot = m_worker.snapshot();
    m_set = std::make_shared<Transaction>();
    std::size_t place = 0;
    for (auto* request = requests; request != nullptr; request = request->next, ++place) {
        if (const int error = reserve(*request->requestvb, place); error != SNMP_ERR_NOERROR) {
            netsnmp_request_set_error(request, error);
            return;
        }
    }
    if (const int error = checkTrial(); error != SNMP_ERR_NOERROR)
        netsnmp_request_set_error(requests, error);
}

int RequestHandler::reserve(const netsnmp_variable_list& binding, std::size_t place) {
    const Object* object = findObject(binding);
    if (object == nullptr || !object->writable())
        return SNMP_ERR_NOTWRITABLE;
    Change change{object, 0, {}, place};
    if (const int error = check(*object, binding, change.value); error != SNMP_ERR_NOERROR)
        return error;
    if (object->control() == Control::none && stale())
        return SNMP_ERR_GENERR;
    const auto found = find(m_snapshot->instances, binding);
    if (found == m_snapshot->instances.end() || compare(*found, binding) != 0)
        return SNMP_ERR_NOCREATION;
    if (object->control() == Control::confirmTimeout) {
        m_set->trial = seconds(change.value.number);
    } else if (object->control() == Control::change) {
        m_set->verdict = static_cast<Verdict>(change.value.number);
    } else {
        change.row = found->row;
        m_set->changes.push_back(std::move(change));
    }
    return SNMP_ERR_NOERROR;
}

/// Whether the request goes with what is pending.
int RequestHandler::checkTrial() const {
    const ChangeState state = m_snapshot->trial.state;
    if (state == ChangeState::restoring || m_undoing)
        return SNMP_ERR_RESOURCEUNAVAILABLE;
    const bool pending = state == ChangeState::pending;
    if (m_set->verdict != Verdict::notGiven) {
        const bool alone = m_set->changes.empty() && m_set->trial == seconds(0);
        return pending && alone ? SNMP_ERR_NOERROR : SNMP_ERR_INCONSISTENTVALUE;
    }
    if (m_set->trial == seconds(0))
        return pending ? SNMP_ERR_RESOURCEUNAVAILABLE : SNMP_ERR_NOERROR;
    return pending || !m_set->changes.empty() ? SNMP_ERR_NOERROR : SNMP_ERR_INCONSISTENTVALUE;
}

void RequestHandler::make(netsnmp_request_info* requests) {
    if (!m_set)
        return;
    // A time of 0 by itself.
    const bool nothing =
        m_set->changes.empty() && m_set->trial == seconds(0) && m_set->verdict == Verdict::notGiven;
    m_answered = {};
    if (!nothing && m_worker.make(m_set, Clock::now() + m_settings.setDeadline)) {
        m_answered.error = errorOf(*m_set);
        m_answered.place = m_set->request;
    } else if (!nothing) { // the worker may still be at it
        log(LOG_WARNING, "a set missed its deadline and comes to nothing");
        m_answered.error = SNMP_ERR_GENERR;
    }
    m_answered.request = m_request;
    m_answered.when = Clock::now();
    m_snapshot = m_worker.snapshot();
    if (m_answered.error == SNMP_ERR_NOERROR)
        return;
    setError(requests, m_answered.place, m_answered.error);
    m_set.reset();
}

void RequestHandler::notifyChanges() {
    const auto newest = m_worker.snapshot();
    const auto previous = std::exchange(m_notified, newest);
    if (!m_settings.notifications)
        return;
    if (newest->reverts != previous->reverts)
        sendReverted(newest->revertReason);
    if (!previous->complete)
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
            sendCircuit(*newest, row, now.state);
    }
}

} // namespace agent
