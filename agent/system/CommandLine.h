#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace agent {

/// What a command line of the library's starts: a program and its one argument.
///
///     quorlet " selectkey Atm Id 1 Vci ;"      the argument is the text between the quotes
///     vellstat info                            the argument is a word
///
/// The library writes its command lines for a shell. The agent starts the programs itself, so it
/// takes only lines of which it is plain what a shell would do with them.
struct CommandLine {
    std::string program;
    std::string argument;

    /// @return nothing for a line of any other form
    static std::optional<CommandLine> parse(std::string_view text);
};

} // namespace agent
