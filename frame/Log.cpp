#include "frame/Log.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <syslog.h>

namespace kavo::snmp::log {

namespace {

struct LevelName {
    const char* word;
    int priority;
};

constexpr LevelName levels[] = {
    {"error", LOG_ERR},     {"warning", LOG_WARNING}, {"trace", LOG_INFO},
    {"tracedo", LOG_DEBUG}, {"debug", LOG_DEBUG},
};

// Writes texts one after the other into a buffer and counts them; what does not fit is left out.
class Cursor {
public:
    Cursor(char* begin, std::size_t capacity) : m_next(begin), m_room(capacity - 1) {}

    void put(std::string_view text) {
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

} // namespace

void Unit::write(Level level, Head head, std::initializer_list<Piece> pieces) const noexcept {
    const LevelName& name = levels[static_cast<int>(level)];
    const Piece start[] = {name.word, ":", m_tag, ": ", m_file, ":", head.line, "  ", head.text};
    const auto put = [&](char* line, std::size_t capacity) {
        Cursor cursor(line, capacity);
        Piece::Digits digits;
        for (const Piece& piece : start)
            cursor.put(piece.text(digits));
        for (const Piece& piece : pieces)
            cursor.put(piece.text(digits));
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
    syslog(name.priority, "%s\n", line);
}

} // namespace kavo::snmp::log
