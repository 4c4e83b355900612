#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace device {

enum class Verb { selectkey, updatekey, insertkey, deletekey, selectrow, size };

/// The value that a column gets; its type is the one that the command names.
using Value = std::variant<int, std::string>;

/// A command of the configuration database's client; what its verb has no use for stays empty.
struct Command {
    Verb verb = Verb::size;
    std::string table;
    std::string keyColumn;
    std::string keyValue;
    int row = 0;
    std::vector<std::string> columns;
    std::vector<Value> values; ///< one for each column, where the verb writes
};

/// Reads one command:
///
///     selectkey TABLE KEYCOLUMN KEY COLUMN...
///     updatekey TABLE KEYCOLUMN KEY COLUMN TYPE:VALUE...
///     insertkey TABLE COLUMN TYPE:VALUE...
///     deletekey TABLE KEYCOLUMN KEY
///     selectrow TABLE ROW [COLUMN...]
///     size TABLE
///
/// Blanks separate tokens, any number of them; ";" ends the command and needs no blank before it.
/// TYPE is "integer", with a decimal number, or "text". Nothing quotes a text: it begins right
/// after the colon and runs, inner blanks included, to the next "COLUMN TYPE:" or to the end; the
/// blanks before those separate. So a text may be empty, but cannot end in a blank.
///
/// @throws std::invalid_argument naming what is wrong
Command parseCommand(std::string_view text);

} // namespace device
