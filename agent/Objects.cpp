#include "Objects.h"

#include <algorithm>
#include <numeric>
#include <string_view>

namespace agent {

namespace {

// How values are read from a snapshot: the record that a row stands for, and a field of it.

bool put(Value& value, long number) {
    value.number = number;
    return true;
}

bool put(Value& value, const std::string& text) {
    value.text = text;
    return true;
}

bool put(Value& value, Truth truth) {
    return put(value, truth.value) && truth.value != 0;
}

template <auto Record, auto Field>
bool read(const View& view, int row, Value& value) {
    const auto* record = Record(view, row);
    return record != nullptr && put(value, record->*Field);
}

bool readAge(const View& view, int, Value& value) {
    const auto age = Clock::now() - view.snapshot.refreshed;
    return put(value, std::chrono::duration_cast<std::chrono::seconds>(age).count());
}

const View* agent(const View& view, int) {
    return &view;
}

const Snapshot* health(const View& view, int) {
    return &view.snapshot;
}

const Model* device(const View& view, int) {
    return &view.snapshot.model;
}

const speedInfo_s* rates(const View& view, int) {
    return &view.snapshot.model.rates;
}

const Layer2If* layer2(const View& view, int row) {
    return &view.snapshot.model.layer2[static_cast<std::size_t>(row - 1)];
}

const IfMapping* mapping(const View& view, int index) {
    const std::vector<IfMapping>& rows = view.snapshot.model.mapping;
    const auto found = std::find_if(rows.begin(), rows.end(),
                                    [index](const IfMapping& row) { return row.index == index; });
    return found == rows.end() ? nullptr : &*found;
}

const Circuit* circuit(const View& view, int row) {
    const Circuit& found = view.snapshot.model.circuits[static_cast<std::size_t>(row)];
    return found.present ? &found : nullptr;
}

const Vlan* vlan(const View& view, int row) {
    const Vlan& found = view.snapshot.model.vlans[static_cast<std::size_t>(row)];
    return found.present ? &found : nullptr;
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
    if (rows == Rows::health || rows == Rows::scalar)
        return {0};
    std::vector<int> list;
    if (rows == Rows::mapping) {
        for (const IfMapping& row : model.mapping)
            list.push_back(row.index);
    } else {
        list.resize(rows == Rows::layer2 ? model.layer2.size() : kUnits);
        std::iota(list.begin(), list.end(), 1);
    }
    return list;
}

} // namespace

std::vector<oid> below(std::initializer_list<oid> arcs) {
    std::vector<oid> name = {1, 3, 6, 1, 4, 1, CORVANTA_ENTERPRISE, 1, 1};
    name.insert(name.end(), arcs);
    return name;
}

const std::vector<Object>& objects() {
    using S = Snapshot;
    using R = speedInfo_s;
    constexpr u_char kText = ASN_OCTET_STR;
    constexpr unsigned kFresh = kCache | kCached; // others change the database too
    constexpr unsigned kWan = kCached | kParents | kDefaultWan;
    constexpr auto accessVpi = accessCircuitId<vantorKx9_Vpi>;
    constexpr auto accessVci = accessCircuitId<vantorKx9_Vci>;
    // clang-format off
    static const std::vector<Object> table = {
        // corvantaHealth
        {below({1, 1}), ASN_COUNTER, Rows::health, read<health, &S::refreshesDone>},
        {below({1, 2}), ASN_COUNTER, Rows::health, read<health, &S::refreshesFailed>},
        {below({1, 3}), ASN_GAUGE,   Rows::health, readAge},
        {below({1, 4}), ASN_COUNTER, Rows::health, read<agent, &View::setsRefused>},
        // corvantaDsl
        {below({2, 1}), ASN_GAUGE, Rows::scalar, read<rates, &R::dslActualDataRateDown>},
        {below({2, 2}), ASN_GAUGE, Rows::scalar, read<rates, &R::dslActualDataRateUp>},
        {below({2, 3}), ASN_GAUGE, Rows::scalar, read<rates, &R::dslAttainableDataRateDown>},
        {below({2, 4}), ASN_GAUGE, Rows::scalar, read<rates, &R::dslAttainableDataRateUp>},
        // corvantaBridging
        {below({3, 1}), kText,       Rows::scalar, read<device, &Model::defaultWan>,      accessDefaultWan,      0, 13, kFresh, kWan, true},
        {below({3, 2}), ASN_INTEGER, Rows::scalar, read<device, &Model::discardUntagged>, accessDiscardUntagged, 1, 2, 0, kDiscard},
        // cvLayer2IfTable
        {below({4, 1, 2}), kText,       Rows::layer2, read<layer2, &Layer2If::name>},
        {below({4, 1, 3}), ASN_INTEGER, Rows::layer2, read<layer2, &Layer2If::state>},
        // cvIfMapTable
        {below({5, 1, 2}), kText, Rows::mapping, read<mapping, &IfMapping::physical>},
        {below({5, 1, 3}), kText, Rows::mapping, read<mapping, &IfMapping::logical>},
        // cvCircuitTable
        {below({6, 1, 2}), ASN_INTEGER, Rows::circuits, read<circuit, &Circuit::enabled>, accessCircuitEnabled, 1, 2, 0, kFresh},
        {below({6, 1, 3}), kText,       Rows::circuits, read<circuit, &Circuit::deviceName>},
        {below({6, 1, 4}), ASN_INTEGER, Rows::circuits, read<circuit, &Circuit::vpi>, accessVpi, 0, 255, 0, kCached | kLayer2},
        {below({6, 1, 5}), ASN_INTEGER, Rows::circuits, read<circuit, &Circuit::vci>, accessVci, 0, 65535, 0, kCached},
        {below({6, 1, 6}), ASN_INTEGER, Rows::circuits, read<circuit, &Circuit::fcsPreserve>},
        // cvVlanTable
        {below({7, 1, 2}), ASN_INTEGER, Rows::vlans, read<vlan, &Vlan::enabled>,      accessVlanEnabled,    1, 2, kFresh, kCached, true},
        {below({7, 1, 3}), ASN_INTEGER, Rows::vlans, read<vlan, &Vlan::discardTag>,   accessVlanDiscardTag, 1, 2, kFresh, kCached},
        {below({7, 1, 4}), kText,       Rows::vlans, read<vlan, &Vlan::wanInterface>, accessVlanWan,        0, 13, kFresh, kWan},
    };
    // clang-format on
    return table;
}

const Object* findObject(const netsnmp_variable_list& binding) {
    for (const Object& object : objects()) {
        if (netsnmp_oid_is_subtree(object.name.data(), object.name.size(), binding.name,
                                   binding.name_length) == 0)
            return &object;
    }
    return nullptr;
}

std::vector<Instance> listInstances(const Snapshot& snapshot) {
    std::vector<Instance> list;
    Value value;
    for (const Object& object : objects()) {
        for (const int row : rowsOf(snapshot.model, object.rows)) {
            if (!object.read({snapshot, 0}, row, value))
                continue;
            list.push_back({&object, row, object.name});
            list.back().name.push_back(static_cast<oid>(row));
        }
    }
    return list;
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
