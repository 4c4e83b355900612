#include "readers/SpeedInfo.h"

#include "base/Guard.h"
#include "base/Log.h"
#include "base/Pipe.h"
#include "base/Text.h"
#include "frame/Wrapper.h"

#include <algorithm>
#include <cinttypes>

namespace kavo::snmp {

namespace {

constexpr log::Unit kUnit = {"SpeedInfo", "SpeedInfo"};

constexpr std::string_view kGroupHeading = "Line Rate Information";
constexpr std::size_t kColumnsOffset = 22; // where the heading line names its columns
constexpr int kGroupLines = 2;

} // namespace

SpeedInfo::SpeedInfo() : m_sCommand("vellstat info") {}

SpeedInfo::~SpeedInfo() {
    m_bInitalized = false;
    LOG_IF(m_bVerbose, tracedo, "~SpeedInfo: destruction");
}

void SpeedInfo::initialize(bool verbose) {
    m_bVerbose = verbose;
    LOG_IF(m_bVerbose, tracedo, "initialize: entering");
    m_pWrapper = Wrapper::getInstance();
    m_pWrapper->m_bVerbose = verbose;
    m_bInitalized = true;
    LOG_IF(m_bVerbose, tracedo, "initialize: exiting with  m_bInitalized = %d", m_bInitalized);
}

bool SpeedInfo::getSpeedInfo(speedInfo_s* info) {
    LOG_IF(m_bVerbose, tracedo, "getSpeedInfo: entering");
    *info = {};
    const bool started = readDSLInfo(info);
    LOG_IF(m_bVerbose, tracedo, "getSpeedInfo: exiting with: %s",
           required(m_pWrapper).SpeedInfoToString(info).c_str());
    return started;
}

bool SpeedInfo::readDSLInfo(speedInfo_s* info) {
    LOG_IF(m_bVerbose, tracedo, "readDSLInfo: entering");
    LOG_IF(m_bVerbose, debug, "readDSLInfo: trying to popen >%s<", m_sCommand.c_str());
    Pipe tool(required(m_pWrapper), m_sCommand);
    if (!tool) {
        LOG(error, "read: could not popen %s", m_sCommand.c_str());
        return false;
    }

    int lineNumber = 0;
    while (tool.readLine(m_szLine)) {
        ++lineNumber;
        LOG_IF(m_bVerbose, debug, "readDSLInfo: processing line %d: %s", lineNumber, m_szLine);
        if (!contains(m_szLine, kGroupHeading))
            continue;
        const bool downFirst = downComesFirst(m_szLine);
        LOG_IF(m_bVerbose, debug, "readDSLInfo: line %d: downFirst = %d", lineNumber, downFirst);
        for (int i = 0; i < kGroupLines && tool.readLine(m_szLine); ++i)
            parseGroupLine(m_szLine, ++lineNumber, downFirst, info);
    }
    return true;
}

bool SpeedInfo::downComesFirst(std::string_view heading) {
    heading.remove_prefix(std::min(kColumnsOffset, heading.size()));
    return contains(nextToken(heading, ' '), "Down");
}

void SpeedInfo::parseGroupLine(std::string_view line, int lineNumber, bool downFirst,
                               speedInfo_s* info) {
    LOG_IF(m_bVerbose, debug, "readDSLInfo: processing group line %d: %.*s", lineNumber,
           PRINTF_VIEW(line));

    std::string_view rest = line;
    const std::string_view name = nextToken(rest, ':');
    const std::string_view first = nextToken(rest, ' ');
    const std::string_view second = nextToken(rest, ' ');
    if (name.empty())
        LOG(warning, "readDSLInfo: token ':' not found in line: %.*s", PRINTF_VIEW(line));
    else if (first.empty())
        LOG(warning, "readDSLInfo: DOWN value not found in line: %.*s", PRINTF_VIEW(line));
    else if (second.empty())
        LOG(warning, "readDSLInfo: UP value not found in line: %.*s", PRINTF_VIEW(line));

    // A missing token is empty and counts as 0.
    const std::uint32_t ui1 = parseUnsigned(first);
    const std::uint32_t ui2 = parseUnsigned(second);
    LOG_IF(m_bVerbose, debug,
           "readDSLInfo: line %d: name = %.*s, ui1 = %" PRIu32 ", ui2 = %" PRIu32, lineNumber,
           PRINTF_VIEW(name), ui1, ui2);

    const std::uint32_t down = downFirst ? ui1 : ui2;
    const std::uint32_t up = downFirst ? ui2 : ui1;
    if (contains(name, "Actual")) {
        info->dslActualDataRateDown = down;
        info->dslActualDataRateUp = up;
    } else if (contains(name, "Attainable")) {
        info->dslAttainableDataRateDown = down;
        info->dslAttainableDataRateUp = up;
    } else {
        LOG_IF(m_bVerbose, debug,
               "readDSLInfo: Group: >Line Rate Information<, unhandled DSL line: %.*s",
               PRINTF_VIEW(name));
    }
}

} // namespace kavo::snmp
