#include "frame/SnmpConfigHandler.h"

#include "base/Guard.h"
#include "base/Log.h"
#include "base/Text.h"
#include "frame/Wrapper.h"
#include "readers/MappingTable.h"
#include "readers/SpeedInfo.h"

namespace kavo::snmp {

namespace {

constexpr log::Unit kUnit = {"SnmpCfgHdr", "SnmpConfigHandler"};

// The interface that carries a VPI's traffic beside its circuit; null for most VPIs.
const char* interfaceOf(int vpi) {
    switch (vpi) {
    case 1:
    case 2:
        return "PPPoE";
    case 3:
        return "DHCP";
    default:
        return nullptr;
    }
}

// Creates a reader, keeps it, then initializes it.
template <class Reader>
void createReader(Reader*& reader, bool verbose) {
    auto* const fresh = new Reader;
    delete reader;
    reader = fresh;
    reader->initialize(verbose);
}

// Makes an object ready; an exception becomes an error line and false.
template <class Body>
bool instantiate(const char* what, Body body) {
    return guarded(
        [&] {
            body();
            return true;
        },
        [&] {
            LOG(error, "initialize: unable to instantiate %s", what);
            return false;
        });
}

} // namespace

const char* const SnmpConfigHandler::pszSocketFile = "/tmp/quorhub.socket";

SnmpConfigHandler::SnmpConfigHandler() : m_atmTable("Atm") {}

SnmpConfigHandler::~SnmpConfigHandler() {
    m_bInitalized = false;
    LOG_IF(m_bVerbose, tracedo, "~ConfigDBHandler: destruction");
    delete m_pMappingTable;
    delete m_pSpeedInfo;
}

bool SnmpConfigHandler::classInvariant() const {
    return true;
}

void SnmpConfigHandler::initialize() {
    const auto wrapper = [this] {
        m_pWrapper = Wrapper::getInstance();
        m_pWrapper->m_bVerbose = m_bVerbose;
        m_pWrapper->Openlog("corvanta");
    };
    const auto speedInfo = [this] { createReader(m_pSpeedInfo, m_bVerbose); };
    const auto mappingTable = [this] { createReader(m_pMappingTable, m_bVerbose); };
    m_bInitalized = instantiate("Wrapper", wrapper) && instantiate("SpeedInfo", speedInfo) &&
                    instantiate("MappingTable", mappingTable);
}

std::string SnmpConfigHandler::getLayer2IfStatus() {
    LOG_IF(m_bVerbose, tracedo, "getLayer2IfStatus: entering");
    LOG_IF(m_bVerbose, tracedo, "getLayer2IfStatus: read Atm file");
    m_atmFile.initialize(m_bVerbose);
    LOG_IF(m_bVerbose, tracedo, "getLayer2IfStatus: read Atm config table");
    m_atmTable.initialize(m_bVerbose);
    const int rows = m_atmTable.size();
    LOG_IF(m_bVerbose, tracedo, "getLayer2IfStatus: number of rows in table %s: %d",
           m_atmTable.m_sTableName.c_str(), rows);

    std::string text;
    for (int row = 0; row < rows; ++row) {
        const int vpi = m_atmTable.getIntegerValue("Vpi", row);
        LOG_IF(m_bVerbose, debug, "getLayer2IfStatus: row %d contains Vpi = %d", row, vpi);
        const ly2State state = m_atmFile.contains(vpi) ? ly2State_up : ly2State_down;
        LOG_IF(m_bVerbose, debug, "getLayer2IfStatus: layer 2 interface with idx = %d%s", vpi,
               state == ly2State_up ? " is UP" : " is DOWN");
        text += format("VC%d=%d|", vpi, state);
        if (const char* const name = interfaceOf(vpi))
            text += format("%s%d=%d|", name, vpi, state);
        LOG_IF(m_bVerbose, debug, "getLayer2IfStatus: ly2Status string = %s", text.c_str());
    }
    if (!text.empty())
        text.pop_back(); // the separator behind the last entry
    return text;
}

int SnmpConfigHandler::getIntegerValue(int& value, const std::string& table,
                                       const std::string& column, const std::string& keyColumn,
                                       const std::string& keyValue) {
    if (table != m_atmTable.m_sTableName)
        return 0;
    if (!m_atmTable.m_bInitalized) // no report has been made yet
        m_atmTable.initialize(m_bVerbose);
    return m_atmTable.getIntegerValue(value, column, keyColumn, keyValue);
}

bool SnmpConfigHandler::getSpeedInfo(speedInfo_s* info) {
    LOG_IF(m_bVerbose, tracedo, "getSpeedInfo: entering");
    const bool result = required(m_pSpeedInfo).getSpeedInfo(&required(info));
    LOG_IF(m_bVerbose, tracedo, "getSpeedInfo: exiting with %d", result);
    return result;
}

std::string SnmpConfigHandler::SpeedInfoToString(const speedInfo_s* info) {
    return required(m_pWrapper).SpeedInfoToString(&required(info));
}

int SnmpConfigHandler::physicalIFNameToIndex(std::string name) {
    LOG_IF(m_bVerbose, tracedo, "physicalIFNameToIndex: entering with %s", name.c_str());
    const int index = required(m_pMappingTable).physicalIFNameToIndex(name);
    LOG_IF(m_bVerbose, tracedo, "physicalIFNameToIndex: exiting with index = %d [%s]", index,
           name.c_str());
    return index;
}

std::string SnmpConfigHandler::indexToLogicalIfName(int index) {
    LOG_IF(m_bVerbose, tracedo, "indexToLogicalIfName: entering");
    std::string name = required(m_pMappingTable).indexToLogicalIfName(index);
    LOG_IF(m_bVerbose, tracedo, "indexToLogicalIfName: exiting with logicalName = %s [%d]",
           name.c_str(), index);
    return name;
}

std::string SnmpConfigHandler::mappingTableToString() {
    return required(m_pMappingTable).toString();
}

std::string SnmpConfigHandler::getRowSnmpAgent() {
    return "==> FIL <==";
}

} // namespace kavo::snmp
