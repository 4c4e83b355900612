#pragma once

#include "../readers/AtmFile.h"
#include "../readers/Table.h"

#include <corvanta.h>

#include <string>

class Wrapper;

namespace kavo::snmp {

class MappingTable;
class SpeedInfo;

/// The one object behind every status query: it owns the readers and forwards to them. A query
/// whose reader is missing throws std::logic_error.
class CORVANTA_API SnmpConfigHandler {
public:
    /// The configuration database server's socket; for the library's users.
    static const char* const pszSocketFile;

    SnmpConfigHandler();
    ~SnmpConfigHandler();
    SnmpConfigHandler(const SnmpConfigHandler&) = delete;
    SnmpConfigHandler& operator=(const SnmpConfigHandler&) = delete;

    /// Opens the log and creates the readers; m_bInitalized tells the outcome. Throws nothing.
    void initialize();
    bool classInvariant() const;

    /// @return one entry per `Atm` row and interface, such as "VC1=1|PPPoE1=1|VC8=2"
    std::string getLayer2IfStatus();

    /// Reads `column` of the `Atm` row whose `keyColumn` equals `keyValue`.
    /// @return 0 on success and, with value untouched, for any table but "Atm"; 1 on failure
    int getIntegerValue(int& value, const std::string& table, const std::string& column,
                        const std::string& keyColumn, const std::string& keyValue);

    bool getSpeedInfo(speedInfo_s* info);
    std::string SpeedInfoToString(const speedInfo_s* info);
    int physicalIFNameToIndex(std::string name);
    std::string indexToLogicalIfName(int index);
    std::string mappingTableToString();
    std::string getRowSnmpAgent();

    bool m_bVerbose = false;
    bool m_bInitalized = false;
    AtmFile m_atmFile;
    Table m_atmTable;
    Wrapper* m_pWrapper = nullptr;           ///< not owned
    SpeedInfo* m_pSpeedInfo = nullptr;       ///< owned
    MappingTable* m_pMappingTable = nullptr; ///< owned
};

} // namespace kavo::snmp
