#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// Texts and the numbers in them, the same whatever the host's locale.
namespace kavo::snmp {

/// @return the text that snprintf() makes
[[gnu::format(printf, 1, 2)]] std::string format(const char* format, ...);

/// Takes the next token off the front of a text, as strtok_r() does: leading delimiters are skipped
/// and the one that ends the token is taken along.
/// @return the token, empty when there is none left
std::string_view nextToken(std::string_view& rest, char delimiter);

bool contains(std::string_view text, std::string_view part);

/// The decimal integer that a text begins with: white space, an optional sign, digits up to the
/// first other character.
/// @return nothing when there is no digit or the number does not fit
std::optional<int> parseInt(std::string_view text);

/// The same, but a number that does not fit is the nearest that does, as a stream reads it.
std::optional<int> parseNearestInt(std::string_view text);

/// The unsigned number that a text begins with, as strtoul() reads it with base 0 where a long has
/// 32 bits: 0x is hexadecimal, a leading 0 octal, no number is 0, one too large the largest.
std::uint32_t parseUnsigned(std::string_view text);

/// Whether a text can stand in a command line without ending or changing it. The shell sees it
/// between double quotes, the client up to a semicolon; and to the client a typed value later in
/// the text, as in "wan1 Enable integer:1", is that of another column.
bool isSafeText(std::string_view text);

/// The same for the first `length` characters of a caller's buffer, which must hold them.
bool isSafeValue(const char* buffer, int bufferSize, int length);

} // namespace kavo::snmp
