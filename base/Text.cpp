#include "base/Text.h"

#include <algorithm>
#include <charconv>
#include <cstdarg>
#include <cstdio>
#include <limits>
#include <system_error>

namespace kavo::snmp {

namespace {

void skipSpace(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
}

bool takeChar(std::string_view& text, char c) {
    const bool found = !text.empty() && text.front() == c;
    if (found)
        text.remove_prefix(1);
    return found;
}

// The digits that the text begins with; std::from_chars() comes in here once only.
[[gnu::noinline]] std::errc readDigits(std::string_view text, int base, std::uint32_t& number) {
    return std::from_chars(text.data(), text.data() + text.size(), number, base).ec;
}

bool takeMinus(std::string_view& text) {
    skipSpace(text);
    const bool negative = takeChar(text, '-');
    if (!negative)
        takeChar(text, '+');
    return negative;
}

// White space, a sign, decimal digits. Out of range, the number is the nearest.
std::errc readInt(std::string_view text, int& number) {
    const bool negative = takeMinus(text);
    const std::int64_t limit =
        negative ? std::numeric_limits<int>::min() : std::numeric_limits<int>::max();
    std::uint32_t magnitude = 0;
    std::errc error = readDigits(text, 10, magnitude);
    std::int64_t exact = negative ? -std::int64_t(magnitude) : std::int64_t(magnitude);
    if (error == std::errc() && (negative ? exact < limit : exact > limit))
        error = std::errc::result_out_of_range;
    number = static_cast<int>(error == std::errc() ? exact : limit);
    return error;
}

} // namespace

std::string format(const char* format, ...) {
    char buffer[128];
    va_list values;
    va_start(values, format);
    const int length = vsnprintf(buffer, sizeof buffer, format, values);
    va_end(values);
    if (length < static_cast<int>(sizeof buffer))
        return buffer;
    std::string text(static_cast<std::size_t>(length), '\0');
    va_start(values, format);
    vsnprintf(text.data(), text.size() + 1, format, values);
    va_end(values);
    return text;
}

std::string_view nextToken(std::string_view& rest, char delimiter) {
    rest.remove_prefix(std::min(rest.find_first_not_of(delimiter), rest.size()));
    const std::string_view token = rest.substr(0, rest.find(delimiter));
    rest.remove_prefix(std::min(token.size() + 1, rest.size()));
    return token;
}

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

std::optional<int> parseInt(std::string_view text) {
    int number = 0;
    return readInt(text, number) == std::errc() ? std::optional(number) : std::nullopt;
}

std::optional<int> parseNearestInt(std::string_view text) {
    int number = 0;
    const bool isNumber = readInt(text, number) != std::errc::invalid_argument;
    return isNumber ? std::optional(number) : std::nullopt;
}

std::uint32_t parseUnsigned(std::string_view text) {
    const bool negative = takeMinus(text);
    int base = 10;
    if (takeChar(text, '0')) {
        base = 8;
        if (takeChar(text, 'x') || takeChar(text, 'X'))
            base = 16;
    }
    std::uint32_t number = 0;
    if (readDigits(text, base, number) == std::errc::result_out_of_range)
        return std::numeric_limits<std::uint32_t>::max();
    return negative ? 0 - number : number;
}

bool isSafeText(std::string_view text) {
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte == 0x7f || contains("\"$`\\;", {&c, 1}))
            return false;
    }
    return !contains(text, " integer:") && !contains(text, " text:");
}

bool isSafeValue(const char* buffer, int bufferSize, int length) {
    return length >= 0 && length <= bufferSize &&
           isSafeText({buffer, static_cast<std::size_t>(length)});
}

} // namespace kavo::snmp
