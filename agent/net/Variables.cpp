#include "agent/net/Variables.h"

#include "agent/Log.h"

#include <algorithm>
#include <cstdlib>

namespace agent::net {

namespace {

static_assert(static_cast<int>(ErrorStatus::noError) == SNMP_ERR_NOERROR &&
              static_cast<int>(ErrorStatus::genErr) == SNMP_ERR_GENERR &&
              static_cast<int>(ErrorStatus::wrongType) == SNMP_ERR_WRONGTYPE &&
              static_cast<int>(ErrorStatus::inconsistentName) == SNMP_ERR_INCONSISTENTNAME);

u_char asnOf(Type type) {
    switch (type) {
    case Type::integer:
        return ASN_INTEGER;
    case Type::unsigned32:
        return ASN_UNSIGNED;
    case Type::counter:
        return ASN_COUNTER;
    case Type::gauge:
        return ASN_GAUGE;
    case Type::text:
        break;
    }
    return ASN_OCTET_STR;
}

ErrorStatus errorOf(Fit fit) {
    switch (fit) {
    case Fit::fits:
        return ErrorStatus::noError;
    case Fit::wrongLength:
        return ErrorStatus::wrongLength;
    case Fit::wrongValue:
        break;
    }
    return ErrorStatus::wrongValue;
}

/// The value of a variable; nothing when its type is not the object's.
std::optional<Value> toValue(const Object& object, const netsnmp_variable_list& binding) {
    if (binding.type != asnOf(object.type()))
        return std::nullopt;
    Value value;
    if (object.type() == Type::text)
        value.text.assign(reinterpret_cast<const char*>(binding.val.string), binding.val_len);
    else
        value.number = *binding.val.integer;
    return value;
}

Assignment toAssignment(const netsnmp_variable_list& binding) {
    Assignment assignment{nameOf(binding), nullptr, std::nullopt, ErrorStatus::notWritable};
    assignment.object = findObject(assignment.name);
    if (assignment.object == nullptr)
        return assignment;
    assignment.value = toValue(*assignment.object, binding);
    if (assignment.object->writable())
        assignment.error = assignment.value ? errorOf(check(*assignment.object, *assignment.value))
                                            : ErrorStatus::wrongType;
    return assignment;
}

/// The sender and the request's Id: the same when the request is repeated. Empty in a subagent,
/// which is not told the sender; its master does not pass a repeated request on either.
std::string senderOf(const netsnmp_pdu* pdu) {
    if (pdu == nullptr || pdu->transport_data == nullptr || pdu->transport_data_length <= 0)
        return "";
    std::string text(static_cast<const char*>(pdu->transport_data),
                     static_cast<std::size_t>(pdu->transport_data_length));
    text.append(pdu->securityName != nullptr ? pdu->securityName : "", pdu->securityNameLen);
    return text + std::to_string(pdu->reqid);
}

std::string valuesOf(const netsnmp_request_info* requests) {
    std::string text;
    for (const auto* request = requests; request != nullptr; request = request->next) {
        const netsnmp_variable_list& binding = *request->requestvb;
        text.append(reinterpret_cast<const char*>(binding.name),
                    binding.name_length * sizeof *binding.name);
        text.append(reinterpret_cast<const char*>(binding.val.string), binding.val_len);
    }
    return text;
}

/// The user and the address. A community is not shown: it is as good as a password.
std::string describeManager(const netsnmp_agent_session& asked, const netsnmp_pdu& pdu) {
    std::string who = pdu.securityModel == SNMP_SEC_MODEL_USM && pdu.securityName != nullptr
                          ? printable({pdu.securityName, pdu.securityNameLen}, 32)
                          : "a community";
    void* const session = snmp_sess_pointer(asked.session);
    auto* const transport = session != nullptr ? snmp_sess_transport(session) : nullptr;
    if (transport == nullptr || transport->f_fmtaddr == nullptr)
        return who;
    char* const address =
        transport->f_fmtaddr(transport, pdu.transport_data, pdu.transport_data_length);
    if (address != nullptr)
        who += std::string(" from ") + address;
    std::free(address);
    return who.substr(0, who.find("->")); // its own address
}

} // namespace

Oid nameOf(const netsnmp_variable_list& binding) {
    return {binding.name, binding.name + binding.name_length};
}

const Object* findObject(const Oid& name) {
    const auto found =
        std::find_if(objects().begin(), objects().end(), [&name](const Object& object) {
            const Oid& root = object.name();
            return name.size() >= root.size() && std::equal(root.begin(), root.end(), name.begin());
        });
    return found != objects().end() ? &*found : nullptr;
}

void store(const Object& object, const Value& value, netsnmp_variable_list& binding) {
    const u_char type = asnOf(object.type());
    if (object.type() == Type::text)
        snmp_set_var_typed_value(&binding, type, value.text.data(), value.text.size());
    else
        snmp_set_var_typed_integer(&binding, type, value.number);
}

ManagerRequest toManagerRequest(const netsnmp_agent_request_info& info,
                                const netsnmp_request_info* requests, Clock::time_point came,
                                bool subagent) {
    const netsnmp_pdu* const pdu = info.asp != nullptr ? info.asp->pdu : nullptr;
    const std::string sender = senderOf(pdu);
    ManagerRequest request{"somebody", sender, sender + valuesOf(requests), came, {}};
    if (subagent)
        request.manager = "a manager of snmpd's";
    else if (pdu != nullptr)
        request.manager = describeManager(*info.asp, *pdu);
    for (; requests != nullptr; requests = requests->next)
        request.assignments.push_back(toAssignment(*requests->requestvb));
    return request;
}

void setAnswer(netsnmp_request_info* requests, const Answer& answer) {
    for (auto place = answer.place; place > 0 && requests->next != nullptr; --place)
        requests = requests->next;
    if (answer.error != ErrorStatus::noError)
        netsnmp_request_set_error(requests, static_cast<int>(answer.error));
}

} // namespace agent::net
