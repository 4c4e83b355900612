#include "frame/Text.h"

#include <algorithm>
#include <iterator>
#include <limits>

namespace kavo::snmp {

namespace {

// Takes white space and a sign off the text's front; true when the sign is a minus.
bool takeSign(std::string_view& text) {
    const std::size_t start = text.find_first_not_of(" \t\n\v\f\r");
    text.remove_prefix(start == std::string_view::npos ? text.size() : start);
    const bool negative = !text.empty() && text.front() == '-';
    if (negative || (!text.empty() && text.front() == '+'))
        text.remove_prefix(1);
    return negative;
}

constexpr std::uint32_t largestUnsigned = std::numeric_limits<std::uint32_t>::max();

// The value of a digit; no base has one so large when it is none.
int digitValue(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return std::numeric_limits<int>::max();
}

// The number that the text begins with, nothing without a digit. Past 32 bits it stops growing.
std::optional<std::uint64_t> digits(std::string_view text, int base) {
    std::optional<std::uint64_t> number;
    for (const char c : text) {
        const int value = digitValue(c);
        if (value >= base)
            break;
        const std::uint64_t before = number.value_or(0);
        number = before > largestUnsigned
                     ? before
                     : before * static_cast<unsigned int>(base) + static_cast<unsigned int>(value);
    }
    return number;
}

} // namespace

std::string_view Piece::text(Digits& digits) const {
    if (m_text != nullptr)
        return {m_text, m_size};
    char* const end = std::end(digits);
    char* begin = end;
    unsigned long rest = m_number;
    do
        *--begin = static_cast<char>('0' + rest % 10);
    while ((rest /= 10) != 0);
    if (m_negative)
        *--begin = '-';
    return {begin, static_cast<std::size_t>(end - begin)};
}

void append(std::string& text, std::initializer_list<Piece> pieces) {
    Piece::Digits digits;
    for (const Piece& piece : pieces)
        text.append(piece.text(digits));
}

std::string join(std::initializer_list<Piece> pieces) {
    std::string text;
    append(text, pieces);
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
    const bool negative = takeSign(text);
    const std::optional<std::uint64_t> magnitude = digits(text, 10);
    constexpr std::uint64_t largest = std::numeric_limits<int>::max();
    if (!magnitude || *magnitude > largest + (negative ? 1 : 0))
        return std::nullopt;
    const auto number = static_cast<std::int64_t>(*magnitude);
    return static_cast<int>(negative ? -number : number);
}

std::uint32_t parseUnsigned(std::string_view text) {
    const bool negative = takeSign(text);
    const bool octal = !text.empty() && text[0] == '0';
    const bool hexadecimal = octal && text.size() > 1 && (text[1] == 'x' || text[1] == 'X');
    const std::uint64_t magnitude =
        (hexadecimal ? digits(text.substr(2), 16) : digits(text, octal ? 8 : 10)).value_or(0);
    if (magnitude > largestUnsigned)
        return largestUnsigned;
    const auto number = static_cast<std::uint32_t>(magnitude);
    return negative ? 0 - number : number;
}

bool isSafeText(std::string_view text) {
    return std::none_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        const bool control = byte < 0x20 || byte == 0x7f;
        return control || c == '"' || c == '$' || c == '`' || c == '\\' || c == ';';
    });
}

bool isSafeValue(const char* buffer, int bufferSize, int length) {
    return length >= 0 && length <= bufferSize &&
           isSafeText({buffer, static_cast<std::size_t>(length)});
}

} // namespace kavo::snmp
