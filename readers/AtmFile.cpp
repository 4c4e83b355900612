#include "readers/AtmFile.h"

#include "frame/Log.h"
#include "frame/Text.h"
#include "frame/Wrapper.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <optional>

namespace kavo::snmp {

namespace {

constexpr log::Unit unit("AtmFile", "AtmFile");

constexpr int maxVpi = AtmFile::vpiCount - 1;

bool inRange(int vpi) {
    return vpi >= 0 && vpi <= maxVpi;
}

} // namespace

AtmFile::AtmFile() : m_sFileName("/proc/net/atm/pvc") {}

AtmFile::~AtmFile() {
    m_bInitalized = false;
    unit.tracedo(m_bVerbose, "~AtmFile: destruction");
}

bool AtmFile::classInvariant() const {
    return true;
}

void AtmFile::initialize(bool verbose) {
    m_bVerbose = verbose;
    m_pWrapper = Wrapper::getInstance();
    m_pWrapper->m_bVerbose = verbose;

    unit.tracedo(m_bVerbose, "initialize: trying to open file ", m_sFileName);
    FILE* const file = fopen(m_sFileName.c_str(), "r");
    if (file == nullptr) {
        unit.tracedo(m_bVerbose, "initialize: unable to open file ", m_sFileName,
                     " using defaults");
        return;
    }
    char buffer[1024];
    const std::size_t size = fread(buffer, 1, sizeof buffer - 1, file);
    buffer[size] = '\0';
    if (size == 0)
        unit.warning("initialize: could not read file ", m_sFileName, " using defaults");
    if (fclose(file) != 0)
        unit.warning("initialize: could not close file ", m_sFileName, " using defaults");

    const std::string_view text = buffer;
    unit.tracedo(m_bVerbose, "initialize: file read in:\n", text);
    for (std::size_t i = 0; m_bVerbose && i < text.size(); ++i)
        unit.debug(text[i] == '\n', "initialize: newline found at index ", i);

    parse(text);
    unit.tracedo(m_bVerbose,
                 "initialize: contents of vpiList: ", [this] { return vpiList2String(); });
    m_bInitalized = true;
}

void AtmFile::parse(std::string_view text) {
    std::fill(std::begin(m_eVpiList), std::end(m_eVpiList), 0);
    int vpiIdx = -1;
    std::string_view line;
    for (int row = 0; !(line = nextToken(text, '\n')).empty(); ++row) {
        unit.tracedo(m_bVerbose, "initialize: token = ", line);
        std::string_view field;
        for (int col = 0; !(field = nextToken(line, ' ')).empty(); ++col) {
            unit.tracedo(m_bVerbose, "initialize:   subtoken = ", field);
            if (row == 0 && kavo::snmp::contains(field, "VPI")) {
                vpiIdx = col;
                unit.tracedo(m_bVerbose, "initialize: string 'VPI' found in header line ", 1,
                             " at column ", col + 1, ", vpiIdx = ", col);
                break;
            }
            if (col == vpiIdx) {
                markVpi(field, row, col);
                break;
            }
        }
    }
}

void AtmFile::markVpi(std::string_view field, int row, int col) {
    const std::optional<int> vpi = parseNearestInt(field);
    if (!vpi) {
        unit.warning("initialize: no VPI in row ", row + 1, ": ", field);
        return;
    }
    unit.tracedo(m_bVerbose, "initialize:   processing row ", row + 1, ", column = ", col + 1,
                 ", found VPI = ", *vpi);
    if (inRange(*vpi))
        m_eVpiList[*vpi] = 1;
    else
        unit.error("initialize: VPI ", *vpi, " is out of range for vpiList, max idx is ", maxVpi);
}

bool AtmFile::contains(int a_vpiVal) {
    unit.tracedo(m_bVerbose, "contains: searching a_vpiVal ", a_vpiVal, " in m_eVpiList");
    if (inRange(a_vpiVal))
        return m_eVpiList[a_vpiVal] == 1;
    unit.warning("contains: a_vpiVal ", a_vpiVal, " is out of range for vpiList, max idx is ",
                 maxVpi);
    return false;
}

std::string AtmFile::vpiList2String() {
    std::string text = "vpiList[";
    for (int i = 0; i < vpiCount; ++i)
        append(text, {"(", i, ")=", m_eVpiList[i], ","});
    return text.append("]");
}

int AtmFile::size() {
    return 1;
}

} // namespace kavo::snmp
