#include "base/Guard.h"
#include "base/Log.h"
#include "client/Client.h"

#include <cstring>

using namespace kavo::snmp;

namespace {

constexpr log::Unit kUnit = {"corvanta", "corvanta"};

// The client's commands; blanks count.
constexpr char kReadIntById[] = " quorlet \" selectkey %s Id %d %s ;\" ";
constexpr char kWriteIntById[] = " quorlet \" updatekey %s Id %d %s integer:%d ;\" ";
constexpr char kReadIntByKey[] = " quorlet \" selectkey %s %s %s %s ;\" ";
constexpr char kReadTextById[] = " quorlet \"  selectkey %s Id %d %s  ;\" ";
constexpr char kWriteTextById[] = " quorlet \" updatekey %s Id %d %s text:%.*s ;\" ";
constexpr char kReadRow[] = " quorlet \"  selectrow %s %d  ;\" ";

constexpr std::string_view kNoRow = "Unknown row"; // as a text field's answer

constexpr int kSmallestCapacity = 3; // of a text's buffer: one character, and two that stay free

int toValue(std::optional<int> number, int* value) {
    if (!number)
        return CORVANTA_FAILED;
    *value = *number;
    return CORVANTA_OK;
}

} // namespace

int config_int_access_by_id(access_type access, int* value, const char* table, const char* column,
                            int id) {
    char command[kIntCommandSize];
    ShortAnswer answer;
    int length = 0;
    switch (access) {
    case access_get:
        length = formatCommand(command, sizeof command, kReadIntById, table, id, column);
        TRY(runCommand({kLevelUntraced, sizeof command}, answer, command, length));
        return toValue(answer.number(), value);
    case access_set:
        length = formatCommand(command, sizeof command, kWriteIntById, table, id, column, *value);
        return runCommand({kLevelWrite, sizeof command}, answer, command, length);
    case access_none:
    case access_create:
    case access_delete:
        return CORVANTA_FAILED;
    default:
        return CORVANTA_UNFIT;
    }
}

int config_int_read_by_key(int* value, const char* table, const char* column, const char* keyColumn,
                           const char* keyValue) {
    char command[kIntCommandSize];
    const int length =
        formatCommand(command, sizeof command, kReadIntByKey, table, keyColumn, keyValue, column);
    if (length == kUnsafe)
        return counted(CORVANTA_UNFIT);
    if (length >= kIntCommandSize)
        return counted(CORVANTA_FAILED);
    LOG_IF(m_bVerbose, trace, "%s", command);
    KeyedAnswer answer;
    switch (runOnce(kLevelUntraced, answer, command)) {
    case CORVANTA_OK:
        return toValue(answer.number(), value);
    case CORVANTA_UNKNOWN_ROW:
        return CORVANTA_UNKNOWN_ROW;
    default:
        return counted(CORVANTA_FAILED);
    }
}

int config_row_read(const char* table, int row, char* buffer, int size, int* length) {
    if (table == nullptr || buffer == nullptr || length == nullptr)
        return CORVANTA_FAILED;
    RowAnswer answer;
    TRY(run({kLevelUntraced}, answer, kReadRow, table, row));
    const std::size_t rowLength = strcspn(answer.text, "\n");
    if (rowLength + 1 != answer.size) // several lines, or cut off: a client was killed
        return counted(CORVANTA_UNFIT);
    if (size < 1 || rowLength >= static_cast<std::size_t>(size))
        return CORVANTA_UNFIT;
    memcpy(buffer, answer.text, rowLength + 1);
    *length = static_cast<int>(rowLength);
    return CORVANTA_OK;
}

int config_string_access_by_id(access_type access, char* buffer, int bufferSize, int* length,
                               const char* table, const char* column, int id) {
    char command[kCommandSize];
    char* target = command; // of a write's answer
    int capacity = sizeof command;
    int commandLength = 0;
    switch (access) {
    case access_get:
        if (bufferSize < kSmallestCapacity)
            return CORVANTA_UNFIT;
        target = buffer;
        capacity = bufferSize;
        commandLength = formatCommand(command, sizeof command, kReadTextById, table, id, column);
        break;
    case access_set:
        if (!isSafeValue(buffer, bufferSize, *length))
            return counted(CORVANTA_UNFIT);
        commandLength = formatCommand(command, sizeof command, kWriteTextById, table, id, column,
                                      *length, buffer);
        break;
    default:
        return CORVANTA_FAILED;
    }
    if (commandLength >= kCommandSize)
        return counted(CORVANTA_FAILED);

    ShortAnswer answer;
    TRY(runCommand(kQuiet, answer, command, commandLength));
    int size = deliver(answer, target, capacity);
    if (size >= capacity - 1)
        return CORVANTA_UNFIT;
    if (size > 0 && target[size - 1] == '\n')
        target[--size] = '\0';
    if (target == kNoRow) {
        target[0] = '\0';
        return CORVANTA_UNKNOWN_ROW;
    }
    if (access == access_get)
        *length = size;
    return CORVANTA_OK;
}

int config_string_access_by_id(access_type access, std::string& value, const char* table,
                               const char* column, int id) {
    char buffer[20] = "";
    constexpr std::size_t kLongest = sizeof buffer - 2;
    int length = 0;
    if (access == access_set) {
        if (value.size() > kLongest)
            return counted(CORVANTA_UNFIT);
        length = static_cast<int>(value.copy(buffer, kLongest));
    }
    TRY(config_string_access_by_id(access, buffer, sizeof buffer, &length, table, column, id));
    if (access != access_get)
        return CORVANTA_OK;
    return counted(guardedStatus([&] {
        value = buffer;
        return CORVANTA_OK;
    }));
}
