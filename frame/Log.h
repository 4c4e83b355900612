#pragma once

#include <string>
#include <string_view>
#include <type_traits>

/**
 * The library's one way into the system log. A line reads
 * "<level>:<tag>: <file>:<line>  <text>", the text joined from pieces.
 * Nothing here throws but a piece that is computed by a call.
 */
namespace kavo::snmp::log {

enum class Level { error, warning, trace, tracedo, debug };

/** A line's first piece; knows the source line that it stands on. */
struct Head {
    Head(const char* head, int sourceLine = __builtin_LINE()) : text(head), line(sourceLine) {}

    const char* text;
    int line;
};

/**
 * How a piece travels as a C argument, which takes the caller the least code:
 * by value or by address, with a letter that tells its type.
 */
inline const char* pass(const char* text) {
    return text;
}
inline const std::string* pass(const std::string& text) {
    return &text;
}
inline const std::string_view* pass(const std::string_view& text) {
    return &text;
}
inline int pass(bool flag) {
    return flag ? 1 : 0;
}
inline int pass(int number) {
    return number;
}
inline unsigned int pass(unsigned int number) {
    return number;
}
inline unsigned long pass(unsigned long number) {
    return number;
}

template <class Passed>
inline constexpr char letter = 0;
template <>
inline constexpr char letter<const char*> = 'c';
template <>
inline constexpr char letter<const std::string*> = 's';
template <>
inline constexpr char letter<const std::string_view*> = 'v';
template <>
inline constexpr char letter<int> = 'i';
template <>
inline constexpr char letter<unsigned int> = 'u';
template <>
inline constexpr char letter<unsigned long> = 'l';

/** One source unit's lines: its module tag and source file name. */
class Unit {
public:
    constexpr Unit(const char* tag, const char* file) : m_tag(tag), m_file(file) {}

    template <class... Pieces>
    void error(Head head, const Pieces&... pieces) const {
        send(Level::error, head, value(pieces)...);
    }

    template <class... Pieces>
    void warning(Head head, const Pieces&... pieces) const {
        send(Level::warning, head, value(pieces)...);
    }

    // The lines below are written only when `on`; a piece that is costly to make is given as a
    // call and made only then.

    template <class... Pieces>
    void trace(bool on, Head head, const Pieces&... pieces) const {
        if (on)
            send(Level::trace, head, value(pieces)...);
    }

    template <class... Pieces>
    void tracedo(bool on, Head head, const Pieces&... pieces) const {
        if (on)
            send(Level::tracedo, head, value(pieces)...);
    }

    template <class... Pieces>
    void debug(bool on, Head head, const Pieces&... pieces) const {
        if (on)
            send(Level::debug, head, value(pieces)...);
    }

private:
    template <class T>
    static decltype(auto) value(const T& piece) {
        if constexpr (std::is_invocable_v<const T&>)
            return piece();
        else
            return (piece);
    }

    template <class... Pieces>
    void send(Level level, Head head, const Pieces&... pieces) const {
        static constexpr char letters[] = {letter<decltype(pass(pieces))>..., '\0'};
        write(level, head, letters, pass(pieces)...);
    }

    void write(Level level, Head head, const char* letters, ...) const noexcept;

    const char* m_tag;
    const char* m_file;
};

} // namespace kavo::snmp::log
