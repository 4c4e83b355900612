#pragma once

#include <optional>
#include <string>

namespace agent {

/// The text of a file; nothing, with errno, when it can't be read.
std::optional<std::string> textOf(const std::string& file);

/// Reads a file; nothing when its folder is there without it.
/// @return whether it could be looked at, else errno tells why not
bool loadFile(const std::string& file, std::optional<std::string>& text);

/// Gives a file a new content. It keeps the old one until the new one is safely there.
/// @return whether it is
bool replaceFile(const std::string& file, const std::string& text);

/// Removes a file or an empty folder, or gives a file another name in its folder, and makes sure
/// that this outlives a power cut. One that isn't there has been removed.
bool removeFile(const std::string& file);
bool renameFile(const std::string& file, const std::string& newName);

/// Makes sure that names made, changed or removed in a folder outlive a power cut.
bool syncFolder(const std::string& folder);

} // namespace agent
