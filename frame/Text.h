#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

/** Texts and the numbers in them, the same whatever the host's locale. */
namespace kavo::snmp {

/** A text, referred to, or a decimal number. */
class Piece {
public:
    using Digits = char[21];

    Piece(std::string_view text)
        : m_text(text.data() != nullptr ? text.data() : ""), m_size(text.size()) {}
    Piece(const std::string& text) : Piece(std::string_view(text)) {}
    Piece(const char* text) : Piece(std::string_view(text)) {}
    Piece(int number)
        : m_number(number < 0 ? 0UL - static_cast<unsigned long>(number)
                              : static_cast<unsigned long>(number)),
          m_negative(number < 0) {}
    Piece(unsigned int number) : m_number(number) {}
    Piece(unsigned long number) : m_number(number) {}

    /** @return the text; a number's stands in the digits */
    std::string_view text(Digits& digits) const;

private:
    const char* m_text = nullptr; // null for a number
    union {
        std::size_t m_size;
        unsigned long m_number;
    };
    bool m_negative = false;
};

void append(std::string& text, std::initializer_list<Piece> pieces);
std::string join(std::initializer_list<Piece> pieces);

/**
 * Takes the next token off the front of a text, as strtok_r() does: leading
 * delimiters are skipped and the one that ends the token is taken along.
 * @return the token, empty when there is none left
 */
std::string_view nextToken(std::string_view& rest, char delimiter);

bool contains(std::string_view text, std::string_view part);

/**
 * The decimal integer that a text begins with: white space, an optional sign,
 * digits up to the first other character.
 * @return nothing when there is no digit or the number does not fit
 */
std::optional<int> parseInt(std::string_view text);

/** The same, but a number that does not fit is the nearest that does, as a stream reads it. */
std::optional<int> parseNearestInt(std::string_view text);

/**
 * The unsigned number that a text begins with, as strtoul() reads it with base
 * 0 where a long has 32 bits: 0x is hexadecimal, a leading 0 octal, no number
 * is 0, one too large the largest.
 */
std::uint32_t parseUnsigned(std::string_view text);

/**
 * Whether a text can stand in a command line without ending or changing it: the
 * shell sees it between double quotes, the client up to a semicolon.
 */
bool isSafeText(std::string_view text);

/** The same for the first `length` characters of a caller's buffer, which must hold them. */
bool isSafeValue(const char* buffer, int bufferSize, int length);

} // namespace kavo::snmp
