#pragma once

#include "agent/change/Tables.h"

#include <optional>
#include <string_view>
#include <vector>

/// Reading a text piece by piece.
namespace agent {

/// Cuts the piece up to the character, or what there is, off the front of a text.
std::string_view cut(std::string_view& text, char end);

std::optional<int> toNumber(std::string_view text);

/// @return nothing unless all that is there are numbers, with blanks between them
std::optional<std::vector<int>> toNumbers(std::string_view text);

std::optional<Table> toTable(std::string_view name);

} // namespace agent
