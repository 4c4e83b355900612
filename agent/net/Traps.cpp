#include "agent/net/Traps.h"

#include "agent/net/Variables.h"

#include <iterator>

namespace agent::net {

namespace {

/// The bindings of a notification, which are sent and released with it.
class Bindings {
public:
    explicit Bindings(Notification::Kind kind) {
        static const oid trapOid[] = {1, 3, 6, 1, 6, 3, 1, 1, 4, 1, 0};
        const oid name[] = {1, 3, 6, 1, 4, 1, CORVANTA_ENTERPRISE, 1, 0, static_cast<oid>(kind)};
        snmp_varlist_add_variable(&m_list, trapOid, std::size(trapOid), ASN_OBJECT_ID, name,
                                  sizeof name);
    }
    ~Bindings() { snmp_free_varbind(m_list); }
    Bindings(const Bindings&) = delete;
    Bindings& operator=(const Bindings&) = delete;

    netsnmp_variable_list* add(const Oid& name) {
        return snmp_varlist_add_variable(&m_list, name.data(), name.size(), ASN_NULL, nullptr, 0);
    }
    void send() { send_v2trap(m_list); }

private:
    netsnmp_variable_list* m_list = nullptr;
};

/// The objects of a row of the table of interfaces.
void addCircuit(const Snapshot& snapshot, int row, Bindings& bindings) {
    for (const Instance& instance : snapshot.instances) {
        Value value;
        if (instance.object->source() != Source::layer2 || instance.row != row ||
            !instance.object->read({snapshot}, row, value))
            continue;
        if (auto* binding = bindings.add(instance.name))
            store(*instance.object, value, *binding);
    }
}

/// cvChangeReason.
void addReason(RevertReason reason, Bindings& bindings) {
    if (auto* binding = bindings.add(below({8, 5, 0})))
        snmp_set_var_typed_integer(binding, ASN_INTEGER, static_cast<long>(reason));
}

} // namespace

void send(const Notification& notification, const Snapshot& snapshot) {
    Bindings bindings(notification.kind);
    if (notification.kind == Notification::Kind::changeReverted)
        addReason(notification.reason, bindings);
    else
        addCircuit(snapshot, notification.row, bindings);
    bindings.send();
}

} // namespace agent::net
