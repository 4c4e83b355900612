#pragma once

#include <optional>
#include <string>

namespace agent {

/// The text of a file; nothing, with errno, when it can't be opened.
std::optional<std::string> textOf(const std::string& file);

/// Gives a file a new content. It keeps the old one until the new one is safely there.
/// @return whether it is
bool replaceFile(const std::string& file, const std::string& text);

/// Makes sure that names made, changed or removed in a folder outlive a power cut.
bool syncFolder(const std::string& folder);

} // namespace agent
