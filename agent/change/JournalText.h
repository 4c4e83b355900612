#pragma once

#include "agent/change/Record.h"

#include <optional>
#include <string>
#include <string_view>

namespace agent {

/// What a journal is about.
struct Entry {
    bool pending = false; ///< the change was whole and waited for confirmation
    Record record;
};

/// A journal's text, with its version and its checksum.
std::string toText(const Entry& entry);

/// @return nothing for a text that is cut, altered or of another version
std::optional<Entry> toEntry(std::string_view text);

/// The record's part of it, as lines.
std::string toLines(const Record& record);

/// @return nothing when the lines don't fit the tables
std::optional<Record> toRecord(std::string_view lines);

} // namespace agent
