#include "agent/set/Manager.h"

#include "agent/set/Terminal.h"

#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <cstdlib>
#include <iterator>
#include <utility>

namespace trial {

namespace {

using std::chrono::duration_cast;
using std::chrono::microseconds;

constexpr std::string_view kError = "Error: ";
std::string lastLine; ///< of the toolkit, which says so why a session can't be opened

int keepLine(int, int, void* message, void*) {
    lastLine = static_cast<const snmp_log_message*>(message)->msg;
    while (!lastLine.empty() && lastLine.back() == '\n')
        lastLine.pop_back();
    if (lastLine.compare(0, kError.size(), kError) == 0)
        lastLine.erase(0, kError.size());
    return SNMPERR_SUCCESS;
}

/// By error-status. {user}, {object} and {value} are replaced.
struct {
    const char* name;
    const char* text;
} constexpr kErrors[] = {
    {"noError", ""},
    {"tooBig", "it does not fit into a packet: set fewer objects at a time"},
    {"noSuchName", "the router has no {object} that can be set"},
    {"badValue", "{object} cannot become {value}"},
    {"readOnly", "{object} cannot be set on this router"},
    {"genErr", "the router could not do it, or not in time, and takes back what it began"},
    {"noAccess", "{user} may not write"},
    {"wrongType", "{object} is of another type on this router: its agent has another version"},
    {"wrongLength", "{value} is too long or too short for {object}"},
    {"wrongEncoding", "the router cannot decode the value of {object}"},
    {"wrongValue", "{object} cannot become {value}: the device does not take such a value"},
    {"noCreation", "the router has no {object}"},
    {"inconsistentValue", "{object} cannot become {value} as things are now"},
    {"resourceUnavailable", "the configuration database is locked, or the device too slow for "
                            "this set: try again later, or with fewer objects"},
    {"commitFailed", "the device failed to do it, no bridge is free, or one value undoes another"},
    {"undoFailed", "the change failed, and rows that others had changed meanwhile were left as "
                   "they are: look at the values, and at the router's log"},
    {"authorizationError", "{user} has no access to {object}"},
    {"notWritable", "{object} cannot be set on this router"},
    {"inconsistentName", "the row of {object} has gone since the router read it"},
};

void replace(std::string& text, std::string_view what, const std::string& with) {
    if (const std::size_t at = text.find(what); at != std::string::npos)
        text.replace(at, what.size(), with);
}

std::optional<Value> valueOf(const netsnmp_variable_list& binding) {
    switch (binding.type) {
    case ASN_INTEGER:
        return static_cast<std::int64_t>(*binding.val.integer);
    case ASN_GAUGE:
    case ASN_COUNTER:
        return static_cast<std::int64_t>(static_cast<std::uint32_t>(*binding.val.integer));
    case ASN_OCTET_STR:
        return std::string(reinterpret_cast<const char*>(binding.val.string), binding.val_len);
    default:
        return std::nullopt;
    }
}

/// What the toolkit says of a request without an answer, for an operator.
std::string troubleOf(int error) {
    const std::string user = Manager::user();
    switch (error) {
    case SNMPERR_SUCCESS:
    case SNMPERR_TIMEOUT:
        return "the router does not answer";
    case SNMPERR_UNKNOWN_USER_NAME:
    case SNMPERR_USM_UNKNOWNSECURITYNAME:
        return "the router does not know the user " + user;
    case SNMPERR_AUTHENTICATION_FAILURE:
    case SNMPERR_USM_AUTHENTICATIONFAILURE:
        return "the authentication passphrase of " + user + ", or defAuthType, is another there";
    case SNMPERR_DECRYPTION_ERR:
    case SNMPERR_USM_DECRYPTIONERROR:
        return "the privacy passphrase of " + user + ", or defPrivType, is another there";
    case SNMPERR_UNSUPPORTED_SEC_LEVEL:
    case SNMPERR_USM_UNSUPPORTEDSECURITYLEVEL:
        return "the user " + user + " cannot have this defSecurityLevel there";
    case SNMPERR_BAD_SEC_NAME:
        return "snmp.conf has no defSecurityName";
    case SNMPERR_USM_GENERICERROR:
        return "snmp.conf lacks a passphrase of " + user;
    case SNMPERR_BAD_ADDRESS:
        return "there is no such host or socket";
    default:
        return lastLine.empty() ? snmp_api_errstring(error) : lastLine;
    }
}

} // namespace

Manager::Manager(std::string host) : m_host(std::move(host)) {
    snmp_enable_calllog();
    snmp_register_callback(SNMP_CALLBACK_LIBRARY, SNMP_CALLBACK_LOGGING, keepLine, nullptr);
    for (const char* const modules : {"MIBS", "MIBDIRS", "MIBFILES"})
        setenv(modules, "", 1); // none is needed
    init_snmp("corvanta-set");
}

Manager::~Manager() {
    close();
}

std::string Manager::user() {
    const char* const name = netsnmp_ds_get_string(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_SECNAME);
    return name != nullptr ? name : "(no defSecurityName in snmp.conf)";
}

void Manager::close() {
    if (m_session != nullptr)
        snmp_close(m_session);
    m_session = nullptr;
}

/// Opening asks the router for its engine's identity.
bool Manager::open(Answer& answer, Patience patience) {
    if (m_session == nullptr) {
        snmp_session wanted;
        snmp_sess_init(&wanted);
        wanted.version = SNMP_VERSION_3;
        wanted.peername = m_host.data();
        wanted.timeout = static_cast<long>(duration_cast<microseconds>(patience.time).count());
        wanted.retries = patience.tries - 1;
        lastLine.clear();
        m_session = snmp_open(&wanted);
        if (m_session == nullptr) {
            answer.trouble = troubleOf(snmp_errno);
            return false;
        }
    }
    return true;
}

/// Releases the request.
Answer Manager::request(snmp_pdu* pdu) {
    Answer answer;
    snmp_pdu* response = nullptr;
    const int status = snmp_synch_response(m_session, pdu, &response);
    if (status == STAT_SUCCESS && response != nullptr) {
        answer.kind =
            response->errstat == SNMP_ERR_NOERROR ? Answer::Kind::values : Answer::Kind::refused;
        answer.error = static_cast<int>(response->errstat);
        answer.place =
            response->errindex > 0 ? static_cast<std::size_t>(response->errindex) - 1 : 0;
        for (const auto* binding = response->variables; binding; binding = binding->next_variable)
            answer.values.push_back(valueOf(*binding));
    } else {
        answer.trouble =
            troubleOf(status == STAT_TIMEOUT ? SNMPERR_TIMEOUT : m_session->s_snmp_errno);
        if (status != STAT_TIMEOUT)
            close(); // the connection may have gone
    }
    snmp_free_pdu(response);
    return answer;
}

Answer Manager::get(const std::vector<Instance>& instances, Patience patience) {
    Answer answer;
    for (int i = 0; i < patience.tries && answer.kind == Answer::Kind::none; ++i) {
        if (i > 0 && interrupted())
            break;
        if (!open(answer, {patience.time, 1}))
            continue;
        m_session->timeout = static_cast<long>(duration_cast<microseconds>(patience.time).count());
        m_session->retries = 0;
        snmp_pdu* const pdu = snmp_pdu_create(SNMP_MSG_GET);
        for (const Instance& instance : instances) {
            const auto id = idOf(instance);
            snmp_add_null_var(pdu, id.data(), id.size());
        }
        answer = request(pdu);
        if (answer.kind == Answer::Kind::values && answer.values.size() != instances.size())
            answer = {};
    }
    if (answer.kind == Answer::Kind::none)
        close(); // by a new session the router is found after a restart too
    return answer;
}

Answer Manager::set(const std::vector<Assignment>& assignments, Patience patience) {
    Answer answer;
    if (!open(answer, patience))
        return answer;
    m_session->timeout = static_cast<long>(duration_cast<microseconds>(patience.time).count());
    m_session->retries = patience.tries - 1;
    snmp_pdu* const pdu = snmp_pdu_create(SNMP_MSG_SET);
    for (const Assignment& assignment : assignments) {
        const auto id = idOf(assignment.instance);
        const unsigned char type = assignment.instance.object->type;
        if (const auto* const text = std::get_if<std::string>(&assignment.value)) {
            snmp_pdu_add_variable(pdu, id.data(), id.size(), type, text->data(), text->size());
        } else {
            const long number = static_cast<long>(std::get<std::int64_t>(assignment.value));
            snmp_pdu_add_variable(pdu, id.data(), id.size(), type, &number, sizeof number);
        }
    }
    return request(pdu);
}

std::string sentence(const Answer& refusal, const std::vector<Assignment>& assignments) {
    const auto error = static_cast<std::size_t>(refusal.error);
    if (error >= std::size(kErrors))
        return "SNMP error " + std::to_string(error);
    std::string text = kErrors[error].text;
    replace(text, "{user}", Manager::user());
    if (refusal.place < assignments.size()) {
        const Assignment& assignment = assignments[refusal.place];
        replace(text, "{object}", nameOf(assignment.instance));
        replace(text, "{value}", textOf(*assignment.instance.object, assignment.value));
    }
    return text + " (" + kErrors[error].name + ')';
}

} // namespace trial
