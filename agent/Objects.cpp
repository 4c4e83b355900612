#include "Objects.h"

#include <algorithm>
#include <numeric>
#include <optional>
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

bool put(Value& value, const std::optional<std::string>& text) {
    value.text = text.value_or("");
    return text.has_value();
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

bool readTrialTimeout(const View& view, int, Value& value) {
    return put(value, view.snapshot.trial.timeout.count());
}

bool readTrialRemaining(const View& view, int, Value& value) {
    const Trial& trial = view.snapshot.trial;
    const auto left = std::chrono::ceil<std::chrono::seconds>(trial.end - Clock::now()).count();
    return put(value, trial.state == ChangeState::pending && left > 0 ? left : 0);
}

bool readChange(const View&, int, Value& value) {
    return put(value, 1L); // none
}

bool readChangeState(const View& view, int, Value& value) {
    return put(value, static_cast<long>(view.snapshot.undoing ? ChangeState::restoring
                                                              : view.snapshot.trial.state));
}

const View* itself(const View& view, int) {
    return &view;
}

const Counters* health(const View& view, int) {
    return &view.snapshot.counters;
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

// How values are written.

/// Sets a text through a library call.
template <class Call>
int writeText(const Value& value, Call call) {
    std::string text = value.text;
    return accessText(access_set, text, call);
}

/// Sets a TruthValue through a library call.
template <class Call>
int writeTruth(const Value& value, Call call) {
    int truth = static_cast<int>(value.number);
    return call(&truth);
}

int defaultBridge() {
    int bridge = -1;
    int lan = -1;
    int wan = -1;
    int filter = -1;
    default_Bridge(access_get, &bridge, &lan, &wan, &filter);
    return bridge;
}

/// Makes a change that can do away with the default bridge. Without a filter, the library leaves
/// the bridge's own row behind.
template <class Change>
int withoutRemains(Change change) {
    const int before = defaultBridge();
    const int status = change();
    if (status != CORVANTA_OK || before <= 0 || defaultBridge() == before)
        return status;
    std::string answer;
    const int removed =
        call_cmd(" quorlet \" deletekey    Bridge Id " + std::to_string(before) + " ;\" ", answer,
                 kTracedLevel);
    return removed == CORVANTA_UNKNOWN_ROW ? CORVANTA_OK : removed;
}

int writeDefaultWan(int, const Value& value) {
    return withoutRemains([&value] {
        return writeText(value, [](char* text, int size, int* length) {
            return VlanDefaultWanInterface(access_set, text, size, length);
        });
    });
}

int writeDiscardUntagged(int, const Value& value) {
    return writeTruth(value,
                      [](int* truth) { return VlanDiscardUntaggedFrames_snmp(access_set, truth); });
}

int writeCircuitEnabled(int row, const Value& value) {
    return writeTruth(value, [row](int* truth) { return AtmEnabled_snmp(access_set, truth, row); });
}

template <vantorKx9_param_ids Param>
int writeCircuitId(int row, const Value& value) {
    atm_entry entry{};
    if (const int status = atm_access_c(access_get, &entry, row, Param); status != CORVANTA_OK)
        return status;
    (Param == vantorKx9_Vpi ? entry.Vpi : entry.Vci) = static_cast<std::int32_t>(value.number);
    return atm_access_c(access_set, &entry, row, Param);
}

int writeVlanEnabled(int row, const Value& value) {
    return writeTruth(value,
                      [row](int* truth) { return VlanEnabled_snmp(access_set, truth, row); });
}

/// A VLAN object that is off has no bridge: the library stores the change, then misses the bridge.
int storedWhenOff(int status, int row) {
    int enabled = 0;
    const bool off = VlanEnabled_snmp(access_get, &enabled, row) == CORVANTA_OK && enabled == 2;
    return off && status == CORVANTA_UNKNOWN_ROW ? CORVANTA_OK : status;
}

int writeVlanDiscardTag(int row, const Value& value) {
    const int status = writeTruth(
        value, [row](int* truth) { return VlanDiscardTag_snmp(access_set, truth, row); });
    return storedWhenOff(status, row);
}

int writeVlanWan(int row, const Value& value) {
    return withoutRemains([row, &value] {
        const int status = writeText(value, [row](char* text, int size, int* length) {
            return VlanWanInterface(access_set, text, size, length, row);
        });
        return storedWhenOff(status, row);
    });
}

bool inName(char c) {
    return c > ' ' && c <= '~' && std::string_view("\"$`\\;|").find(c) == std::string_view::npos;
}

/// Rows that may have values; what a row lacks, its objects' read functions tell.
std::vector<int> rowsOf(const Model& model, Source source) {
    if (source == Source::agent || source == Source::scalar)
        return {0};
    std::vector<int> list;
    if (source == Source::mapping) {
        for (const IfMapping& row : model.mapping)
            list.push_back(row.index);
    } else {
        list.resize(source == Source::layer2 ? model.layer2.size() : kUnits);
        std::iota(list.begin(), list.end(), 1);
    }
    return list;
}

} // namespace

Counters& Counters::operator+=(const Counters& other) {
    refreshesDone += other.refreshesDone;
    refreshesFailed += other.refreshesFailed;
    clientsKilled += other.clientsKilled;
    journalsDamaged += other.journalsDamaged;
    rowsNotRestored += other.rowsNotRestored;
    reverts += other.reverts;
    return *this;
}

Object::Object(std::initializer_list<oid> arcs, const char* label, u_char type, Source source,
               Read reader)
    : m_name(below(arcs)), m_label(label), m_type(type), m_source(source), m_read(reader) {}

Object& Object::written(Write writer, Tables tables) {
    m_write = writer;
    m_tables = tables;
    return *this;
}

Object& Object::writtenInOwnRow(Write writer, Table table) {
    m_ownRow = true;
    return written(writer, {table});
}

Object& Object::controls(Control control) {
    m_control = control;
    return *this;
}

Object& Object::range(long minimum, long maximum) {
    m_minimum = minimum;
    m_maximum = maximum;
    return *this;
}

std::vector<oid> below(std::initializer_list<oid> arcs) {
    std::vector<oid> name = {1, 3, 6, 1, 4, 1, CORVANTA_ENTERPRISE, 1, 1};
    name.insert(name.end(), arcs);
    return name;
}

const std::vector<Object>& objects() {
    using C = Counters;
    using R = speedInfo_s;
    constexpr u_char kText = ASN_OCTET_STR;
    constexpr long kLongestName = 13;
    constexpr Tables kCircuit{Table::atm, Table::node};
    constexpr Tables kDiscard{Table::vlanParams, Table::bridgeInterface, Table::bridgeFilter};
    constexpr Tables kBridging{Table::bridge,    Table::bridgeInterface, Table::bridgeFilter,
                               Table::node,      Table::netif,           Table::vlan,
                               Table::vlanParams};
    constexpr auto kWriteVpi = writeCircuitId<vantorKx9_Vpi>;
    constexpr auto kWriteVci = writeCircuitId<vantorKx9_Vci>;
    // clang-format off
    static const std::vector<Object> table = {
        // corvantaHealth
        Object({1, 1}, "cvRefreshesDone", ASN_COUNTER, Source::agent, read<health, &C::refreshesDone>),
        Object({1, 2}, "cvRefreshesFailed", ASN_COUNTER, Source::agent, read<health, &C::refreshesFailed>),
        Object({1, 3}, "cvSecondsSinceRefresh", ASN_GAUGE,   Source::agent, readAge),
        Object({1, 4}, "cvSetsRefused", ASN_COUNTER, Source::agent, read<itself, &View::setsRefused>),
        Object({1, 5}, "cvClientsKilled", ASN_COUNTER, Source::agent, read<health, &C::clientsKilled>),
        Object({1, 6}, "cvJournalsDamaged", ASN_COUNTER, Source::agent, read<health, &C::journalsDamaged>),
        Object({1, 7}, "cvRowsNotRestored", ASN_COUNTER, Source::agent, read<health, &C::rowsNotRestored>),
        // corvantaDsl
        Object({2, 1}, "cvDslActualRateDown", ASN_GAUGE, Source::scalar, read<rates, &R::dslActualDataRateDown>),
        Object({2, 2}, "cvDslActualRateUp", ASN_GAUGE, Source::scalar, read<rates, &R::dslActualDataRateUp>),
        Object({2, 3}, "cvDslAttainableRateDown", ASN_GAUGE, Source::scalar, read<rates, &R::dslAttainableDataRateDown>),
        Object({2, 4}, "cvDslAttainableRateUp", ASN_GAUGE, Source::scalar, read<rates, &R::dslAttainableDataRateUp>),
        // corvantaBridging
        Object({3, 1}, "cvDefaultWanInterface", kText,       Source::scalar, read<device, &Model::defaultWan>)
            .written(writeDefaultWan, kBridging).range(0, kLongestName),
        Object({3, 2}, "cvDiscardUntaggedFrames", ASN_INTEGER, Source::scalar, read<device, &Model::discardUntagged>)
            .written(writeDiscardUntagged, kDiscard).range(1, 2),
        // cvLayer2IfTable
        Object({4, 1, 2}, "cvLayer2IfName", kText,       Source::layer2, read<layer2, &Layer2If::name>),
        Object({4, 1, 3}, "cvLayer2IfState", ASN_INTEGER, Source::layer2, read<layer2, &Layer2If::state>),
        // cvIfMapTable
        Object({5, 1, 2}, "cvIfMapPhysicalName", kText, Source::mapping, read<mapping, &IfMapping::physical>),
        Object({5, 1, 3}, "cvIfMapLogicalName", kText, Source::mapping, read<mapping, &IfMapping::logical>),
        // cvCircuitTable
        Object({6, 1, 2}, "cvCircuitEnabled", ASN_INTEGER, Source::circuits, read<circuit, &Circuit::enabled>)
            .written(writeCircuitEnabled, kCircuit).range(1, 2),
        Object({6, 1, 3}, "cvCircuitDeviceName", kText,       Source::circuits, read<circuit, &Circuit::deviceName>),
        Object({6, 1, 4}, "cvCircuitVpi", ASN_INTEGER, Source::circuits, read<circuit, &Circuit::vpi>)
            .writtenInOwnRow(kWriteVpi, Table::atm).range(0, 255),
        Object({6, 1, 5}, "cvCircuitVci", ASN_INTEGER, Source::circuits, read<circuit, &Circuit::vci>)
            .writtenInOwnRow(kWriteVci, Table::atm).range(0, 65535),
        Object({6, 1, 6}, "cvCircuitFcsPreserve", ASN_INTEGER, Source::circuits, read<circuit, &Circuit::fcsPreserve>),
        // cvVlanTable
        Object({7, 1, 2}, "cvVlanEnabled", ASN_INTEGER, Source::vlans, read<vlan, &Vlan::enabled>)
            .written(writeVlanEnabled, kBridging).range(1, 2),
        Object({7, 1, 3}, "cvVlanDiscardTag", ASN_INTEGER, Source::vlans, read<vlan, &Vlan::discardTag>)
            .written(writeVlanDiscardTag, kBridging).range(1, 2),
        Object({7, 1, 4}, "cvVlanWanInterface", kText,       Source::vlans, read<vlan, &Vlan::wanInterface>)
            .written(writeVlanWan, kBridging).range(0, kLongestName),
        // corvantaChange
        Object({8, 1}, "cvConfirmTimeout", ASN_UNSIGNED, Source::agent, readTrialTimeout)
            .controls(Control::confirmTimeout).range(0, kLongestTrial),
        Object({8, 2}, "cvConfirmRemaining", ASN_GAUGE,   Source::agent, readTrialRemaining),
        Object({8, 3}, "cvChange", ASN_INTEGER, Source::agent, readChange).controls(Control::change).range(1, 3),
        Object({8, 4}, "cvChangeState", ASN_INTEGER, Source::agent, readChangeState),
    };
    // clang-format on
    return table;
}

const Object* findObject(const netsnmp_variable_list& binding) {
    for (const Object& object : objects()) {
        if (netsnmp_oid_is_subtree(object.name().data(), object.name().size(), binding.name,
                                   binding.name_length) == 0)
            return &object;
    }
    return nullptr;
}

std::vector<Instance> listInstances(const Snapshot& snapshot) {
    std::vector<Instance> list;
    Value value;
    for (const Object& object : objects()) {
        for (const int row : rowsOf(snapshot.model, object.source())) {
            if (!object.read({snapshot}, row, value))
                continue;
            list.push_back({&object, row, object.name()});
            list.back().name.push_back(static_cast<oid>(row));
        }
    }
    return list;
}

void store(const Object& object, const Value& value, netsnmp_variable_list& binding) {
    if (object.type() == ASN_OCTET_STR)
        snmp_set_var_typed_value(&binding, object.type(), value.text.data(), value.text.size());
    else
        snmp_set_var_typed_integer(&binding, object.type(), value.number);
}

int check(const Object& object, const Value& value) {
    const bool text = object.type() == ASN_OCTET_STR;
    const long measure = text ? static_cast<long>(value.text.size()) : value.number;
    if (measure < object.minimum() || measure > object.maximum())
        return text ? SNMP_ERR_WRONGLENGTH : SNMP_ERR_WRONGVALUE;
    return std::all_of(value.text.begin(), value.text.end(), inName) ? SNMP_ERR_NOERROR
                                                                     : SNMP_ERR_WRONGVALUE;
}

int check(const Object& object, const netsnmp_variable_list& binding, Value& value) {
    if (binding.type != object.type())
        return SNMP_ERR_WRONGTYPE;
    if (object.type() == ASN_OCTET_STR)
        value.text.assign(reinterpret_cast<const char*>(binding.val.string), binding.val_len);
    else
        value.number = *binding.val.integer;
    return check(object, value);
}

} // namespace agent
