#include "Model.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <string_view>

namespace agent {

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

/// A row or setting that the device doesn't have is no failure.
bool isAnswer(int status) {
    return status == CORVANTA_OK || status == CORVANTA_UNKNOWN_ROW;
}

using Duration = std::chrono::steady_clock::duration;

Duration fastestRun = std::chrono::hours(1); ///< of the client; loadDiscard() measures it

int loadDiscard(Model& model) {
    Truth truth;
    const auto start = std::chrono::steady_clock::now();
    const int status = VlanDiscardUntaggedFrames_snmp(access_get, &truth.value);
    fastestRun = std::min<Duration>(fastestRun, std::chrono::steady_clock::now() - start);
    if (!isAnswer(status))
        return status;
    model.discardUntagged = truth;
    return CORVANTA_OK;
}

/// The library doesn't say how loading went. A read that a locked database defeats has waited 19
/// seconds besides the 49 runs of every load, so a load that was faster holds no such gap. The
/// other failures show in loadCached().
int loadCache(Model&) {
    const auto start = std::chrono::steady_clock::now();
    update_managed_objects();
    const auto taken = std::chrono::steady_clock::now() - start;
    return taken < std::chrono::seconds(19) + 49 * fastestRun ? CORVANTA_OK : CORVANTA_LOCKED;
}

int loadCached(Model& model) {
    for (int n = 1; n <= kUnits; ++n) {
        Circuit& circuit = model.circuits[static_cast<std::size_t>(n)];
        Vlan& vlan = model.vlans[static_cast<std::size_t>(n)];
        atm_entry entry{};
        if (const int status = atm_access_c(access_get, &entry, n, 0); status != CORVANTA_OK)
            return status;
        const bool cached = entry.Enabled != 0 || entry.DeviceName[0] != '\0';
        if (!cached) { // because there is no such row, or because the cache could not be loaded?
            int enabled = 0;
            const int status = AtmEnabled_snmp(access_get, &enabled, n);
            if (!isAnswer(status))
                return status;
        }
        const int fcsPreserve = TruthValue_internal_to_snmp(entry.FcsPreserve);
        circuit = {cached, {entry.Enabled}, entry.DeviceName, entry.Vpi, entry.Vci, {fcsPreserve}};
        VlanEnabled_snmp(access_get, &vlan.enabled.value, n);
        VlanDiscardTag_snmp(access_get, &vlan.discardTag.value, n);
    }
    return CORVANTA_OK;
}

int loadParents(Model& model) {
    for (int n = 1; n <= kUnits; ++n) {
        Vlan& vlan = model.vlans[static_cast<std::size_t>(n)];
        const int status =
            accessText(access_get, vlan.wanInterface, [n](char* text, int size, int* length) {
                return VlanWanInterface(access_get, text, size, length, n);
            });
        if (!isAnswer(status))
            return status;
        vlan.present = status == CORVANTA_OK;
    }
    return CORVANTA_OK;
}

int loadDefaultWan(Model& model) {
    return accessText(access_get, model.defaultWan, [](char* text, int size, int* length) {
        return VlanDefaultWanInterface(access_get, text, size, length);
    });
}

/// "VC1=1|PPPoE1=1|VC8=2"
int loadLayer2(Model& model) {
    const std::string report = take(getLayer2IfStatus());
    std::vector<Layer2If> interfaces;
    for (std::string_view rest = report; !rest.empty();) {
        const std::string field = cut(rest, '|');
        std::string_view state = field;
        std::string name = cut(state, '=');
        interfaces.push_back({std::move(name), toInt(std::string(state))});
    }
    const bool circuits = std::any_of(model.circuits.begin(), model.circuits.end(),
                                      [](const Circuit& circuit) { return circuit.present; });
    if (interfaces.empty() && circuits) // a report that failed
        return CORVANTA_FAILED;
    model.layer2 = std::move(interfaces);
    return CORVANTA_OK;
}

int loadRates(Model& model) {
    return getSpeedInfo(&model.rates) == 1 ? CORVANTA_OK : CORVANTA_FAILED;
}

/// "MappingTable[size=14:14, 0=n/a:N/A,1=lo:LOOPBACK]"
int loadMapping(Model& model) {
    const std::string table = take(mappingTableToString());
    std::string_view rest(table);
    cut(rest, ' ');
    if (rest.empty())
        return CORVANTA_FAILED;
    rest.remove_suffix(1);
    std::vector<IfMapping> mapping;
    while (!rest.empty()) {
        const std::string row = cut(rest, ',');
        std::string_view names = row;
        const int index = toInt(cut(names, '='));
        std::string physical = cut(names, ':');
        mapping.push_back({index, std::move(physical), std::string(names)});
    }
    model.mapping = std::move(mapping);
    return CORVANTA_OK;
}

struct Loader {
    Part part;
    int (*load)(Model&);
};

constexpr Loader kLoaders[] = {
    {kDiscard, loadDiscard}, {kCache, loadCache},           {kCached, loadCached},
    {kParents, loadParents}, {kDefaultWan, loadDefaultWan}, {kLayer2, loadLayer2},
    {kRates, loadRates},     {kMapping, loadMapping},
};

} // namespace

int load(Model& model, unsigned parts) {
    for (const Loader& loader : kLoaders) {
        if (parts & loader.part) {
            if (const int status = loader.load(model); status != CORVANTA_OK)
                return status;
        }
    }
    return CORVANTA_OK;
}

} // namespace agent
