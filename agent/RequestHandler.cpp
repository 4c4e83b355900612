#include "RequestHandler.h"

#include "Log.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>

#include <poll.h>

// The toolkit's, without a header: the set that keeps others waiting, who waits, and what has them
// wait no longer.
extern "C" {
extern netsnmp_agent_session* netsnmp_processing_set;    // NOLINT(readability-identifier-naming)
extern netsnmp_agent_session* netsnmp_agent_queued_list; // NOLINT(readability-identifier-naming)
int netsnmp_handle_request(netsnmp_agent_session* asp, int status);
}

namespace agent {

namespace {

using std::chrono::seconds;

// A walk takes many requests. While one goes on, and that isn't for too long, it gets to see one
// snapshot.
constexpr seconds kWalkPause{1};
constexpr seconds kWalkLimit{5};

constexpr seconds kRepeated{60}; ///< for how long a request that comes again is known
constexpr std::size_t kMostAnswers = 256;
constexpr std::size_t kLongestNote = 600; ///< of who sets what, in the log
constexpr std::string_view kAndMore = "; and more";
constexpr seconds kGrace{10}; ///< for the device's side to tell that a set has missed its deadline

/// What a manager is told of a set that has ended.
int errorOf(const SetResult& result) {
    constexpr int kStatusErrors[] = {
        SNMP_ERR_COMMITFAILED,        // CORVANTA_OK, where the outcome is not
        SNMP_ERR_COMMITFAILED,        // CORVANTA_FAILED
        SNMP_ERR_RESOURCEUNAVAILABLE, // CORVANTA_LOCKED
        SNMP_ERR_INCONSISTENTNAME,    // CORVANTA_UNKNOWN_ROW: gone since the last refresh
        SNMP_ERR_GENERR,              // CORVANTA_NO_COMMAND
        SNMP_ERR_INCONSISTENTNAME,    // CORVANTA_BAD_INDEX
        SNMP_ERR_WRONGVALUE,          // CORVANTA_UNFIT
    };
    switch (result.outcome) {
    case Outcome::done:
        return SNMP_ERR_NOERROR;
    case Outcome::notUndone:
        return SNMP_ERR_UNDOFAILED;
    case Outcome::undoing:
    case Outcome::late:
        return SNMP_ERR_GENERR;
    case Outcome::unavailable:
        return SNMP_ERR_RESOURCEUNAVAILABLE;
    case Outcome::inconsistent:
        return SNMP_ERR_INCONSISTENTVALUE;
    case Outcome::refused:
        break;
    }
    const auto index = static_cast<std::size_t>(result.status);
    return index < std::size(kStatusErrors) ? kStatusErrors[index] : SNMP_ERR_GENERR;
}

/// What the log says of it.
std::string describe(Outcome outcome) {
    switch (outcome) {
    case Outcome::done:
        return "made";
    case Outcome::refused:
        return "refused: nothing has changed";
    case Outcome::late:
        return "missed its deadline and is taken back";
    case Outcome::notUndone:
        return "failed, and could not be taken back wholly";
    case Outcome::undoing:
        return "failed and is being taken back";
    case Outcome::unavailable:
        return "refused: a change is pending or being taken back, or there is too little time";
    case Outcome::inconsistent:
        break;
    }
    return "refused: no change is pending";
}

std::string nameOf(int error) {
    static const char* const names[] = {"noError",
                                        "tooBig",
                                        "noSuchName",
                                        "badValue",
                                        "readOnly",
                                        "genErr",
                                        "noAccess",
                                        "wrongType",
                                        "wrongLength",
                                        "wrongEncoding",
                                        "wrongValue",
                                        "noCreation",
                                        "inconsistentValue",
                                        "resourceUnavailable",
                                        "commitFailed",
                                        "undoFailed",
                                        "authorizationError",
                                        "notWritable",
                                        "inconsistentName"};
    const auto index = static_cast<std::size_t>(error);
    return index < std::size(names) ? names[index] : std::to_string(error);
}

/// The object and its row by name, or the whole OID where there is no such object.
std::string nameOf(const netsnmp_variable_list& binding, const Object* object) {
    std::string name = object != nullptr ? object->label() : "";
    for (std::size_t i = object != nullptr ? object->name().size() : 0; i < binding.name_length;
         ++i)
        name += "." + std::to_string(binding.name[i]);
    return name;
}

std::string textOf(const Object& object, const Value& value) {
    constexpr std::size_t kLongest = 40;
    static const char* const truths[] = {"true", "false"};
    static const char* const verdicts[] = {"none", "confirm", "revert"};
    const auto index = static_cast<std::size_t>(value.number - 1);
    if (object.type() == ASN_OCTET_STR)
        return "'" + printable(value.text, kLongest) + "'";
    if (object.control() == Control::change && index < std::size(verdicts))
        return verdicts[index];
    if (object.type() == ASN_INTEGER && object.maximum() == 2 && index < std::size(truths))
        return truths[index];
    return std::to_string(value.number);
}

/// The user and the address. A community is no name, and as good as a password.
std::string describeManager(const netsnmp_agent_request_info& info) {
    const netsnmp_pdu* const pdu = info.asp != nullptr ? info.asp->pdu : nullptr;
    if (pdu == nullptr)
        return "somebody";
    std::string who = pdu->securityModel == SNMP_SEC_MODEL_USM && pdu->securityName != nullptr
                          ? printable({pdu->securityName, pdu->securityNameLen}, 32)
                          : "a community";
    void* const session = snmp_sess_pointer(info.asp->session);
    auto* const transport = session != nullptr ? snmp_sess_transport(session) : nullptr;
    if (transport == nullptr || transport->f_fmtaddr == nullptr)
        return who;
    char* const address =
        transport->f_fmtaddr(transport, pdu->transport_data, pdu->transport_data_length);
    if (address != nullptr)
        who += std::string(" from ") + address;
    std::free(address);
    return who.substr(0, who.find("->")); // its own address
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
RequestHandler::Identity identify(const netsnmp_agent_request_info& info,
                                  const netsnmp_request_info* requests) {
    const netsnmp_pdu* pdu = info.asp != nullptr ? info.asp->pdu : nullptr;
    if (pdu == nullptr || pdu->transport_data == nullptr || pdu->transport_data_length <= 0)
        return {};
    RequestHandler::Identity identity;
    identity.sender.assign(static_cast<const char*>(pdu->transport_data),
                           static_cast<std::size_t>(pdu->transport_data_length));
    identity.sender.append(pdu->securityName != nullptr ? pdu->securityName : "",
                           pdu->securityNameLen);
    identity.sender += std::to_string(pdu->reqid);
    for (const auto* request = requests; request != nullptr; request = request->next) {
        const netsnmp_variable_list& binding = *request->requestvb;
        identity.values.append(reinterpret_cast<const char*>(binding.name),
                               binding.name_length * sizeof *binding.name);
        identity.values.append(reinterpret_cast<const char*>(binding.val.string), binding.val_len);
    }
    return identity;
}

/// Whether the connection that a request came over is closed. The toolkit forgets one when the next
/// round begins, and then has somebody else's in its place.
bool hasHungUp(const netsnmp_agent_session& asked) {
    void* const session = snmp_sess_pointer(asked.session);
    const netsnmp_transport* const transport =
        session != nullptr ? snmp_sess_transport(session) : nullptr;
    return transport == nullptr || transport->sock < 0;
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

/// The one that there is. The toolkit would release at its end what a callback of it is given.
RequestHandler* handlerOfConnection = nullptr;

} // namespace

RequestHandler::RequestHandler(Settings settings, Link link, std::function<void()> works)
    : m_settings(std::move(settings)),
      m_link(link),
      m_works(std::move(works)),
      m_told(m_settings.state),
      // Not those of one before, whose results may still come.
      m_nextId(static_cast<std::uint64_t>(Clock::now().time_since_epoch().count())) {
    Snapshot nothing;
    nothing.refreshed = Clock::now();
    nothing.instances = listInstances(nothing);
    m_newest = m_snapshot = std::make_shared<const Snapshot>(std::move(nothing));
    while (m_link.receive()) { // what was meant for the one before
    }
    m_link.send(Hello{});
}

/// The toolkit has a connection to its master, or has lost it.
template <bool there>
int RequestHandler::onConnection(int, int, void*, void*) {
    handlerOfConnection->setReachable(there);
    return SNMPERR_SUCCESS;
}

bool RequestHandler::registerObjects() {
    const std::vector<oid> root = below({});
    netsnmp_handler_registration* registration = netsnmp_create_handler_registration(
        "corvanta", handle, root.data(), root.size(), HANDLER_CAN_RWRITE);
    if (registration == nullptr)
        return false;
    registration->handler->myvoid = this;
    if (m_settings.subagent) {
        m_told.setReachable(false);
        handlerOfConnection = this;
        snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_START,
                               onConnection<true>, nullptr);
        snmp_register_callback(SNMP_CALLBACK_APPLICATION, SNMPD_CALLBACK_INDEX_STOP,
                               onConnection<false>, nullptr);
    }
    return netsnmp_register_handler(registration) == MIB_REGISTERED_OK;
}

int RequestHandler::handle(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                           netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
    try {
        static_cast<RequestHandler*>(handler->myvoid)
            ->dispatch(*handler, *registration, *info, requests);
    } catch (const std::exception& error) {
        log(LOG_ERR, std::string("a request failed: ") + error.what());
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
        renewSnapshot(info.mode);
        for (auto* request = requests; request != nullptr; request = request->next) {
            if (const int error = answer(info.mode, *request); error != SNMP_ERR_NOERROR)
                netsnmp_request_set_error(request, error);
        }
        break;
    case MODE_SET_RESERVE1:
        m_request = identify(info, requests);
        if (const Answered* answered = findAnswer(arrivalOf(info.asp))) {
            m_again = true;
            setError(requests, answered->place, answered->error);
        } else {
            m_again = false;
            forgetAnswers();
            m_came = arrivalOf(info.asp);
            m_snapshot = m_newest;
            note(info, requests);
            reserveAll(requests);
        }
        break;
    case MODE_SET_ACTION:
        if (ask(requests) && m_settings.subagent) {
            finish(await(m_set->id, m_giveUp), requests);
        } else if (m_set && !m_result) {
            for (auto* request = requests; request != nullptr; request = request->next)
                request->delegated = REQUEST_IS_DELEGATED;
            m_waiting =
                netsnmp_create_delegated_cache(&handler, &registration, &info, requests, nullptr);
        }
        break;
    case MODE_SET_UNDO:
        if (m_set)
            undo(requests);
        [[fallthrough]];
    case MODE_SET_FREE:
        if (!m_again)
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
        m_snapshot = m_newest;
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
    if (!object->read({*m_snapshot, m_setsRefused}, found->row, value))
        return SNMP_ERR_GENERR;
    if (mode == MODE_GETNEXT)
        snmp_set_var_objid(&binding, found->name.data(), found->name.size());
    store(*object, value, binding);
    return SNMP_ERR_NOERROR;
}

void RequestHandler::reserveAll(netsnmp_request_info* requests) {
    m_set.emplace();
    m_set->id = m_nextId++;
    m_set->deadline = m_came + m_settings.setDeadline;
    m_result.reset();
    // One that came too long ago has a manager that has stopped waiting.
    int error = Clock::now() >= m_set->deadline ? SNMP_ERR_GENERR : SNMP_ERR_NOERROR;
    std::size_t place = 0;
    std::size_t next = 0;
    for (auto* request = requests; request != nullptr && error == SNMP_ERR_NOERROR;
         request = request->next) {
        place = next++;
        error = reserve(*request->requestvb, place);
    }
    if (error == SNMP_ERR_NOERROR) {
        place = 0;
        error = checkTrial();
    }
    if (error == SNMP_ERR_NOERROR)
        return;
    remember(error, place);
    setError(requests, place, error);
    logSet("refused: nothing has changed", error);
}

/// When a set's request came, which the toolkit may have kept since.
Clock::time_point RequestHandler::arrivalOf(const netsnmp_agent_session* asked) const {
    const auto kept = m_kept.find(asked);
    return kept == m_kept.end() ? Clock::now() : kept->second;
}

/// What was answered to the request when it came before; null when it has not.
/// @param came  when it came this time
const RequestHandler::Answered* RequestHandler::findAnswer(Clock::time_point came) const {
    const auto found =
        std::find_if(m_answered.begin(), m_answered.end(), [&](const Answered& answered) {
            return answered.request.sender == m_request.sender &&
                   answered.request.values == m_request.values && came - answered.when < kRepeated;
        });
    return found == m_answered.end() ? nullptr : &*found;
}

/// Forgets what was answered to a sender that uses the Id of that request for another one: when it
/// goes back to the values of the first, it wants them made.
void RequestHandler::forgetAnswers() {
    m_answered.erase(std::remove_if(m_answered.begin(), m_answered.end(),
                                    [this](const Answered& answered) {
                                        return answered.request.sender == m_request.sender;
                                    }),
                     m_answered.end());
}

void RequestHandler::remember(int error, std::size_t place) {
    if (m_request.sender.empty())
        return;
    auto oldest = Clock::now(); // of the requests that can still be one that was answered
    for (const auto& [asked, came] : m_kept)
        oldest = std::min(oldest, came);
    while (!m_answered.empty() &&
           (m_answered.size() >= kMostAnswers || oldest - m_answered.front().when >= kRepeated))
        m_answered.pop_front();
    m_answered.push_back({m_request, error, place, Clock::now()});
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
    if (state == ChangeState::restoring || m_snapshot->undoing)
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

/// Passes the set on, unless there is nothing to do. @return whether a result will come
bool RequestHandler::ask(netsnmp_request_info* requests) {
    if (!m_set)
        return false;
    m_giveUp = m_set->deadline + kGrace;
    if (m_set->changes.empty() && m_set->trial == seconds(0) &&
        m_set->verdict == Verdict::notGiven) { // a time of 0 by itself
        finish({m_set->id, Outcome::done, CORVANTA_OK, 0}, requests);
        return false;
    }
    m_set->side = m_side;
    m_link.send(*m_set);
    wakeAt(m_giveUp);
    return true;
}

/// Looks again at a time, if nothing comes in before.
void RequestHandler::wakeAt(Clock::time_point time) {
    const auto now = Clock::now();
    const auto left = std::max(std::chrono::ceil<seconds>(time - now), seconds(1));
    if (m_wakeDue > now && m_wakeDue <= now + left)
        return;
    m_wakeDue = now + left;
    const auto wake = [](unsigned, void* self) { static_cast<RequestHandler*>(self)->receive(); };
    snmp_alarm_register(static_cast<unsigned>(left.count()), 0, wake, this);
}

/// Answers the set's request.
void RequestHandler::finish(const SetResult& result, netsnmp_request_info* requests) {
    m_result = result;
    const int error = errorOf(result);
    remember(error, result.place);
    std::string outcome = describe(result.outcome);
    if (result.outcome == Outcome::done && m_set->verdict == Verdict::confirm) {
        outcome += ", confirms " + std::exchange(m_onTrial, "");
    } else if (result.outcome == Outcome::done && m_set->trial != seconds(0)) {
        outcome += ", on trial for " + std::to_string(m_set->trial.count()) + " s";
        if (m_onTrial.size() < kLongestNote) // each renewal of the trial adds to it
            m_onTrial += (m_onTrial.empty() ? "" : "; ") + printable(m_asked, kLongestNote);
        else if (m_onTrial.compare(m_onTrial.size() - kAndMore.size(), kAndMore.npos, kAndMore) !=
                 0)
            m_onTrial += kAndMore;
    }
    logSet(outcome, error);
    m_snapshot = m_newest;
    if (error == SNMP_ERR_NOERROR)
        return;
    setError(requests, result.place, error);
    m_set.reset();
}

/// Waits for a result, and does nothing else.
SetResult RequestHandler::await(std::uint64_t id, Clock::time_point deadline) {
    while (!(m_result && m_result->id == id)) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (left <= 0)
            return {id, Outcome::late, CORVANTA_FAILED, 0};
        pollfd waiting{m_link.descriptor(), POLLIN, 0};
        poll(&waiting, 1, static_cast<int>(left));
        receive();
    }
    return *m_result;
}

/// Keeps for the log who sets what.
void RequestHandler::note(const netsnmp_agent_request_info& info,
                          const netsnmp_request_info* requests) {
    m_asked =
        "set by " + (m_settings.subagent ? "a manager of snmpd's" : describeManager(info)) + ":";
    for (; requests != nullptr && m_asked.size() < kLongestNote; requests = requests->next) {
        const netsnmp_variable_list& binding = *requests->requestvb;
        const Object* const object = findObject(binding);
        m_asked += " " + nameOf(binding, object);
        if (object == nullptr)
            continue;
        Value value;
        const auto found = find(m_snapshot->instances, binding);
        if (object->control() == Control::none && found != m_snapshot->instances.end() &&
            compare(*found, binding) == 0 &&
            object->read({*m_snapshot, m_setsRefused}, found->row, value))
            m_asked += " " + textOf(*object, value);
        value = {};
        if (check(*object, binding, value) != SNMP_ERR_WRONGTYPE)
            m_asked += " -> " + textOf(*object, value);
        m_asked += requests->next != nullptr ? "," : "";
    }
}

void RequestHandler::logSet(const std::string& outcome, int error) {
    const std::chrono::duration<double> took = Clock::now() - m_came;
    std::array<char, 32> time{};
    std::snprintf(time.data(), time.size(), "%.2f s", took.count());
    log(LOG_NOTICE, printable(m_asked, kLongestNote) + ": " + outcome +
                        (error != SNMP_ERR_NOERROR ? " (" + nameOf(error) + ")" : "") + ", " +
                        time.data());
}

/// Tells what of managers has been taken back without another set of theirs.
void RequestHandler::logReverts(const Snapshot& before) {
    static const char* const reasons[] = {"", "it was not confirmed in time", "a manager wanted it",
                                          "the agent was restarted", "a further change failed"};
    if (m_newest->counters.reverts == before.counters.reverts)
        return;
    const std::string what = std::exchange(m_onTrial, "");
    log(LOG_NOTICE,
        (what.empty() ? "a change on trial" : what) + ": taken back, since " +
            reasons[static_cast<std::size_t>(m_newest->revertReason) % std::size(reasons)]);
}

/// Has a set taken back that was made, but something else in the request failed.
void RequestHandler::undo(netsnmp_request_info* requests) {
    const auto deadline = Clock::now() + m_settings.setDeadline;
    m_result.reset();
    m_link.send(TakeBack{m_set->id, m_side});
    if (await(m_set->id, deadline).outcome != Outcome::refused)
        netsnmp_request_set_error(requests, SNMP_ERR_UNDOFAILED);
    logSet("taken back, since another part of the request failed", SNMP_ERR_NOERROR);
    m_snapshot = m_newest;
}

// ---------------------------------------------------------------------- from the device's side

void RequestHandler::receive() {
    while (const auto message = m_link.receive()) {
        m_works();
        take(*message);
        notifyChanges(); // of each snapshot: the next can say the same again
    }
    if (m_set && !m_result && m_waiting != nullptr) {
        if (Clock::now() >= m_giveUp)
            takeResult({m_set->id, Outcome::late, CORVANTA_FAILED, 0});
        else
            wakeAt(m_giveUp);
    }
    notifyChanges();
}

void RequestHandler::take(const Message& message) {
    if (const auto* snapshot = std::get_if<Snapshot>(&message)) {
        takeSnapshot(*snapshot);
    } else if (const auto* result = std::get_if<SetResult>(&message)) {
        takeResult(*result);
    } else if (const auto* hello = std::get_if<Hello>(&message);
               hello != nullptr && hello->side != m_side) {
        // It was started again. What it was at is taken back by its journal, if there is one: else
        // it was not begun or is done, which the device will tell.
        m_before = m_newest->counters;
        m_side = hello->side;
        m_doubtful = m_set && !m_result && !hello->takesBack ? m_set->id : 0;
        if (m_set && !m_result && hello->takesBack)
            takeResult({m_set->id, Outcome::undoing, CORVANTA_FAILED, 0});
    }
}

/// Whether the set that was under way has come about, as the device is read anew.
SetResult RequestHandler::judge(const Snapshot& snapshot) const {
    if (const Change* missing = firstMissing(m_set->changes, snapshot))
        return {m_set->id, Outcome::refused, CORVANTA_FAILED, missing->place};
    return {m_set->id, Outcome::done, CORVANTA_OK, 0};
}

/// What a device's side has not read yet is still what the one before has read.
void RequestHandler::takeSnapshot(const Snapshot& snapshot) {
    Snapshot newest = snapshot;
    newest.counters += m_before;
    if (!snapshot.complete && m_newest->complete) {
        newest.model = m_newest->model;
        newest.refreshed = m_newest->refreshed;
        newest.complete = true;
        newest.instances = listInstances(newest);
    }
    const auto before =
        std::exchange(m_newest, std::make_shared<const Snapshot>(std::move(newest)));
    if (m_heard)
        logReverts(*before);
    m_heard = true;
    if (snapshot.complete && m_set && !m_result && m_set->id == m_doubtful)
        takeResult(judge(*m_newest));
}

void RequestHandler::takeResult(const SetResult& result) {
    if (!m_set || result.id != m_set->id)
        return;
    auto* const waiting = std::exchange(m_waiting, nullptr);
    if (waiting == nullptr) { // somebody awaits it
        m_result = result;
        return;
    }
    if (netsnmp_handler_check_cache(waiting) != nullptr) {
        for (auto* request = waiting->requests; request != nullptr; request = request->next)
            request->delegated = REQUEST_IS_NOT_DELEGATED;
        finish(result, waiting->requests);
    }
    netsnmp_free_delegated_cache(waiting);
}

void RequestHandler::releaseRequests() {
    const auto now = Clock::now();
    const auto before = std::exchange(m_kept, {});
    netsnmp_processing_set = nullptr;
    if (m_waiting != nullptr && hasHungUp(*m_waiting->reqinfo->asp)) { // the set goes on to its end
        netsnmp_agent_session* const asked = m_waiting->reqinfo->asp;
        netsnmp_free_delegated_cache(std::exchange(m_waiting, nullptr));
        logSet("goes on to its end, though its manager has hung up", SNMP_ERR_NOERROR);
        m_set.reset();
        free_agent_snmp_session(asked);
    }
    for (auto** place = &netsnmp_agent_queued_list; *place != nullptr;) {
        netsnmp_agent_session* const kept = *place;
        if (hasHungUp(*kept)) {
            *place = kept->next;
            free_agent_snmp_session(kept);
        } else if (kept->pdu->command == SNMP_MSG_SET) {
            const auto came = before.find(kept);
            m_kept[kept] = came == before.end() ? now : came->second;
            place = &kept->next;
        } else {
            *place = kept->next;
            kept->next = nullptr;
            netsnmp_handle_request(kept, kept->status);
        }
    }
    // Sets are left: the first of them is next, whichever comes in meanwhile.
    netsnmp_processing_set = netsnmp_agent_queued_list;
}

void RequestHandler::setReachable(bool reachable) {
    m_told.setReachable(reachable);
    if (reachable)
        wakeAt(Clock::now());
}

void RequestHandler::notifyChanges() {
    if (!m_settings.notifications || !m_heard)
        return;
    const Snapshot& now = *m_newest;
    if (m_told.isNews(now.counters.reverts))
        sendReverted(now.revertReason);
    if (!now.complete)
        return;
    std::vector<Told::State> states;
    for (const Layer2If& row : now.model.layer2) {
        const bool circuit = row.name.compare(0, 2, "VC") == 0; // the others go with it
        states.emplace_back(circuit ? row.name : "", row.state);
    }
    for (const int row : m_told.news(states))
        sendCircuit(now, row + 1, states[static_cast<std::size_t>(row)].second);
    if (m_told.holdsBack())
        wakeAt(Clock::now());
}

} // namespace agent
