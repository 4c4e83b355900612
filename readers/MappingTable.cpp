#include "readers/MappingTable.h"

#include "frame/Log.h"
#include "frame/Text.h"
#include "frame/Wrapper.h"

namespace kavo::snmp {

namespace {

constexpr log::Unit unit("MappingTbl", "MappingTable");

struct Row {
    int index;
    char physicalName[6];
    char logicalName[9];
};

constexpr Row rows[] = {
    {0, "n/a", "N/A"},      {1, "lo", "LOOPBACK"}, {2, "eth0", "LAN"},  {3, "wlan1", "WLAN1"},
    {4, "wds0", "WDS0"},    {5, "wds1", "WDS1"},   {6, "wds2", "WDS2"}, {7, "wds3", "WDS3"},
    {8, "wan1", "VC1"},     {9, "wan2", "VC2"},    {10, "wan3", "VC3"}, {11, "ppp1", "PPPoE1"},
    {12, "ppp2", "PPPoE2"}, {13, "ppp3", "DHCP3"},
};

} // namespace

MappingTable::MappingTable() = default;

MappingTable::~MappingTable() {
    m_bInitalized = false;
    unit.tracedo(m_bVerbose, "~MappingTable: destruction");
}

void MappingTable::initialize(bool verbose) {
    m_bVerbose = verbose;
    unit.tracedo(m_bVerbose, "initialize: entering");
    m_pWrapper = Wrapper::getInstance();
    m_pWrapper->m_bVerbose = verbose;

    for (const Row& row : rows)
        m_mapPhysical[row.physicalName] = m_mapIndex.insert({row.index, row.logicalName}).first;
    unit.tracedo(m_bVerbose, "initialize: printing Mapping Table: ", [this] { return toString(); });

    m_bInitalized = m_mapIndex.size() == m_mapPhysical.size();
    if (!m_bInitalized)
        unit.tracedo(m_bVerbose, "initialize: initialization error, different size, [",
                     m_mapIndex.size(), ":", m_mapPhysical.size(), "]");
    unit.tracedo(m_bVerbose, "initialize: exiting with  m_bInitalized = ", m_bInitalized);
}

int MappingTable::physicalIFNameToIndex(std::string physicalIfName) {
    if (physicalIfName.empty()) {
        unit.warning(
            "physicalIFNameToIndex: empty physicalIfName (length==0), returning index = 0");
        return 0;
    }
    const auto found = m_mapPhysical.find(physicalIfName);
    if (found != m_mapPhysical.end())
        return found->second->first;
    unit.warning("physicalIFNameToIndex: cannot find physicalIfName in MappingTable: ",
                 physicalIfName);
    return 0;
}

std::string MappingTable::indexToLogicalIfName(int index) {
    if (index < 0)
        unit.warning("indexToLogicalIfName: index is lower than 0: ", index);
    const auto found = m_mapIndex.find(index);
    if (found != m_mapIndex.end())
        return found->second;
    unit.warning("indexToLogicalIfName: cannot find index in MappingTable: ", index);
    return m_mapIndex.empty() ? std::string() : m_mapIndex.begin()->second;
}

std::size_t MappingTable::size() const {
    return m_mapPhysical.size();
}

std::string MappingTable::toString() {
    std::string text =
        join({"MappingTable[size=", m_mapIndex.size(), ":", m_mapPhysical.size(), ", "});
    for (auto entry = m_mapIndex.begin(); entry != m_mapIndex.end(); ++entry) {
        append(text, {entry->first, "="});
        for (const auto& [physicalName, reference] : m_mapPhysical) {
            if (reference == entry) {
                append(text, {physicalName, ":", entry->second, ","});
                break;
            }
        }
    }
    text.erase(text.rfind(','));
    return text.append("]");
}

} // namespace kavo::snmp
