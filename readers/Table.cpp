#include "readers/Table.h"

#include "frame/Failures.h"
#include "frame/Guard.h"
#include "frame/Log.h"
#include "frame/Pipe.h"
#include "frame/Text.h"
#include "frame/Wrapper.h"

#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace kavo::snmp {

namespace {

constexpr log::Unit unit("Table", "Table");

// The client's commands; blanks count.
std::string sizeCommand(const std::string& table) {
    return join({"quorlet \"size ", table, ";\""});
}

std::string rowCommand(const std::string& table, int row) {
    return join({"quorlet \"selectrow ", table, " ", row, ";\""});
}

std::string keyedCommand(const std::string& table, const std::string& keyColumn,
                         const std::string& keyValue, const std::string& column) {
    return join(
        {" quorlet \" selectkey ", table, " ", keyColumn, " ", keyValue, " ", column, " ; \" "});
}

constexpr std::size_t vpiField = 2; // of an `Atm` row's text

} // namespace

Table::Table(std::string name)
    : m_sTableName(std::move(name)), m_sSizeCommand(sizeCommand(m_sTableName)) {}

Table::~Table() {
    m_bInitalized = false;
    unit.tracedo(m_bVerbose, "~Table: destruction");
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

Table::Reply Table::ask(const std::string& command) {
    Pipe client(required(m_pWrapper), command);
    const Reply reply = !client                     ? Reply::notStarted
                        : client.readLine(m_szLine) ? Reply::line
                                                    : Reply::nothing;
    if (reply != Reply::line || std::string_view(m_szLine) == "Database locked\n")
        counted(CORVANTA_FAILED);
    return reply;
}

int Table::size() {
    switch (ask(m_sSizeCommand)) {
    case Reply::line:
        break;
    case Reply::nothing:
        unit.error("size: could not read programs output ", m_sSizeCommand);
        return 0;
    case Reply::notStarted:
        unit.error("size: could not popen ", m_sSizeCommand);
        return 0;
    }
    m_iRowCount = static_cast<int>(parseUnsigned(m_szLine));
    unit.tracedo(m_bVerbose, "size: size of table ", m_sTableName, ": ", m_iRowCount);
    return m_iRowCount;
}

bool Table::readRow(int row) {
    if (m_iRowCount < 0 || row < m_iRowCount)
        m_iRowCount = size();
    unit.tracedo(m_bVerbose, "read: number of rows in table ", m_sTableName, ": ", m_iRowCount);
    const std::string command = rowCommand(m_sTableName, row);
    switch (ask(command)) {
    case Reply::line:
        break;
    case Reply::nothing:
        unit.error("read: could not read programs output ", command);
        return false;
    case Reply::notStarted:
        unit.error("read: could not popen ", command);
        return false;
    }
    unit.tracedo(m_bVerbose, "read: row ", row, ": ", m_szLine);
    return true;
}

int Table::getIntegerValue(const std::string& column, int row) {
    if (!readRow(row)) {
        unit.warning("read: could not read row ", row, " from table ", m_sTableName);
        return 0;
    }
    Wrapper& wrapper = required(m_pWrapper);
    unit.tracedo(m_bVerbose, "getIntegerValue: processing row ", row, ": ", m_szLine);
    const std::string table = wrapper.ToUpperCase(m_sTableName);
    unit.tracedo(m_bVerbose, "getIntegerValue: table name in UPPER CASE: ", table);
    if (table != "ATM") {
        unit.warning("getIntegerValue: unsupported table ", m_sTableName);
        return 0;
    }
    if (wrapper.ToUpperCase(column) != "VPI") {
        unit.warning("getIntegerValue: unsupported column ", column, " in table ", m_sTableName);
        return 0;
    }
    unit.tracedo(m_bVerbose, "getIntegerValue: request for Vpi in row ", m_szLine);
    std::vector<std::string> fields = wrapper.Tokenize(m_szLine, "|");
    unit.tracedo(m_bVerbose, "getIntegerValue: resulting vector containing following tokens: ",
                 [&] { return wrapper.VectorToString(fields); });
    return parseNearestInt(fields.at(vpiField)).value_or(0);
}

int Table::getIntegerValue(int& value, const std::string& column, const std::string& keyColumn,
                           const std::string& keyValue) {
    if (ask(keyedCommand(m_sTableName, keyColumn, keyValue, column)) != Reply::line)
        return CORVANTA_FAILED;
    const std::optional<int> number = parseInt(m_szLine);
    if (!number)
        return CORVANTA_FAILED;
    value = *number;
    return CORVANTA_OK;
}

} // namespace kavo::snmp
