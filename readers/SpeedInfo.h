#pragma once

#include <corvanta.h>

#include <string>
#include <string_view>

class Wrapper;

namespace kavo::snmp {

/// The DSL line rates from the output of `vellstat info`, asked anew each time.
class CORVANTA_API SpeedInfo {
public:
    SpeedInfo();
    ~SpeedInfo();
    SpeedInfo(const SpeedInfo&) = delete;
    SpeedInfo& operator=(const SpeedInfo&) = delete;

    void initialize(bool verbose);

    /// Clears the record and reads the rates. @return whether the tool could be started
    bool getSpeedInfo(speedInfo_s* info);

    /// The same without clearing the record first.
    bool readDSLInfo(speedInfo_s* info);

    /// @return whether the group's heading names the downstream column first
    [[gnu::visibility("hidden")]] static bool downComesFirst(std::string_view heading);

    /// Takes the rates from a line of the group; its number is for the log.
    [[gnu::visibility("hidden")]] void parseGroupLine(std::string_view line, int lineNumber,
                                                      bool downFirst, speedInfo_s* info);

    bool m_bVerbose = false;
    bool m_bInitalized = false;
    std::string m_sCommand;
    char m_szLine[256] = {};
    Wrapper* m_pWrapper = nullptr; ///< not owned
};

} // namespace kavo::snmp
