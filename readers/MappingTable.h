#pragma once

#include <corvanta.h>

#include <cstddef>
#include <map>
#include <string>

class Wrapper;

namespace kavo::snmp {

/// The fixed relation of interface index, physical name and logical name.
class CORVANTA_API MappingTable {
public:
    MappingTable();
    ~MappingTable();
    MappingTable(const MappingTable&) = delete;
    MappingTable& operator=(const MappingTable&) = delete;

    void initialize(bool verbose);

    /// @return the index; 0, with a warning, for an empty or unknown name
    int physicalIFNameToIndex(std::string physicalIfName);

    /// @return the logical name; that of the lowest index, with a warning, for an unknown one
    std::string indexToLogicalIfName(int index);

    /// @return "MappingTable[size=14:14, 0=n/a:N/A,...]"
    std::string toString();

    /// @return the number of physical names
    std::size_t size() const;

    bool m_bVerbose = false;
    bool m_bInitalized = false;
    std::map<int, std::string> m_mapIndex;                                     ///< logical names
    std::map<std::string, std::map<int, std::string>::iterator> m_mapPhysical; ///< into m_mapIndex
    Wrapper* m_pWrapper = nullptr;                                             ///< not owned
};

} // namespace kavo::snmp
