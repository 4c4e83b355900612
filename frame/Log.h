#pragma once

#include "frame/Text.h"

#include <initializer_list>
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

/** One source unit's lines: its module tag and source file name. */
class Unit {
public:
    constexpr Unit(const char* tag, const char* file) : m_tag(tag), m_file(file) {}

    template <class... Pieces>
    void error(Head head, const Pieces&... pieces) const {
        write(Level::error, head, {value(pieces)...});
    }

    template <class... Pieces>
    void warning(Head head, const Pieces&... pieces) const {
        write(Level::warning, head, {value(pieces)...});
    }

    // The lines below are written only when `on`; a piece that is costly to make is given as a
    // call and made only then.

    template <class... Pieces>
    void trace(bool on, Head head, const Pieces&... pieces) const {
        if (on)
            write(Level::trace, head, {value(pieces)...});
    }

    template <class... Pieces>
    void tracedo(bool on, Head head, const Pieces&... pieces) const {
        if (on)
            write(Level::tracedo, head, {value(pieces)...});
    }

    template <class... Pieces>
    void debug(bool on, Head head, const Pieces&... pieces) const {
        if (on)
            write(Level::debug, head, {value(pieces)...});
    }

private:
    template <class T>
    static decltype(auto) value(const T& piece) {
        if constexpr (std::is_invocable_v<const T&>)
            return piece();
        else
            return (piece);
    }

    void write(Level level, Head head, std::initializer_list<Piece> pieces) const noexcept;

    const char* m_tag;
    const char* m_file;
};

} // namespace kavo::snmp::log
