#include "include/corvanta.h"

#include "frame/Failures.h"
#include "frame/Guard.h"
#include "frame/Log.h"
#include "frame/SnmpConfigHandler.h"
#include "frame/Text.h"
#include "frame/TraceLevel.h"
#include "objects/managed_objects.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>
#include <optional>
#include <string_view>
#include <type_traits>
#include <unistd.h>

using namespace kavo::snmp;

bool m_bVerbose = false;
int debug_level = 7;
int m_iLogHandle = -1;

namespace {

constexpr log::Unit unit("corvanta", "corvanta");

SnmpConfigHandler* ConfigHandler = nullptr; // made by initialize(), lives until the process ends

// ---------------------------------------------------------------- status queries

// A copy for the caller to free(). Throws rather than giving null.
char* newText(const std::string& text) {
    char* const copy = strdup(text.c_str());
    if (copy == nullptr)
        throw std::bad_alloc();
    return copy;
}

// What a query does when an exception reached it: a warning, then its failure value.
template <class Failure, class... Pieces>
auto warned(Failure failure, log::Head head, Pieces... pieces) {
    return [=] {
        unit.warning(head, pieces...);
        return failure();
    };
}

int zero() {
    return 0;
}
char* noText() {
    return nullptr;
}
char* emptyText() {
    return strdup("");
}

} // namespace

int initialize(int verbose) {
    m_bVerbose = verbose != 0;
    const bool created = guarded(
        [] {
            auto* const handler = new SnmpConfigHandler;
            handler->m_bVerbose = m_bVerbose;
            ConfigHandler = handler;
            handler->initialize();
            return true;
        },
        [] {
            unit.error("initialize: unable to initialize ConfigDBHandler()");
            return false;
        });
    if (!created)
        return 0;
    if (!ConfigHandler->m_bInitalized) {
        unit.error("initialize: call to ConfigDBHandler.initialize() failed");
        return 0;
    }
    mgmt_o.init();
    unit.tracedo(m_bVerbose, "initialize: ConfigDBHandler() initialized successfully");
    return 1;
}

char* getLayer2IfStatus(void) {
    return guarded(
        [] {
            unit.tracedo(m_bVerbose, "getLayer2IfStatus: entering");
            const std::string states = required(ConfigHandler).getLayer2IfStatus();
            unit.tracedo(m_bVerbose, "getLayer2IfStatus: ly2States = ", states);
            return newText(states);
        },
        warned(emptyText, "unable to fetch Layer2 interfaces states"));
}

const char* ly2State2String(int state) {
    switch (state) {
    case ly2State_up:
        return "UP";
    case ly2State_down:
        return "DOWN";
    default:
        return "N/A";
    }
}

int getSpeedInfo(speedInfo_s* info) {
    return guarded(
        [=]() -> int {
            unit.tracedo(m_bVerbose, "getSpeedInfo: entering");
            return required(ConfigHandler).getSpeedInfo(info);
        },
        warned(zero, "unable to fetch all speed related information"));
}

char* speedInfoToString(const speedInfo_s* info) {
    return guarded(
        [=] { return newText(required(ConfigHandler).SpeedInfoToString(info)); },
        warned(noText,
               "unable to translate structure containing speed related information to string"));
}

int physicalIFNameToIndex(const char* name) {
    return guarded(
        [=] { return required(ConfigHandler).physicalIFNameToIndex(&required(name)); },
        warned(zero, "unable to fetch index for physical name  = ", name != nullptr ? name : ""));
}

void indexToLogicalIfName(int index, char* buffer, size_t size) {
    guarded(
        [=] {
            char* const target = &required(buffer);
            const std::string name = required(ConfigHandler).indexToLogicalIfName(index);
            if (size != 0) {
                strncpy(target, name.c_str(), size);
                target[size - 1] = '\0';
            }
        },
        [=] {
            unit.warning("unable to fetch logical name for index = ", index);
            if (buffer != nullptr && size != 0)
                buffer[0] = '\0';
        });
}

char* mappingTableToString(void) {
    return guarded([] { return newText(required(ConfigHandler).mappingTableToString()); },
                   warned(noText, "unable to fetch mapping table"));
}

char* getRowSnmpAgent(void) {
    char* const row = guarded(
        [] {
            unit.tracedo(m_bVerbose, "getRowSnmpAgent: entering");
            return newText(required(ConfigHandler).getRowSnmpAgent());
        },
        warned(emptyText, "unable to fetch row of table SnmpAgent"));
    unit.tracedo(m_bVerbose, "getRowSnmpAgent: call to ConfigHandler->getRowSnmpAgent() returns ",
                 row != nullptr ? row : "");
    return row;
}

int isEnabled(void) {
    return 5;
}

int testMethod2(void) {
    time2string();
    return 0;
}

std::string time2string() {
    const auto failure = [] { return std::string("xx.xx.xx"); };
    return guarded(
        [=]() -> std::string {
            time_t now = time(nullptr);
            if (now == -1)
                now = 0;
            tm local = {};
            char text[20];
            if (localtime_r(&now, &local) == nullptr ||
                strftime(text, sizeof text, "%d.%m.%Y %H:%M:%S", &local) == 0)
                return failure();
            return text;
        },
        failure);
}

// -------------------------------------------------------------------- command runner

namespace {

constexpr std::string_view unknownRow = "Unknown row\n";
constexpr std::string_view databaseLocked = "Database locked\n";
constexpr int maxAttempts = 20;

constexpr int commandSize = 200; // of a command, its terminator included
constexpr int longestCommand = commandSize - 2;

// An answer of the client, terminated. One that fills the buffer is too long.
struct Answer {
    char text[30] = "";
};

// The same for a row of whichever table.
struct RowAnswer {
    char text[4096] = "";
};

unsigned long failures = 0;

template <class Buffer>
int runOnce(const char* cmd, Buffer& answer, int level) {
    constexpr std::size_t tooLong = sizeof answer.text - 1;
    int status = CORVANTA_FAILED;
    FILE* const client = popen(cmd, "r");
    if (client != nullptr) {
        const std::size_t size = fread(answer.text, 1, tooLong, client);
        answer.text[size] = '\0';
        if (size == 0) {
            status = CORVANTA_FAILED;
        } else if (size == tooLong) {
            status = CORVANTA_UNFIT;
        } else if (answer.text == unknownRow) {
            status = CORVANTA_UNKNOWN_ROW;
        } else if (answer.text == databaseLocked) {
            status = CORVANTA_LOCKED;
        } else {
            status = CORVANTA_OK;
            if constexpr (std::is_same_v<Buffer, RowAnswer>) {
                // One line, and whole: a client that is killed leaves no newline.
                if (strcspn(answer.text, "\n") != size - 1)
                    status = CORVANTA_UNFIT;
            }
            if (answer.text[size - 1] == '\n')
                answer.text[size - 1] = '\0';
        }
    }
    unit.trace(level < tracedBelow, cmd, " ==> ", answer.text);
    if (client != nullptr)
        pclose(client);
    return status;
}

template <class Buffer>
int runUntilUnlocked(const char* cmd, Buffer& answer, int level) {
    int status = runOnce(cmd, answer, level);
    for (int attempt = 1; status == CORVANTA_LOCKED && attempt < maxAttempts; ++attempt) {
        sleep(1);
        status = runOnce(cmd, answer, level);
    }
    return counted(status);
}

// The same for a command that must fit the usual buffer.
int runShort(const char* cmd, Answer& answer, int level) {
    const std::size_t length = strnlen(cmd, commandSize);
    if (length == 0 || length > longestCommand)
        return counted(CORVANTA_UNFIT);
    return runUntilUnlocked(cmd, answer, level);
}

// Copies a text, cut to the capacity. Returns the length that it then has.
int deliver(const char* text, char* target, int capacity) {
    target[0] = '\0';
    target[capacity - 1] = '\0';
    strncat(target, text, static_cast<std::size_t>(capacity - 1));
    return static_cast<int>(strlen(target));
}

} // namespace

int call_cmd(char* cmd, int cmdSize, int cmdLen, char* answer, int answerSize, int level) {
    if (cmd == nullptr)
        return counted(CORVANTA_NO_COMMAND);
    char* const target = answer != nullptr ? answer : cmd;
    const int capacity = answer != nullptr ? answerSize : cmdSize;
    if (cmdLen <= 0 || cmdLen >= cmdSize || capacity < 1)
        return counted(CORVANTA_UNFIT);
    Answer text;
    if (const int status = runUntilUnlocked(cmd, text, level))
        return status;
    deliver(text.text, target, capacity);
    return CORVANTA_OK;
}

int call_cmd(char* cmd, int cmdSize, int cmdLen) {
    return call_cmd(cmd, cmdSize, cmdLen, nullptr, 0, levelTraced);
}

int call_cmd(std::string cmd, std::string& answer, int level) {
    return guardedStatus([&]() -> int {
        Answer text;
        if (const int status = runShort(cmd.c_str(), text, level))
            return status;
        answer = text.text;
        return CORVANTA_OK;
    });
}

int kavo::snmp::counted(int status) {
    if (status != CORVANTA_OK && status != CORVANTA_UNKNOWN_ROW)
        ++failures;
    return status;
}

unsigned long client_failures(void) {
    return failures;
}

// ---------------------------------------------------------------- typed field access

namespace {

// The client's commands; blanks count.
constexpr char readIntById[] = " quorlet \" selectkey %s Id %d %s ;\" ";
constexpr char writeIntById[] = " quorlet \" updatekey %s Id %d %s integer:%d ;\" ";
constexpr char readIntByKey[] = " quorlet \" selectkey %s %s %s %s ;\" ";
constexpr char readTextById[] = " quorlet \"  selectkey %s Id %d %s  ;\" ";
constexpr char writeTextById[] = " quorlet \" updatekey %s Id %d %s text:%.*s ;\" ";
constexpr char readRow[] = " quorlet \"  selectrow %s %d  ;\" ";

constexpr int intCommandSize = 100;
constexpr int smallestCapacity = 3; // of a text's buffer: one character, and two that stay free

int toValue(std::optional<int> number, int* value) {
    if (!number)
        return CORVANTA_FAILED;
    *value = *number;
    return CORVANTA_OK;
}

} // namespace

int config_int_access_by_id(access_type access, int* value, const char* table, const char* column,
                            int id) {
    char command[intCommandSize] = "";
    int length = 0;
    int level = levelUntraced;
    switch (access) {
    case access_get:
        length = snprintf(command, sizeof command, readIntById, table, id, column);
        break;
    case access_set:
        length = snprintf(command, sizeof command, writeIntById, table, id, column, *value);
        level = levelWrite;
        break;
    case access_none:
    case access_create:
    case access_delete:
        return CORVANTA_FAILED;
    default:
        return CORVANTA_UNFIT;
    }
    const int status = call_cmd(command, sizeof command, length, command, sizeof command, level);
    if (status != CORVANTA_OK || access == access_set)
        return status;
    return toValue(parseInt(command), value);
}

int config_int_read_by_key(int* value, const char* table, const char* column, const char* keyColumn,
                           const char* keyValue) {
    if (!isSafeText(keyValue))
        return counted(CORVANTA_UNFIT);
    char text[intCommandSize] = "";
    constexpr int longest = sizeof text - 1;
    const int length =
        snprintf(text, sizeof text, readIntByKey, table, keyColumn, keyValue, column);
    if (length < 1 || length > longest)
        return counted(CORVANTA_FAILED);
    unit.trace(m_bVerbose, text);

    FILE* const client = popen(text, "r");
    if (client == nullptr)
        return counted(CORVANTA_FAILED);
    const std::size_t size = fread(text, 1, longest, client);
    text[size] = '\0';
    pclose(client);

    const std::string_view answer(text, size);
    if (answer == unknownRow)
        return CORVANTA_UNKNOWN_ROW;
    if (size == 0 || size == longest || answer == databaseLocked)
        return counted(CORVANTA_FAILED);
    return toValue(parseInt(answer), value);
}

int config_row_read(const char* table, int row, char* buffer, int size, int* length) {
    if (table == nullptr || buffer == nullptr || length == nullptr)
        return CORVANTA_FAILED;
    char command[commandSize];
    const int commandLength = snprintf(command, sizeof command, readRow, table, row);
    if (!isSafeText(table) || commandLength < 1 || commandLength >= commandSize)
        return counted(CORVANTA_UNFIT);
    RowAnswer answer;
    if (const int status = runUntilUnlocked(command, answer, levelUntraced))
        return status;
    const std::size_t answerLength = strlen(answer.text);
    if (size < 1 || answerLength >= static_cast<std::size_t>(size))
        return CORVANTA_UNFIT;
    memcpy(buffer, answer.text, answerLength + 1);
    *length = static_cast<int>(answerLength);
    return CORVANTA_OK;
}

int config_string_access_by_id(access_type access, char* buffer, int bufferSize, int* length,
                               const char* table, const char* column, int id) {
    char command[commandSize] = "";
    char* target = command; // a write's answer
    int capacity = sizeof command;
    int commandLength = 0;
    switch (access) {
    case access_get:
        if (bufferSize < smallestCapacity)
            return CORVANTA_UNFIT;
        target = buffer;
        capacity = bufferSize;
        commandLength = snprintf(command, sizeof command, readTextById, table, id, column);
        break;
    case access_set:
        if (!isSafeValue(buffer, bufferSize, *length))
            return counted(CORVANTA_UNFIT);
        commandLength =
            snprintf(command, sizeof command, writeTextById, table, id, column, *length, buffer);
        break;
    default:
        return CORVANTA_FAILED;
    }
    if (commandLength < 1 || commandLength >= commandSize)
        return counted(CORVANTA_FAILED);

    Answer answer;
    if (const int status = runShort(command, answer, levelUntraced))
        return status;
    int size = deliver(answer.text, target, capacity);
    if (size >= capacity - 1)
        return CORVANTA_UNFIT;
    if (size > 0 && target[size - 1] == '\n')
        target[--size] = '\0';
    if (target == unknownRow.substr(0, unknownRow.size() - 1)) {
        target[0] = '\0';
        return CORVANTA_UNKNOWN_ROW;
    }
    if (access == access_get)
        *length = size;
    return CORVANTA_OK;
}

int config_string_access_by_id(access_type access, std::string& value, const char* table,
                               const char* column, int id) {
    return guardedStatus([&]() -> int {
        char buffer[20] = "";
        int length = 0;
        if (access == access_set) {
            if (value.size() >= sizeof buffer - 1)
                return counted(CORVANTA_UNFIT);
            length = static_cast<int>(value.copy(buffer, sizeof buffer - 1));
        }
        const int status =
            config_string_access_by_id(access, buffer, sizeof buffer, &length, table, column, id);
        if (status == CORVANTA_OK && access == access_get)
            value = buffer;
        return status;
    });
}

int TruthValue_internal_to_snmp(int value) {
    switch (value) {
    case 0:
        return 2;
    case 1:
        return 1;
    default:
        return 0;
    }
}

int TruthValue_snmp_to_internal(int value) {
    return value == 2 ? 0 : value;
}
