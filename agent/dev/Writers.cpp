#include "agent/dev/Writers.h"

#include "agent/dev/DeviceModel.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <string_view>

namespace agent::dev {

namespace {

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

/// Makes a change that can remove the default bridge. Of a bridge that has no filter, the library
/// leaves the row in `Bridge` behind.
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

/// A VLAN object that is off has no bridge: the library stores the change, then finds no bridge.
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

constexpr struct {
    std::string_view object; ///< its name in the MIB
    int (*write)(int row, const Value& value);
} kWriters[] = {
    {"cvDefaultWanInterface", writeDefaultWan},
    {"cvDiscardUntaggedFrames", writeDiscardUntagged},
    {"cvCircuitEnabled", writeCircuitEnabled},
    {"cvCircuitVpi", writeCircuitId<vantorKx9_Vpi>},
    {"cvCircuitVci", writeCircuitId<vantorKx9_Vci>},
    {"cvVlanEnabled", writeVlanEnabled},
    {"cvVlanDiscardTag", writeVlanDiscardTag},
    {"cvVlanWanInterface", writeVlanWan},
};

} // namespace

int write(const Object& object, int row, const Value& value) {
    const auto* const writer =
        std::find_if(std::begin(kWriters), std::end(kWriters),
                     [&object](const auto& known) { return known.object == object.label(); });
    return writer != std::end(kWriters) ? writer->write(row, value) : CORVANTA_NO_COMMAND;
}

} // namespace agent::dev
