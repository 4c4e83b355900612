#include "Objects.h"

#include <algorithm>
#include <string_view>

namespace agent {

namespace {

// How values are read from a snapshot. Where the database held neither 0 nor 1, the library gives a
// TruthValue as 0: no value of the object's type.

bool have(Value& value, long number) {
    value.number = number;
    return true;
}

bool have(Value& value, const std::string& text) {
    value.text = text;
    return true;
}

bool haveTruth(Value& value, int truth) {
    return have(value, truth) && truth != 0;
}

template <auto Counter>
bool readHealth(const View& view, int, Value& value) {
    return have(value, view.snapshot.*Counter);
}

bool readAge(const View& view, int, Value& value) {
    const auto age = Clock::now() - view.snapshot.refreshed;
    return have(value, std::chrono::duration_cast<std::chrono::seconds>(age).count());
}

bool readSetsRefused(const View& view, int, Value& value) {
    return have(value, view.setsRefused);
}

template <auto Rate>
bool readRate(const View& view, int, Value& value) {
    return have(value, view.snapshot.model.rates.*Rate);
}

bool readDefaultWan(const View& view, int, Value& value) {
    return have(value, view.snapshot.model.defaultWan);
}

bool readDiscardUntagged(const View& view, int, Value& value) {
    return haveTruth(value, view.snapshot.model.discardUntagged);
}

template <auto Field>
bool readLayer2(const View& view, int row, Value& value) {
    return have(value, view.snapshot.model.layer2[static_cast<std::size_t>(row - 1)].*Field);
}

template <auto Field>
bool readMapping(const View& view, int index, Value& value) {
    for (const IfMapping& row : view.snapshot.model.mapping) {
        if (row.index == index)
            return have(value, row.*Field);
    }
    return false;
}

const Circuit& circuit(const View& view, int row) {
    return view.snapshot.model.circuits[static_cast<std::size_t>(row)];
}

template <auto Field>
bool readCircuit(const View& view, int row, Value& value) {
    return circuit(view, row).loaded && have(value, circuit(view, row).*Field);
}

template <auto Field>
bool readCircuitTruth(const View& view, int row, Value& value) {
    return haveTruth(value, circuit(view, row).*Field);
}

const Vlan& vlan(const View& view, int row) {
    return view.snapshot.model.vlans[static_cast<std::size_t>(row)];
}

template <auto Field>
bool readVlanTruth(const View& view, int row, Value& value) {
    return vlan(view, row).present && haveTruth(value, vlan(view, row).*Field);
}

bool readVlanWan(const View& view, int row, Value& value) {
    return vlan(view, row).present && have(value, vlan(view, row).wanInterface);
}

// How values are read from and written to the database.

int accessDefaultWan(access_type access, int, Value& value) {
    return accessText(access, value.text, [access](char* text, int size, int* length) {
        return VlanDefaultWanInterface(access, text, size, length);
    });
}

/// Runs a library call on the value as an int.
template <class Call>
int accessNumber(Value& value, Call call) {
    int number = static_cast<int>(value.number);
    const int status = call(&number);
    value.number = number;
    return status;
}

int accessDiscardUntagged(access_type access, int, Value& value) {
    return accessNumber(
        value, [access](int* truth) { return VlanDiscardUntaggedFrames_snmp(access, truth); });
}

int accessCircuitEnabled(access_type access, int row, Value& value) {
    return accessNumber(value,
                        [access, row](int* truth) { return AtmEnabled_snmp(access, truth, row); });
}

template <vantorKx9_param_ids Param>
int accessCircuitId(access_type access, int row, Value& value) {
    constexpr bool vpi = Param == vantorKx9_Vpi;
    return accessNumber(value, [access, row](int* number) {
        if (access == access_get)
            return config_int_access_by_id(access, number, "Atm", vpi ? "Vpi" : "Vci", row);
        atm_entry entry{};
        if (const int status = atm_access_c(access_get, &entry, row, Param); status != CORVANTA_OK)
            return status;
        (vpi ? entry.Vpi : entry.Vci) = *number;
        return atm_access_c(access, &entry, row, Param);
    });
}

/// Reads the flag that a VLAN object's handler takes from the cache, as the database has it now.
int readVlanFlag(int* truth, int vlanRow) {
    int flag = 0;
    const int status = config_int_access_by_id(access_get, &flag, "VLAN", "Enable", vlanRow);
    *truth = TruthValue_internal_to_snmp(flag);
    return status;
}

int accessVlanEnabled(access_type access, int row, Value& value) {
    return accessNumber(value, [access, row](int* truth) {
        return access == access_get ? readVlanFlag(truth, 2 * row - 1)
                                    : VlanEnabled_snmp(access, truth, row);
    });
}

/// A VLAN object that is off has no bridge: the library stores the change, then misses the bridge.
int storedWhenOff(int status, int row) {
    int enabled = 0;
    const bool off = VlanEnabled_snmp(access_get, &enabled, row) == CORVANTA_OK && enabled == 2;
    return off && status == CORVANTA_UNKNOWN_ROW ? CORVANTA_OK : status;
}

int accessVlanDiscardTag(access_type access, int row, Value& value) {
    return accessNumber(value, [access, row](int* truth) {
        if (access != access_get)
            return storedWhenOff(VlanDiscardTag_snmp(access, truth, row), row);
        int carriesTag = 0;
        const int status = readVlanFlag(&carriesTag, 2 * row);
        *truth = carriesTag == 2 ? 1 : 2;
        return status;
    });
}

int accessVlanWan(access_type access, int row, Value& value) {
    const int status = accessText(access, value.text, [=](char* text, int size, int* length) {
        return VlanWanInterface(access, text, size, length, row);
    });
    return access == access_set ? storedWhenOff(status, row) : status;
}

bool inName(char c) {
    return c > ' ' && c <= '~' && std::string_view("\"$`\\;").find(c) == std::string_view::npos;
}

/// Rows that may have values; what a row lacks, its objects' read functions tell.
std::vector<int> rowsOf(const Model& model, Rows rows) {
    std::vector<int> list;
    if (rows == Rows::health || rows == Rows::scalar)
        list.push_back(0);
    else if (rows == Rows::mapping)
        for (const IfMapping& row : model.mapping)
            list.push_back(row.index);
    else
        for (int n = 1;
             n <= (rows == Rows::layer2 ? static_cast<int>(model.layer2.size()) : kUnits); ++n)
            list.push_back(n);
    return list;
}

} // namespace

const std::vector<oid>& objectsRoot() {
    static const std::vector<oid> root = {1, 3, 6, 1, 4, 1, CORVANTA_ENTERPRISE, 1, 1};
    return root;
}

const std::vector<Object>& objects() {
    using S = Snapshot;
    using R = speedInfo_s;
    constexpr u_char kText = ASN_OCTET_STR;
    constexpr unsigned kWan = kCached | kParents | kDefaultWan;
    constexpr auto accessVpi = accessCircuitId<vantorKx9_Vpi>;
    constexpr auto accessVci = accessCircuitId<vantorKx9_Vci>;
    // clang-format off
    static const std::vector<Object> table = {
        // corvantaHealth
        {{1, 1}, ASN_COUNTER, Rows::health, readHealth<&S::refreshesDone>},
        {{1, 2}, ASN_COUNTER, Rows::health, readHealth<&S::refreshesFailed>},
        {{1, 3}, ASN_GAUGE,   Rows::health, readAge},
        {{1, 4}, ASN_COUNTER, Rows::health, readSetsRefused},
        // corvantaDsl
        {{2, 1}, ASN_GAUGE, Rows::scalar, readRate<&R::dslActualDataRateDown>},
        {{2, 2}, ASN_GAUGE, Rows::scalar, readRate<&R::dslActualDataRateUp>},
        {{2, 3}, ASN_GAUGE, Rows::scalar, readRate<&R::dslAttainableDataRateDown>},
        {{2, 4}, ASN_GAUGE, Rows::scalar, readRate<&R::dslAttainableDataRateUp>},
        // corvantaBridging
        {{3, 1}, kText,       Rows::scalar, readDefaultWan,      accessDefaultWan,      0, 13, kWan},
        {{3, 2}, ASN_INTEGER, Rows::scalar, readDiscardUntagged, accessDiscardUntagged, 1, 2, kDiscard},
        // cvLayer2IfTable
        {{4, 1, 2}, kText,       Rows::layer2, readLayer2<&Layer2If::name>},
        {{4, 1, 3}, ASN_INTEGER, Rows::layer2, readLayer2<&Layer2If::state>},
        // cvIfMapTable
        {{5, 1, 2}, kText, Rows::mapping, readMapping<&IfMapping::physical>},
        {{5, 1, 3}, kText, Rows::mapping, readMapping<&IfMapping::logical>},
        // cvCircuitTable
        {{6, 1, 2}, ASN_INTEGER, Rows::circuits, readCircuitTruth<&Circuit::enabled>, accessCircuitEnabled, 1, 2, kCache | kCached},
        {{6, 1, 3}, kText,       Rows::circuits, readCircuit<&Circuit::deviceName>},
        {{6, 1, 4}, ASN_INTEGER, Rows::circuits, readCircuit<&Circuit::vpi>, accessVpi, 0, 255, kCached | kLayer2},
        {{6, 1, 5}, ASN_INTEGER, Rows::circuits, readCircuit<&Circuit::vci>, accessVci, 0, 65535, kCached},
        {{6, 1, 6}, ASN_INTEGER, Rows::circuits, readCircuitTruth<&Circuit::fcsPreserve>},
        // cvVlanTable
        {{7, 1, 2}, ASN_INTEGER, Rows::vlans, readVlanTruth<&Vlan::enabled>,    accessVlanEnabled,    1, 2, kCached},
        {{7, 1, 3}, ASN_INTEGER, Rows::vlans, readVlanTruth<&Vlan::discardTag>, accessVlanDiscardTag, 1, 2, kCached},
        {{7, 1, 4}, kText,       Rows::vlans, readVlanWan,                      accessVlanWan,        0, 13, kWan},
    };
    // clang-format on
    return table;
}

const Object* findObject(const oid* name, std::size_t length) {
    for (const Object& object : objects()) {
        if (length >= object.arcCount() &&
            std::equal(object.arcs, object.arcs + object.arcCount(), name))
            return &object;
    }
    return nullptr;
}

std::vector<Instance> listInstances(const Snapshot& snapshot) {
    std::vector<Instance> list;
    Value value;
    for (const Object& object : objects()) {
        for (const int row : rowsOf(snapshot.model, object.rows)) {
            if (object.read({snapshot, 0}, row, value))
                list.push_back({&object, row});
        }
    }
    return list;
}

int compare(const Instance& instance, const oid* name, std::size_t length) {
    const Object& object = *instance.object;
    const int arcs =
        snmp_oid_compare(object.arcs, object.arcCount(), name, std::min(length, object.arcCount()));
    if (arcs != 0)
        return arcs;
    const oid row = static_cast<oid>(instance.row);
    return snmp_oid_compare(&row, 1, name + object.arcCount(), length - object.arcCount());
}

std::vector<oid> nameOf(const Instance& instance) {
    const Object& object = *instance.object;
    std::vector<oid> name = objectsRoot();
    name.insert(name.end(), object.arcs, object.arcs + object.arcCount());
    name.push_back(static_cast<oid>(instance.row));
    return name;
}

void store(const Object& object, const Value& value, netsnmp_variable_list& binding) {
    if (object.type == ASN_OCTET_STR)
        snmp_set_var_typed_value(&binding, object.type, value.text.data(), value.text.size());
    else
        snmp_set_var_typed_integer(&binding, object.type, value.number);
}

int check(const Object& object, const netsnmp_variable_list& binding, Value& value) {
    if (binding.type != object.type)
        return SNMP_ERR_WRONGTYPE;
    if (object.type != ASN_OCTET_STR) {
        value.number = *binding.val.integer;
        const bool fits = value.number >= object.minimum && value.number <= object.maximum;
        return fits ? SNMP_ERR_NOERROR : SNMP_ERR_WRONGVALUE;
    }
    if (binding.val_len > static_cast<std::size_t>(object.maximum))
        return SNMP_ERR_WRONGLENGTH;
    value.text.assign(reinterpret_cast<const char*>(binding.val.string), binding.val_len);
    const bool name = std::all_of(value.text.begin(), value.text.end(), inName);
    return name ? SNMP_ERR_NOERROR : SNMP_ERR_WRONGVALUE;
}

} // namespace agent
