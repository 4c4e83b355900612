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

int runTextCommand(Answer& answer, const char* command, int length) {
    return length >= kCommandSize ? counted(CORVANTA_FAILED)
                                  : runCommand(kQuiet, answer, command, length);
}

// Cuts a line end off an answer. What then says that there is no row is no text.
int takeText(char* text, int& size) {
    if (size > 0 && text[size - 1] == '\n')
        text[--size] = '\0';
    if (text != kNoRow)
        return CORVANTA_OK;
    text[0] = '\0';
    return CORVANTA_UNKNOWN_ROW;
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

int kavo::snmp::readText(char* buffer, int bufferSize, int* length, const char* table,
                         const char* column, int id) {
    if (bufferSize < kSmallestCapacity)
        return CORVANTA_UNFIT;
    char command[kCommandSize];
    const int commandLength =
        formatCommand(command, sizeof command, kReadTextById, table, id, column);
    ShortAnswer answer;
    TRY(runTextCommand(answer, command, commandLength));
    int size = deliver(answer, buffer, bufferSize);
    if (size >= bufferSize - 1)
        return CORVANTA_UNFIT;
    TRY(takeText(buffer, size));
    *length = size;
    return CORVANTA_OK;
}

int kavo::snmp::writeText(std::string_view text, const char* table, const char* column, int id) {
    char command[kCommandSize];
    const int commandLength = formatCommand(command, sizeof command, kWriteTextById, table, id,
                                            column, PRINTF_VIEW(text));
    ShortAnswer answer;
    TRY(runTextCommand(answer, command, commandLength));
    int size = static_cast<int>(strlen(answer.text));
    return takeText(answer.text, size);
}

int config_string_access_by_id(access_type access, char* buffer, int bufferSize, int* length,
                               const char* table, const char* column, int id) {
    switch (access) {
    case access_get:
        return readText(buffer, bufferSize, length, table, column, id);
    case access_set:
        if (!isSafeValue(buffer, bufferSize, *length))
            return counted(CORVANTA_UNFIT);
        return writeText({buffer, static_cast<std::size_t>(*length)}, table, column, id);
    default:
        return CORVANTA_FAILED;
    }
}

int config_string_access_by_id(access_type access, std::string& value, const char* table,
                               const char* column, int id) {
    char buffer[20];
    constexpr std::size_t kLongest = sizeof buffer - 2;
    int length = 0;
    switch (access) {
    case access_get:
        TRY(readText(buffer, sizeof buffer, &length, table, column, id));
        return counted(guardedStatus([&] {
            value = buffer;
            return CORVANTA_OK;
        }));
    case access_set:
        if (value.size() > kLongest)
            return counted(CORVANTA_UNFIT);
        return writeText(value, table, column, id);
    default:
        return CORVANTA_FAILED;
    }
}
