#include "frame/Log.h"

#include "frame/Text.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <memory>
#include <new>
#include <syslog.h>

namespace kavo::snmp::log {

namespace {

struct LevelName {
    char word[8];
    int priority;
};

constexpr LevelName levels[] = {
    {"error", LOG_ERR},     {"warning", LOG_WARNING}, {"trace", LOG_INFO},
    {"tracedo", LOG_DEBUG}, {"debug", LOG_DEBUG},
};

// Writes pieces one after the other into a buffer and counts them; what does not fit is left out.
class Cursor {
public:
    Cursor(char* begin, std::size_t capacity) : m_next(begin), m_room(capacity - 1) {}

    void put(const Piece& piece) {
        Piece::Digits digits;
        const std::string_view text = piece.text(digits);
        const std::size_t size = std::min(m_room, text.size());
        std::memcpy(m_next, text.data(), size);
        m_next += size;
        *m_next = '\0';
        m_room -= size;
        m_wanted += text.size();
    }

    std::size_t wanted() const { return m_wanted; }

private:
    char* m_next;
    std::size_t m_room;
    std::size_t m_wanted = 0;
};

// The next piece, as pass() sent it.
Piece take(char letter, va_list& values) {
    switch (letter) {
    case log::letter<const char*>:
        return va_arg(values, const char*);
    case log::letter<const std::string*>:
        return *va_arg(values, const std::string*);
    case log::letter<const std::string_view*>:
        return *va_arg(values, const std::string_view*);
    case log::letter<int>:
        return va_arg(values, int);
    case log::letter<unsigned int>:
        return va_arg(values, unsigned int);
    default:
        return va_arg(values, unsigned long);
    }
}

} // namespace

void Unit::write(Level level, Head head, const char* letters, ...) const noexcept {
    const LevelName& name = levels[static_cast<int>(level)];
    va_list values;
    va_start(values, letters);
    const auto put = [&](char* line, std::size_t capacity) {
        Cursor cursor(line, capacity);
        for (const Piece& piece :
             {Piece(name.word), Piece(":"), Piece(m_tag), Piece(": "), Piece(m_file), Piece(":"),
              Piece(head.line), Piece("  "), Piece(head.text)})
            cursor.put(piece);
        va_list rest;
        va_copy(rest, values);
        for (const char* letter = letters; *letter != '\0'; ++letter)
            cursor.put(take(*letter, rest));
        va_end(rest);
        return cursor.wanted();
    };

    // Usual lines need no heap, so that running out of memory can be reported; a long one that
    // finds no memory stays cut.
    char local[512];
    char* line = local;
    const std::size_t size = put(local, sizeof local);
    std::unique_ptr<char[]> heap;
    if (size >= sizeof local) {
        heap.reset(new (std::nothrow) char[size + 1]);
        if (heap) {
            line = heap.get();
            put(line, size + 1);
        }
    }
    va_end(values);
    syslog(name.priority, "%s\n", line);
}

} // namespace kavo::snmp::log
