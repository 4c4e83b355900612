#include "frame/SnmpConfigHandler.h"

#include "frame/Guard.h"
#include "frame/Log.h"
#include "frame/Text.h"
#include "frame/Wrapper.h"
#include "readers/MappingTable.h"
#include "readers/SpeedInfo.h"

namespace kavo::snmp {

namespace {

constexpr log::Unit unit("SnmpCfgHdr", "SnmpConfigHandler");

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

// Runs a stage of the initialization; an exception becomes an error line and false.
template <class Body>
bool stage(log::Head failure, Body body) {
    return guarded(
        [&] {
            body();
            return true;
        },
        [&] {
            unit.error(failure);
            return false;
        });
}

} // namespace

const char* const SnmpConfigHandler::pszSocketFile = "/tmp/quorhub.socket";

SnmpConfigHandler::SnmpConfigHandler() : m_atmTable("Atm") {}

SnmpConfigHandler::~SnmpConfigHandler() {
    m_bInitalized = false;
    unit.tracedo(m_bVerbose, "~ConfigDBHandler: destruction");
    delete m_pMappingTable;
    delete m_pSpeedInfo;
}

bool SnmpConfigHandler::classInvariant() const {
    return true;
}

void SnmpConfigHandler::initialize() {
    m_bInitalized = stage("initialize: unable to instantiate Wrapper",
                          [this] {
                              m_pWrapper = Wrapper::getInstance();
                              m_pWrapper->m_bVerbose = m_bVerbose;
                              m_pWrapper->Openlog("corvanta");
                          }) &&
                    stage("initialize: unable to instantiate SpeedInfo",
                          [this] { createReader(m_pSpeedInfo, m_bVerbose); }) &&
                    stage("initialize: unable to instantiate MappingTable",
                          [this] { createReader(m_pMappingTable, m_bVerbose); });
}

std::string SnmpConfigHandler::getLayer2IfStatus() {
    unit.tracedo(m_bVerbose, "getLayer2IfStatus: entering");
    unit.tracedo(m_bVerbose, "getLayer2IfStatus: read Atm file");
    m_atmFile.initialize(m_bVerbose);
    unit.tracedo(m_bVerbose, "getLayer2IfStatus: read Atm config table");
    m_atmTable.initialize(m_bVerbose);
    const int rows = m_atmTable.size();
    unit.tracedo(m_bVerbose, "getLayer2IfStatus: number of rows in table ", m_atmTable.m_sTableName,
                 ": ", rows);

    std::string text;
    for (int row = 0; row < rows; ++row) {
        const int vpi = m_atmTable.getIntegerValue("Vpi", row);
        unit.debug(m_bVerbose, "getLayer2IfStatus: row ", row, " contains Vpi = ", vpi);
        const ly2State state = m_atmFile.contains(vpi) ? ly2State_up : ly2State_down;
        unit.debug(m_bVerbose, "getLayer2IfStatus: layer 2 interface with idx = ", vpi,
                   state == ly2State_up ? " is UP" : " is DOWN");
        append(text, {"VC", vpi, "=", state, "|"});
        if (const char* const name = interfaceOf(vpi))
            append(text, {name, vpi, "=", state, "|"});
        unit.debug(m_bVerbose, "getLayer2IfStatus: ly2Status string = ", text);
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
    unit.tracedo(m_bVerbose, "getSpeedInfo: entering");
    const bool result = required(m_pSpeedInfo).getSpeedInfo(&required(info));
    unit.tracedo(m_bVerbose, "getSpeedInfo: exiting with ", result);
    return result;
}

std::string SnmpConfigHandler::SpeedInfoToString(const speedInfo_s* info) {
    return required(m_pWrapper).SpeedInfoToString(&required(info));
}

int SnmpConfigHandler::physicalIFNameToIndex(std::string name) {
    unit.tracedo(m_bVerbose, "physicalIFNameToIndex: entering with ", name);
    const int index = required(m_pMappingTable).physicalIFNameToIndex(name);
    unit.tracedo(m_bVerbose, "physicalIFNameToIndex: exiting with index = ", index, " [", name,
                 "]");
    return index;
}

std::string SnmpConfigHandler::indexToLogicalIfName(int index) {
    unit.tracedo(m_bVerbose, "indexToLogicalIfName: entering");
    std::string name = required(m_pMappingTable).indexToLogicalIfName(index);
    unit.tracedo(m_bVerbose, "indexToLogicalIfName: exiting with logicalName = ", name, " [", index,
                 "]");
    return name;
}

std::string SnmpConfigHandler::mappingTableToString() {
    return required(m_pMappingTable).toString();
}

std::string SnmpConfigHandler::getRowSnmpAgent() {
    return "==> FIL <==";
}

} // namespace kavo::snmp
