#include "agent/change/Lines.h"

#include <algorithm>
#include <charconv>

namespace agent {

std::string_view cut(std::string_view& text, char end) {
    const std::string_view piece = text.substr(0, text.find(end));
    text.remove_prefix(std::min(piece.size() + 1, text.size()));
    return piece;
}

std::optional<int> toNumber(std::string_view text) {
    int value = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || stop != text.data() + text.size())
        return std::nullopt;
    return value;
}

std::optional<std::vector<int>> toNumbers(std::string_view text) {
    std::vector<int> numbers;
    while (!text.empty()) {
        const std::optional<int> number = toNumber(cut(text, ' '));
        if (!number)
            return std::nullopt;
        numbers.push_back(*number);
    }
    return numbers;
}

std::optional<Table> toTable(std::string_view name) {
    const auto* const found = std::find_if(kAllTables.begin(), kAllTables.end(),
                                           [name](Table t) { return shapeOf(t).name == name; });
    return found == kAllTables.end() ? std::nullopt : std::optional(*found);
}

} // namespace agent
