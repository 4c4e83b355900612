#include "agent/link/Objects.h"

#include "agent/change/Command.h"

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

template <auto Record, auto Field>
bool read(const View& view, int row, Value& value) {
    const auto* record = Record(view, row);
    return record != nullptr && put(value, record->*Field);
}

bool readAge(const View& view, int, Value& value) {
    const auto age = view.now - view.snapshot.refreshed;
    return put(value, std::chrono::duration_cast<std::chrono::seconds>(age).count());
}

bool readTrialTimeout(const View& view, int, Value& value) {
    return put(value, view.snapshot.trial.timeout.count());
}

bool readTrialRemaining(const View& view, int, Value& value) {
    const Trial& trial = view.snapshot.trial;
    const auto left = std::chrono::ceil<std::chrono::seconds>(trial.end - view.now).count();
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

const Rates* rates(const View& view, int) {
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

/// Names have no blanks, and the client prints a "|" between two columns.
bool inName(char c) {
    return c > ' ' && c <= '~' && c != '|' && isSafe(c);
}

/// Rows that may have values. The objects' read functions tell whether one is missing.
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

Object::Object(std::initializer_list<unsigned long> arcs, const char* label, Type type,
               Source source, Read reader)
    : m_name(below(arcs)), m_label(label), m_type(type), m_source(source), m_read(reader) {}

bool Object::read(const View& view, int row, Value& value) const {
    if (m_read != nullptr)
        return m_read(view, row, value);
    const auto& values = view.snapshot.model.values;
    const auto rows = values.find(m_label);
    if (rows == values.end())
        return false;
    const auto found = rows->second.find(row);
    if (found == rows->second.end())
        return false;
    value = found->second;
    return true;
}

Object& Object::written(Tables tables) {
    m_tables = tables;
    return *this;
}

Object& Object::writtenInOwnRow(Table table) {
    m_ownRow = true;
    return written({table});
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

Oid below(std::initializer_list<unsigned long> arcs) {
    Oid name = {1, 3, 6, 1, 4, 1, CORVANTA_ENTERPRISE, 1, 1};
    name.insert(name.end(), arcs);
    return name;
}

const std::vector<Object>& objects() {
    using C = Counters;
    using R = Rates;
    constexpr Type kText = Type::text;
    constexpr long kLongestName = 13;
    constexpr Tables kCircuit{Table::atm, Table::node};
    constexpr Tables kDiscard{Table::vlanParams, Table::bridgeInterface, Table::bridgeFilter};
    constexpr Tables kBridging{Table::bridge,    Table::bridgeInterface, Table::bridgeFilter,
                               Table::node,      Table::netif,           Table::vlan,
                               Table::vlanParams};
    // clang-format off
    static const std::vector<Object> table = {
        // corvantaHealth
        Object({1, 1}, "cvRefreshesDone", Type::counter, Source::agent, read<health, &C::refreshesDone>),
        Object({1, 2}, "cvRefreshesFailed", Type::counter, Source::agent, read<health, &C::refreshesFailed>),
        Object({1, 3}, "cvSecondsSinceRefresh", Type::gauge,   Source::agent, readAge),
        Object({1, 4}, "cvSetsRefused", Type::counter, Source::agent, read<itself, &View::setsRefused>),
        Object({1, 5}, "cvClientsKilled", Type::counter, Source::agent, read<health, &C::clientsKilled>),
        Object({1, 6}, "cvJournalsDamaged", Type::counter, Source::agent, read<health, &C::journalsDamaged>),
        Object({1, 7}, "cvRowsNotRestored", Type::counter, Source::agent, read<health, &C::rowsNotRestored>),
        // corvantaDsl
        Object({2, 1}, "cvDslActualRateDown", Type::gauge, Source::scalar, read<rates, &R::actualDown>),
        Object({2, 2}, "cvDslActualRateUp", Type::gauge, Source::scalar, read<rates, &R::actualUp>),
        Object({2, 3}, "cvDslAttainableRateDown", Type::gauge, Source::scalar, read<rates, &R::attainableDown>),
        Object({2, 4}, "cvDslAttainableRateUp", Type::gauge, Source::scalar, read<rates, &R::attainableUp>),
        // corvantaBridging
        Object({3, 1}, "cvDefaultWanInterface", kText,       Source::scalar)
            .written(kBridging).range(0, kLongestName),
        Object({3, 2}, "cvDiscardUntaggedFrames", Type::integer, Source::scalar)
            .written(kDiscard).range(1, 2),
        // cvLayer2IfTable
        Object({4, 1, 2}, "cvLayer2IfName", kText,       Source::layer2, read<layer2, &Layer2If::name>),
        Object({4, 1, 3}, "cvLayer2IfState", Type::integer, Source::layer2, read<layer2, &Layer2If::state>),
        // cvIfMapTable
        Object({5, 1, 2}, "cvIfMapPhysicalName", kText, Source::mapping, read<mapping, &IfMapping::physical>),
        Object({5, 1, 3}, "cvIfMapLogicalName", kText, Source::mapping, read<mapping, &IfMapping::logical>),
        // cvCircuitTable
        Object({6, 1, 2}, "cvCircuitEnabled", Type::integer, Source::circuits)
            .written(kCircuit).range(1, 2),
        Object({6, 1, 3}, "cvCircuitDeviceName", kText,       Source::circuits),
        Object({6, 1, 4}, "cvCircuitVpi", Type::integer, Source::circuits)
            .writtenInOwnRow(Table::atm).range(0, 255),
        Object({6, 1, 5}, "cvCircuitVci", Type::integer, Source::circuits)
            .writtenInOwnRow(Table::atm).range(0, 65535),
        Object({6, 1, 6}, "cvCircuitFcsPreserve", Type::integer, Source::circuits),
        // cvVlanTable
        Object({7, 1, 2}, "cvVlanEnabled", Type::integer, Source::vlans)
            .written(kBridging).range(1, 2),
        Object({7, 1, 3}, "cvVlanDiscardTag", Type::integer, Source::vlans)
            .written(kBridging).range(1, 2),
        Object({7, 1, 4}, "cvVlanWanInterface", kText,       Source::vlans)
            .written(kBridging).range(0, kLongestName),
        // corvantaChange
        Object({8, 1}, "cvConfirmTimeout", Type::unsigned32, Source::agent, readTrialTimeout)
            .controls(Control::confirmTimeout).range(0, kLongestTrial),
        Object({8, 2}, "cvConfirmRemaining", Type::gauge,   Source::agent, readTrialRemaining),
        Object({8, 3}, "cvChange", Type::integer, Source::agent, readChange).controls(Control::change).range(1, 3),
        Object({8, 4}, "cvChangeState", Type::integer, Source::agent, readChangeState),
    };
    // clang-format on
    return table;
}

std::vector<Instance> listInstances(const Snapshot& snapshot) {
    std::vector<Instance> list;
    Value value;
    for (const Object& object : objects()) {
        for (const int row : rowsOf(snapshot.model, object.source())) {
            if (!object.read({snapshot}, row, value))
                continue;
            list.push_back({&object, row, object.name()});
            list.back().name.push_back(static_cast<unsigned long>(row));
        }
    }
    return list;
}

Fit check(const Object& object, const Value& value) {
    const bool text = object.type() == Type::text;
    const long measure = text ? static_cast<long>(value.text.size()) : value.number;
    if (measure < object.minimum() || measure > object.maximum())
        return text ? Fit::wrongLength : Fit::wrongValue;
    return std::all_of(value.text.begin(), value.text.end(), inName) ? Fit::fits : Fit::wrongValue;
}

} // namespace agent
