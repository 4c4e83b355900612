#include "agent/net/Variables.h"

namespace agent {

namespace {

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

int errorOf(Fit fit) {
    switch (fit) {
    case Fit::fits:
        return SNMP_ERR_NOERROR;
    case Fit::wrongLength:
        return SNMP_ERR_WRONGLENGTH;
    case Fit::wrongValue:
        break;
    }
    return SNMP_ERR_WRONGVALUE;
}

} // namespace

const Object* findObject(const netsnmp_variable_list& binding) {
    for (const Object& object : objects()) {
        if (netsnmp_oid_is_subtree(object.name().data(), object.name().size(), binding.name,
                                   binding.name_length) == 0)
            return &object;
    }
    return nullptr;
}

void store(const Object& object, const Value& value, netsnmp_variable_list& binding) {
    const u_char type = asnOf(object.type());
    if (object.type() == Type::text)
        snmp_set_var_typed_value(&binding, type, value.text.data(), value.text.size());
    else
        snmp_set_var_typed_integer(&binding, type, value.number);
}

int check(const Object& object, const netsnmp_variable_list& binding, Value& value) {
    if (binding.type != asnOf(object.type()))
        return SNMP_ERR_WRONGTYPE;
    if (object.type() == Type::text)
        value.text.assign(reinterpret_cast<const char*>(binding.val.string), binding.val_len);
    else
        value.number = *binding.val.integer;
    return errorOf(check(object, value));
}

} // namespace agent
