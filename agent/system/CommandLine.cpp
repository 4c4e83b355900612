#include "agent/system/CommandLine.h"

#include <algorithm>

namespace agent {

namespace {

/// Names of programs and options: nothing that a shell would look at twice, and no path.
constexpr std::string_view kWord =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_.";

std::string_view withoutBlanks(std::string_view text) {
    const std::size_t begin = std::min(text.find_first_not_of(' '), text.size());
    text.remove_prefix(begin);
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

/// Whether a shell takes a character between double quotes for itself.
bool isLiteral(char c) {
    return static_cast<unsigned char>(c) >= ' ' && c != 0x7f &&
           std::string_view("\"$`\\").find(c) == std::string_view::npos;
}

} // namespace

std::optional<CommandLine> CommandLine::parse(std::string_view text) {
    text = withoutBlanks(text);
    const std::string_view program = text.substr(0, text.find_first_not_of(kWord));
    const std::string_view rest = text.substr(program.size());
    std::string_view argument = withoutBlanks(rest);
    if (program.empty() || argument.empty() || rest.front() != ' ')
        return std::nullopt;
    const bool quoted = argument.size() > 1 && argument.front() == '"' && argument.back() == '"';
    if (quoted)
        argument = argument.substr(1, argument.size() - 2);
    if (quoted ? !std::all_of(argument.begin(), argument.end(), isLiteral)
               : argument.find_first_not_of(kWord) != argument.npos)
        return std::nullopt;
    return CommandLine{std::string(program), std::string(argument)};
}

} // namespace agent
