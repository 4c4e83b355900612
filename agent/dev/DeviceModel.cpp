#include "agent/dev/DeviceModel.h"

#include <cstdlib>
#include <memory>
#include <optional>
#include <string_view>

namespace agent::dev {

namespace {

/// A text of the library, empty when there was no memory for it.
std::string take(char* text) {
    const std::unique_ptr<char, decltype(&std::free)> owned(text, &std::free);
    return owned ? std::string(owned.get()) : std::string();
}

/// Cuts the piece up to `end`, or what there is, off the front of a text.
std::string cut(std::string_view& text, char end) {
    const std::size_t size = text.find(end);
    std::string piece(text.substr(0, size));
    text.remove_prefix(size == text.npos ? text.size() : size + 1);
    return piece;
}

int toInt(const std::string& text) {
    return static_cast<int>(std::strtol(text.c_str(), nullptr, 10));
}

/// Stores the value of an object in a row, or that it has none there.
void set(Model& model, const char* object, int row, const std::optional<Value>& value) {
    if (value)
        model.values[object][row] = *value;
    else
        model.values[object].erase(row);
}

/// A TruthValue; the library gives 0 for what is neither true nor false.
std::optional<Value> truth(int value) {
    return value != 0 ? std::optional<Value>({value, ""}) : std::nullopt;
}

/// Reads a TruthValue through a library call.
template <class Call>
std::optional<Value> readTruth(Call call) {
    int value = 0;
    call(&value);
    return truth(value);
}

void readCircuits(Model& model) {
    for (int n = 1; n <= kUnits; ++n) {
        atm_entry entry{};
        const bool present = atm_access_c(access_get, &entry, n, 0) == CORVANTA_OK &&
                             (entry.Enabled != 0 || entry.DeviceName[0] != '\0');
        const auto setIfPresent = [&](const char* object, const std::optional<Value>& value) {
            set(model, object, n, present ? value : std::nullopt);
        };
        setIfPresent("cvCircuitEnabled", truth(entry.Enabled));
        setIfPresent("cvCircuitDeviceName", Value{0, entry.DeviceName});
        setIfPresent("cvCircuitVpi", Value{entry.Vpi, ""});
        setIfPresent("cvCircuitVci", Value{entry.Vci, ""});
        setIfPresent("cvCircuitFcsPreserve", truth(TruthValue_internal_to_snmp(entry.FcsPreserve)));
    }
}

/// @return the text; empty when the device has no such row, nothing when it cannot be read
template <class Call>
std::optional<Value> readText(bool& present, Call call) {
    Value value;
    const int status = accessText(access_get, value.text, call);
    present = status != CORVANTA_UNKNOWN_ROW;
    if (status != CORVANTA_OK && present)
        return std::nullopt;
    return value;
}

void readVlans(Model& model) {
    for (int n = 1; n <= kUnits; ++n) {
        bool present = false;
        const auto wan = readText(present, [n](char* text, int size, int* length) {
            return VlanWanInterface(access_get, text, size, length, n);
        });
        const auto enabled = readTruth([n](int* value) { VlanEnabled_snmp(access_get, value, n); });
        const auto discardTag =
            readTruth([n](int* value) { VlanDiscardTag_snmp(access_get, value, n); });
        set(model, "cvVlanEnabled", n, present ? enabled : std::nullopt);
        set(model, "cvVlanDiscardTag", n, present ? discardTag : std::nullopt);
        set(model, "cvVlanWanInterface", n, present ? wan : std::nullopt);
    }
}

/// "VC1=1|PPPoE1=1|VC8=2"
void readLayer2(Model& model) {
    const std::string report = take(getLayer2IfStatus());
    model.layer2.clear();
    for (std::string_view rest = report; !rest.empty();) {
        const std::string field = cut(rest, '|');
        std::string_view state = field;
        std::string name = cut(state, '=');
        model.layer2.push_back({std::move(name), toInt(std::string(state))});
    }
}

} // namespace

void readConfiguration(Model& model) {
    update_managed_objects();
    readCircuits(model);
    readVlans(model);
    bool present = false;
    const auto defaultWan = readText(present, [](char* text, int size, int* length) {
        return VlanDefaultWanInterface(access_get, text, size, length);
    });
    set(model, "cvDefaultWanInterface", 0, defaultWan);
    set(model, "cvDiscardUntaggedFrames", 0,
        readTruth([](int* value) { VlanDiscardUntaggedFrames_snmp(access_get, value); }));
    readLayer2(model);
}

bool readLine(Model& model) {
    speedInfo_s rates{};
    if (getSpeedInfo(&rates) != 1)
        return false;
    model.rates = {rates.dslActualDataRateDown, rates.dslActualDataRateUp,
                   rates.dslAttainableDataRateDown, rates.dslAttainableDataRateUp};
    return true;
}

/// "MappingTable[size=14:14, 0=n/a:N/A,1=lo:LOOPBACK]"
void readMapping(Model& model) {
    const std::string table = take(mappingTableToString());
    std::string_view rest(table);
    cut(rest, ' ');
    model.mapping.clear();
    if (rest.empty())
        return;
    rest.remove_suffix(1);
    while (!rest.empty()) {
        const std::string row = cut(rest, ',');
        std::string_view names = row;
        const int index = toInt(cut(names, '='));
        std::string physical = cut(names, ':');
        model.mapping.push_back({index, std::move(physical), std::string(names)});
    }
}

} // namespace agent::dev
