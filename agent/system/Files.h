#pragma once

#include <optional>
#include <string>

namespace agent {

/// The text of a file; nothing, with errno, when it can't be read.
std::optional<std::string> textOf(const std::string& file);

/// Reads a file; nothing when its folder is there without it.
/// @return whether it could be looked at, else errno tells why not
bool loadFile(const std::string& file, std::optional<std::string>& text);

/// Gives a file a new content, that of before until all of it is safely there. @return whether it
/// is
bool replaceFile(const std::string& file, const std::string& text);

/// Removes a file or an empty folder, or gives it another name in its folder, and has that outlive a power cut. One that
/// isn't there has been removed.
bool removeFile(const std::string& file);
bool renameFile(const std::string& file, const std::string& newName);

/// Has names that were made, changed or removed in a folder outlive a power cut.
bool syncFolder(const std::string& folder);

} // namespace agent
