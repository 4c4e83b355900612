#pragma once

#include <corvanta.h>

#include <string>
#include <string_view>

class Wrapper;

namespace kavo::snmp {

/// Which VPIs have an open circuit in the kernel's list, /proc/net/atm/pvc.
class CORVANTA_API AtmFile {
public:
    AtmFile();
    ~AtmFile();
    AtmFile(const AtmFile&) = delete;
    AtmFile& operator=(const AtmFile&) = delete;

    /// Reads the file anew; a file that cannot be opened leaves the list as it was.
    void initialize(bool verbose);
    bool classInvariant() const;

    /// @return whether a circuit is open on the VPI; false, with a warning, outside 0 to 19
    bool contains(int a_vpiVal);
    std::string vpiList2String();

    /// @return 1, whatever the list holds
    int size();

    /// Rebuilds the list from the file's text.
    [[gnu::visibility("hidden")]] void parse(std::string_view text);

    static constexpr int vpiCount = 20;

    bool m_bVerbose = false;
    bool m_bInitalized = false;
    std::string m_sFileName;
    int m_eVpiList[vpiCount] = {}; ///< by VPI: 1 open, 0 not
    Wrapper* m_pWrapper = nullptr; ///< not owned

private:
    [[gnu::visibility("hidden")]] void markVpi(std::string_view field, int row, int col);
};

} // namespace kavo::snmp
