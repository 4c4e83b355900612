#include "readers/SpeedInfo.h"

#include "frame/Guard.h"
#include "frame/Log.h"
#include "frame/Pipe.h"
#include "frame/Text.h"
#include "frame/Wrapper.h"

#include <algorithm>

namespace kavo::snmp {

namespace {

constexpr log::Unit unit("SpeedInfo", "SpeedInfo");

constexpr std::string_view groupHeading = "Line Rate Information";
constexpr std::size_t columnsOffset = 22; // where the heading line names its columns
constexpr int groupLines = 2;

} // namespace

SpeedInfo::SpeedInfo() : m_sCommand("vellstat info") {}

SpeedInfo::~SpeedInfo() {
    m_bInitalized = false;
    unit.tracedo(m_bVerbose, "~SpeedInfo: destruction");
}

void SpeedInfo::initialize(bool verbose) {
    m_bVerbose = verbose;
    unit.tracedo(m_bVerbose, "initialize: entering");
    m_pWrapper = Wrapper::getInstance();
    m_pWrapper->m_bVerbose = verbose;
    m_bInitalized = true;
    unit.tracedo(m_bVerbose, "initialize: exiting with  m_bInitalized = ", m_bInitalized);
}

bool SpeedInfo::getSpeedInfo(speedInfo_s* info) {
    unit.tracedo(m_bVerbose, "getSpeedInfo: entering");
    *info = {};
    const bool started = readDSLInfo(info);
    unit.tracedo(m_bVerbose, "getSpeedInfo: exiting with: ", [&] {
        return required(m_pWrapper).SpeedInfoToString(info);
    });
    return started;
}

bool SpeedInfo::readDSLInfo(speedInfo_s* info) {
    unit.tracedo(m_bVerbose, "readDSLInfo: entering");
    unit.debug(m_bVerbose, "readDSLInfo: trying to popen >", m_sCommand, "<");
    Pipe tool(required(m_pWrapper), m_sCommand);
    if (!tool) {
        unit.error("read: could not popen ", m_sCommand);
        return false;
    }

    int lineNumber = 0;
    while (tool.readLine(m_szLine)) {
        ++lineNumber;
        unit.debug(m_bVerbose, "readDSLInfo: processing line ", lineNumber, ": ", m_szLine);
        if (!contains(m_szLine, groupHeading))
            continue;
        const bool downFirst = downComesFirst(m_szLine);
        unit.debug(m_bVerbose, "readDSLInfo: line ", lineNumber, ": downFirst = ", downFirst);
        for (int i = 0; i < groupLines && tool.readLine(m_szLine); ++i)
            parseGroupLine(m_szLine, ++lineNumber, downFirst, info);
    }
    return true;
}

bool SpeedInfo::downComesFirst(std::string_view heading) {
    heading.remove_prefix(std::min(columnsOffset, heading.size()));
    return contains(nextToken(heading, ' '), "Down");
}

void SpeedInfo::parseGroupLine(std::string_view line, int lineNumber, bool downFirst,
                               speedInfo_s* info) {
    unit.debug(m_bVerbose, "readDSLInfo: processing group line ", lineNumber, ": ", line);

    std::string_view rest = line;
    const std::string_view name = nextToken(rest, ':');
    const std::string_view first = nextToken(rest, ' ');
    const std::string_view second = nextToken(rest, ' ');
    if (name.empty())
        unit.warning("readDSLInfo: token ':' not found in line: ", line);
    else if (first.empty())
        unit.warning("readDSLInfo: DOWN value not found in line: ", line);
    else if (second.empty())
        unit.warning("readDSLInfo: UP value not found in line: ", line);

    // A missing token is empty and counts as 0.
    const std::uint32_t ui1 = parseUnsigned(first);
    const std::uint32_t ui2 = parseUnsigned(second);
    unit.debug(m_bVerbose, "readDSLInfo: line ", lineNumber, ": ", "name = ", name, ", ui1 = ", ui1,
               ", ui2 = ", ui2);

    const std::uint32_t down = downFirst ? ui1 : ui2;
    const std::uint32_t up = downFirst ? ui2 : ui1;
    if (contains(name, "Actual")) {
        info->dslActualDataRateDown = down;
        info->dslActualDataRateUp = up;
    } else if (contains(name, "Attainable")) {
        info->dslAttainableDataRateDown = down;
        info->dslAttainableDataRateUp = up;
    } else {
        unit.debug(m_bVerbose,
                   "readDSLInfo: Group: >Line Rate Information<, unhandled DSL line: ", name);
    }
}

} // namespace kavo::snmp
