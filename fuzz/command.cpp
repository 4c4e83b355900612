// The language of the stand-in device's client.

#include "harness.h"

#include "device/Command.h"

#include <stdexcept>

using device::Command;

namespace {

/// A command in its shortest form.
std::string write(const Command& command) {
    static const char* const verbs[] = {"selectkey", "updatekey", "insertkey",
                                        "deletekey", "selectrow", "size"};
    std::string text = verbs[static_cast<int>(command.verb)] + (' ' + command.table);
    if (!command.keyColumn.empty())
        text += ' ' + command.keyColumn + ' ' + command.keyValue;
    if (command.verb == device::Verb::selectrow)
        text += ' ' + std::to_string(command.row);
    for (std::size_t i = 0; i < command.columns.size(); ++i) {
        text += ' ' + command.columns[i];
        if (command.values.empty())
            continue;
        const int* const number = std::get_if<int>(&command.values[i]);
        text += number != nullptr ? " integer:" + std::to_string(*number)
                                  : " text:" + std::get<std::string>(command.values[i]);
    }
    return text + ';';
}

} // namespace

void fuzz::test(std::string_view text) {
    Command command;
    try {
        command = device::parseCommand(text);
    } catch (const std::invalid_argument& refused) {
        expect(*refused.what() != '\0', "a refusal says why");
        return;
    }
    expect(!command.table.empty() && command.row >= 0, "a command names a table");
    const Command again = device::parseCommand(write(command));
    expect(again.verb == command.verb && again.table == command.table && again.row == command.row &&
               again.keyColumn == command.keyColumn && again.keyValue == command.keyValue &&
               again.columns == command.columns && again.values == command.values,
           "written out, it reads the same");
}
