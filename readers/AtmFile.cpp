#include "readers/AtmFile.h"

#include "base/Log.h"
#include "base/Text.h"
#include "frame/Wrapper.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <optional>

namespace kavo::snmp {

namespace {

constexpr log::Unit kUnit = {"AtmFile", "AtmFile"};

constexpr int kMaxVpi = AtmFile::vpiCount - 1;

bool inRange(int vpi) {
    return vpi >= 0 && vpi <= kMaxVpi;
}

} // namespace

AtmFile::AtmFile() : m_sFileName("/proc/net/atm/pvc") {}

AtmFile::~AtmFile() {
    m_bInitalized = false;
    LOG_IF(m_bVerbose, tracedo, "~AtmFile: destruction");
}

bool AtmFile::classInvariant() const {
    return true;
}

void AtmFile::initialize(bool verbose) {
    m_bVerbose = verbose;
    m_pWrapper = Wrapper::getInstance();
    m_pWrapper->m_bVerbose = verbose;

    LOG_IF(m_bVerbose, tracedo, "initialize: trying to open file %s", m_sFileName.c_str());
    FILE* const file = fopen(m_sFileName.c_str(), "r");
    if (file == nullptr) {
        LOG_IF(m_bVerbose, tracedo, "initialize: unable to open file %s using defaults",
               m_sFileName.c_str());
        return;
    }
    char buffer[1024];
    const std::size_t size = fread(buffer, 1, sizeof buffer - 1, file);
    buffer[size] = '\0';
    if (size == 0)
        LOG(warning, "initialize: could not read file %s using defaults", m_sFileName.c_str());
    if (fclose(file) != 0)
        LOG(warning, "initialize: could not close file %s using defaults", m_sFileName.c_str());

    const std::string_view text = buffer;
    LOG_IF(m_bVerbose, tracedo, "initialize: file read in:\n%.*s", PRINTF_VIEW(text));
    for (std::size_t i = 0; m_bVerbose && i < text.size(); ++i)
        LOG_IF(text[i] == '\n', debug, "initialize: newline found at index %zu", i);

    parse(text);
    LOG_IF(m_bVerbose, tracedo, "initialize: contents of vpiList: %s", vpiList2String().c_str());
    m_bInitalized = true;
}

void AtmFile::parse(std::string_view text) {
    std::fill(std::begin(m_eVpiList), std::end(m_eVpiList), 0);
    int vpiIdx = -1;
    std::string_view line;
    for (int row = 0; !(line = nextToken(text, '\n')).empty(); ++row) {
        LOG_IF(m_bVerbose, tracedo, "initialize: token = %.*s", PRINTF_VIEW(line));
        std::string_view field;
        for (int col = 0; !(field = nextToken(line, ' ')).empty(); ++col) {
            LOG_IF(m_bVerbose, tracedo, "initialize:   subtoken = %.*s", PRINTF_VIEW(field));
            if (row == 0 && kavo::snmp::contains(field, "VPI")) {
                vpiIdx = col;
                LOG_IF(m_bVerbose, tracedo,
                       "initialize: string 'VPI' found in header line 1 at column %d, vpiIdx = %d",
                       col + 1, col);
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
        LOG(warning, "initialize: no VPI in row %d: %.*s", row + 1, PRINTF_VIEW(field));
        return;
    }
    LOG_IF(m_bVerbose, tracedo, "initialize:   processing row %d, column = %d, found VPI = %d",
           row + 1, col + 1, *vpi);
    if (inRange(*vpi))
        m_eVpiList[*vpi] = 1;
    else
        LOG(error, "initialize: VPI %d is out of range for vpiList, max idx is %d", *vpi, kMaxVpi);
}

bool AtmFile::contains(int a_vpiVal) {
    LOG_IF(m_bVerbose, tracedo, "contains: searching a_vpiVal %d in m_eVpiList", a_vpiVal);
    if (inRange(a_vpiVal))
        return m_eVpiList[a_vpiVal] == 1;
    LOG(warning, "contains: a_vpiVal %d is out of range for vpiList, max idx is %d", a_vpiVal,
        kMaxVpi);
    return false;
}

std::string AtmFile::vpiList2String() {
    std::string text = "vpiList[";
    for (int i = 0; i < vpiCount; ++i)
        text += format("(%d)=%d,", i, m_eVpiList[i]);
    return text.append("]");
}

int AtmFile::size() {
    return 1;
}

} // namespace kavo::snmp
