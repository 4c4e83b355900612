#pragma once

#include <optional>
#include <string>

namespace agent {

/// The text of a file; nothing, with errno, when it can't be read.
std::optional<std::string> textOf(const std::string& file);

/// Gives a file a new content, that of before until all of it is safely there. @return whether it
/// is
bool replaceFile(const std::string& file, const std::string& text);

/// Has names that were made, changed or removed in a folder outlive a power cut.
bool syncFolder(const std::string& folder);

} // namespace agent
