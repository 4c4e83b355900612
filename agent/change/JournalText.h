#pragma once

#include "agent/change/Record.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

// A journal, as it is on disk:
//
//     corvantad change 2
//     set 81                           or "pending", and the number of the set
//     table Bridge                     for each table that the change concerns, in their order:
//     others 1 2                       Ids of the rows that it had before, those below left out
//     alike                            Ids of rows that look like those that were put back last
//     row 3 removed sure back 4        a row: its Id, what the change does with it (added, removed,
//                                      both or neither), whether all of that has been made, or
//                                      at least a new one's Id was told, and what became of it
//                                      when it was put back (tried, givenUp, or back with its new
//                                      Id)
//     =br1|wanX                        its columns behind the Id, a line for each: "=" and what
//     =0                               others had there ("~": Id of a bridge that came later,
//     row 5 added                      "-": of none), or "+" where there was no row; then what
//     +br2                             the change writes there; separated by "|"
//     +0
//     end 1c291ca3                     CRC-32 of all that comes before this line
//
// "corvantad change 1" held whole rows, once for each state that the change makes of them. It is
// read, and no longer written.
namespace agent {

/// What a journal is about.
struct Entry {
    bool pending = false; ///< the change was whole and waited for confirmation
    Record record;
    std::uint64_t set = 0; ///< the last that it is of; 0 for none that anybody could ask about
};

/// A journal's text, with its version and its checksum.
std::string toText(const Entry& entry);

/// @return nothing for a text that is cut, altered or of another version
std::optional<Entry> toEntry(std::string_view text);

/// The record's part of it, as lines.
std::string toLines(const Record& record);

/// @return nothing when the lines don't fit the tables
std::optional<Record> toRecord(std::string_view lines);

/// The same for the lines of version 1.
/// @param sure  whether the change was whole
std::optional<Record> toRecordOfVersion1(std::string_view lines, bool sure);

} // namespace agent
