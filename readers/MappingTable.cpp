#include "readers/MappingTable.h"

#include "base/Log.h"
#include "base/Text.h"
#include "frame/Wrapper.h"

namespace kavo::snmp {

namespace {

constexpr log::Unit kUnit = {"MappingTbl", "MappingTable"};

struct Row {
    int index;
    char physicalName[6];
    char logicalName[9];
};

constexpr Row kRows[] = {
    {0, "n/a", "N/A"},      {1, "lo", "LOOPBACK"}, {2, "eth0", "LAN"},  {3, "wlan1", "WLAN1"},
    {4, "wds0", "WDS0"},    {5, "wds1", "WDS1"},   {6, "wds2", "WDS2"}, {7, "wds3", "WDS3"},
    {8, "wan1", "VC1"},     {9, "wan2", "VC2"},    {10, "wan3", "VC3"}, {11, "ppp1", "PPPoE1"},
    {12, "ppp2", "PPPoE2"}, {13, "ppp3", "DHCP3"},
};

} // namespace

MappingTable::MappingTable() = default;

MappingTable::~MappingTable() {
    m_bInitalized = false;
    LOG_IF(m_bVerbose, tracedo, "~MappingTable: destruction");
}

void MappingTable::initialize(bool verbose) {
    m_bVerbose = verbose;
    LOG_IF(m_bVerbose, tracedo, "initialize: entering");
    m_pWrapper = Wrapper::getInstance();
    m_pWrapper->m_bVerbose = verbose;

    for (const Row& row : kRows)
        m_mapPhysical[row.physicalName] = m_mapIndex.insert({row.index, row.logicalName}).first;
    LOG_IF(m_bVerbose, tracedo, "initialize: printing Mapping Table: %s", toString().c_str());

    m_bInitalized = m_mapIndex.size() == m_mapPhysical.size();
    if (!m_bInitalized)
        LOG_IF(m_bVerbose, tracedo, "initialize: initialization error, different size, [%zu:%zu]",
               m_mapIndex.size(), m_mapPhysical.size());
    LOG_IF(m_bVerbose, tracedo, "initialize: exiting with  m_bInitalized = %d", m_bInitalized);
}

int MappingTable::physicalIFNameToIndex(std::string physicalIfName) {
    if (physicalIfName.empty()) {
        LOG(warning,
            "physicalIFNameToIndex: empty physicalIfName (length==0), returning index = 0");
        return 0;
    }
    const auto found = m_mapPhysical.find(physicalIfName);
    if (found != m_mapPhysical.end())
        return found->second->first;
    LOG(warning, "physicalIFNameToIndex: cannot find physicalIfName in MappingTable: %s",
        physicalIfName.c_str());
    return 0;
}

std::string MappingTable::indexToLogicalIfName(int index) {
    if (index < 0)
        LOG(warning, "indexToLogicalIfName: index is lower than 0: %d", index);
    const auto found = m_mapIndex.find(index);
    if (found != m_mapIndex.end())
        return found->second;
    LOG(warning, "indexToLogicalIfName: cannot find index in MappingTable: %d", index);
    return m_mapIndex.empty() ? std::string() : m_mapIndex.begin()->second;
}

std::size_t MappingTable::size() const {
    return m_mapPhysical.size();
}

std::string MappingTable::toString() {
    std::string text =
        format("MappingTable[size=%zu:%zu, ", m_mapIndex.size(), m_mapPhysical.size());
    for (auto entry = m_mapIndex.begin(); entry != m_mapIndex.end(); ++entry) {
        text += format("%d=", entry->first);
        for (const auto& [physicalName, reference] : m_mapPhysical) {
            if (reference == entry) {
                text += format("%s:%s,", physicalName.c_str(), entry->second.c_str());
                break;
            }
        }
    }
    text.erase(text.rfind(','));
    return text.append("]");
}

} // namespace kavo::snmp
