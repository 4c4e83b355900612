#include "readers/Table.h"

#include "base/Guard.h"
#include "base/Log.h"
#include "base/Text.h"
#include "client/Client.h"
#include "frame/Wrapper.h"

#include <optional>
#include <utility>
#include <vector>

namespace kavo::snmp {

namespace {

constexpr log::Unit kUnit = {"Table", "Table"};

// The client's commands; blanks count.
constexpr char kSize[] = "quorlet \"size %s;\"";
constexpr char kReadRow[] = "quorlet \"selectrow %s %d;\"";
constexpr char kReadByKey[] = " quorlet \" selectkey %s %s %s %s ; \" ";

constexpr std::size_t kVpiField = 2; // of an `Atm` row's text

} // namespace

Table::Table(std::string name)
    : m_sTableName(std::move(name)), m_sSizeCommand(format(kSize, m_sTableName.c_str())) {}

Table::~Table() {
    m_bInitalized = false;
    LOG_IF(m_bVerbose, tracedo, "~Table: destruction");
}

bool Table::initialize(bool verbose) {
    m_bVerbose = verbose;
    m_pWrapper = Wrapper::getInstance();
    m_pWrapper->m_bVerbose = verbose;
    m_bInitalized = true;
    return true;
}

bool Table::classInvariant() const {
    return true;
}

int Table::size() {
    switch (readLine(required(m_pWrapper), m_sSizeCommand, {m_sTableName}, m_szLine)) {
    case Line::read:
        break;
    case Line::missing:
        LOG(error, "size: could not read programs output %s", m_sSizeCommand.c_str());
        return 0;
    case Line::notStarted:
        LOG(error, "size: could not popen %s", m_sSizeCommand.c_str());
        return 0;
    }
    m_iRowCount = static_cast<int>(parseUnsigned(m_szLine));
    LOG_IF(m_bVerbose, tracedo, "size: size of table %s: %d", m_sTableName.c_str(), m_iRowCount);
    return m_iRowCount;
}

bool Table::readRow(int row) {
    if (m_iRowCount < 0 || row < m_iRowCount)
        m_iRowCount = size();
    LOG_IF(m_bVerbose, tracedo, "read: number of rows in table %s: %d", m_sTableName.c_str(),
           m_iRowCount);
    const std::string command = format(kReadRow, m_sTableName.c_str(), row);
    switch (readLine(required(m_pWrapper), command, {m_sTableName}, m_szLine)) {
    case Line::read:
        break;
    case Line::missing:
        LOG(error, "read: could not read programs output %s", command.c_str());
        return false;
    case Line::notStarted:
        LOG(error, "read: could not popen %s", command.c_str());
        return false;
    }
    LOG_IF(m_bVerbose, tracedo, "read: row %d: %s", row, m_szLine);
    return true;
}

int Table::getIntegerValue(const std::string& column, int row) {
    if (!readRow(row)) {
        LOG(warning, "read: could not read row %d from table %s", row, m_sTableName.c_str());
        return 0;
    }
    Wrapper& wrapper = required(m_pWrapper);
    LOG_IF(m_bVerbose, tracedo, "getIntegerValue: processing row %d: %s", row, m_szLine);
    const std::string table = wrapper.ToUpperCase(m_sTableName);
    LOG_IF(m_bVerbose, tracedo, "getIntegerValue: table name in UPPER CASE: %s", table.c_str());
    if (table != "ATM") {
        LOG(warning, "getIntegerValue: unsupported table %s", m_sTableName.c_str());
        return 0;
    }
    if (wrapper.ToUpperCase(column) != "VPI") {
        LOG(warning, "getIntegerValue: unsupported column %s in table %s", column.c_str(),
            m_sTableName.c_str());
        return 0;
    }
    LOG_IF(m_bVerbose, tracedo, "getIntegerValue: request for Vpi in row %s", m_szLine);
    std::vector<std::string> fields = wrapper.Tokenize(m_szLine, "|");
    LOG_IF(m_bVerbose, tracedo, "getIntegerValue: resulting vector containing following tokens: %s",
           wrapper.VectorToString(fields).c_str());
    return parseNearestInt(fields.at(kVpiField)).value_or(0);
}

int Table::getIntegerValue(int& value, const std::string& column, const std::string& keyColumn,
                           const std::string& keyValue) {
    const std::string command = format(kReadByKey, m_sTableName.c_str(), keyColumn.c_str(),
                                       keyValue.c_str(), column.c_str());
    if (readLine(required(m_pWrapper), command, {m_sTableName, keyColumn, keyValue, column},
                 m_szLine) != Line::read)
        return CORVANTA_FAILED;
    const std::optional<int> number = parseInt(m_szLine);
    if (!number)
        return CORVANTA_FAILED;
    value = *number;
    return CORVANTA_OK;
}

} // namespace kavo::snmp
