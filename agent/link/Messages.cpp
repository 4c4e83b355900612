#include "agent/link/Messages.h"

#include <algorithm>
#include <cstring>
#include <type_traits>
#include <utility>

namespace agent {

namespace {

/// Appends values to a packet.
class Packer {
public:
    template <class... Fields>
    void operator()(Fields&... fields) {
        (put(fields), ...);
    }

    std::string packet;

private:
    template <class T>
    void put(T& value);
    void put(std::string& text) {
        std::size_t size = text.size();
        put(size);
        packet += text;
    }
    void put(const Object*& object) {
        auto index = static_cast<std::size_t>(object - objects().data());
        put(index);
    }
    template <class T>
    void put(std::vector<T>& list) {
        std::size_t size = list.size();
        put(size);
        for (T& item : list)
            put(item);
    }
    template <class Key, class T>
    void put(std::map<Key, T>& map) {
        std::size_t size = map.size();
        put(size);
        for (auto& [key, value] : map) {
            Key copy = key;
            put(copy);
            put(value);
        }
    }
};

/// Takes them out again, in the same order. What is short or wrong makes it bad from there on.
class Unpacker {
public:
    explicit Unpacker(const std::string& packet) : m_rest(packet) {}

    template <class... Fields>
    void operator()(Fields&... fields) {
        (get(fields), ...);
    }

    bool good() const { return m_good && m_rest.empty(); }

private:
    template <class T>
    void get(T& value);
    void get(std::string& text) { text = take(count()); }
    void get(bool& value) {
        unsigned char byte = 0;
        get(byte);
        m_good = m_good && byte < 2;
        value = byte == 1;
    }
    void get(const Object*& object) {
        const std::size_t index = count();
        m_good = m_good && index < objects().size();
        object = m_good ? &objects()[index] : nullptr;
    }
    template <class T>
    void get(std::vector<T>& list) {
        list.clear();
        for (std::size_t left = count(); left > 0 && m_good; --left)
            get(list.emplace_back());
    }
    template <class Key, class T>
    void get(std::map<Key, T>& map) {
        map.clear();
        for (std::size_t left = count(); left > 0 && m_good; --left) {
            Key key{};
            get(key);
            get(map[key]);
        }
    }

    std::size_t count() {
        std::size_t size = 0;
        get(size);
        return size;
    }
    std::string_view take(std::size_t size) {
        m_good = m_good && size <= m_rest.size();
        const std::string_view piece = m_rest.substr(0, m_good ? size : 0);
        m_rest.remove_prefix(piece.size());
        return piece;
    }

    std::string_view m_rest;
    bool m_good = true;
};

// Lists every member of a type that is not sent as raw bytes; a forgotten member does not compile.
#define MEMBERS(Type, ...)                                                                         \
    template <class Archive>                                                                       \
    void fields(Archive& archive, Type& whole) {                                                   \
        auto& [__VA_ARGS__] = whole;                                                               \
        archive(__VA_ARGS__);                                                                      \
    }

MEMBERS(Value, number, text)
MEMBERS(Change, object, row, value, place)
MEMBERS(SetRequest, id, incarnation, deadline, changes, trial, verdict)
MEMBERS(Layer2If, name, state)
MEMBERS(IfMapping, index, physical, logical)
MEMBERS(Model, rates, layer2, mapping, values)

#undef MEMBERS

template <class Archive>
void fields(Archive& archive, Snapshot& snapshot) { // its instances follow from the model
    archive(snapshot.model, snapshot.complete, snapshot.refreshed, snapshot.counters,
            snapshot.trial, snapshot.undoing, snapshot.revertReason);
}

template <class T>
void Packer::put(T& value) {
    if constexpr (std::is_trivially_copyable_v<T>)
        packet.append(reinterpret_cast<const char*>(&value), sizeof value);
    else
        fields(*this, value);
}

template <class T>
void Unpacker::get(T& value) {
    if constexpr (std::is_trivially_copyable_v<T>) {
        if (const std::string_view piece = take(sizeof value); m_good)
            std::memcpy(&value, piece.data(), sizeof value);
    } else {
        fields(*this, value);
    }
}

/// The kind of message that a packet begins with, to be filled.
template <std::size_t... kinds>
Message makeMessage(std::size_t kind, std::index_sequence<kinds...>) {
    Message message;
    ((kind == kinds ? static_cast<void>(message.emplace<kinds>()) : void()), ...);
    return message;
}

} // namespace

const Change* firstMissing(const std::vector<Change>& changes, const Snapshot& snapshot) {
    for (auto change = changes.begin(); change != changes.end(); ++change) {
        const bool replaced = std::any_of(change + 1, changes.end(), [&](const Change& later) {
            return later.object == change->object && later.row == change->row;
        });
        Value value;
        if (!replaced &&
            !(change->object->read({snapshot}, change->row, value) && value == change->value))
            return &*change;
    }
    return nullptr;
}

std::string pack(const Message& message) {
    Packer packer;
    std::size_t kind = message.index();
    packer(kind);
    Message copy = message;
    std::visit(packer, copy);
    return std::move(packer.packet);
}

std::optional<Message> unpack(const std::string& packet) {
    Unpacker unpacker(packet);
    std::size_t kind = 0;
    unpacker(kind);
    if (kind >= std::variant_size_v<Message>)
        return std::nullopt;
    Message message = makeMessage(kind, std::make_index_sequence<std::variant_size_v<Message>>());
    std::visit([&](auto& content) { unpacker(content); }, message);
    if (!unpacker.good())
        return std::nullopt;
    if (auto* snapshot = std::get_if<Snapshot>(&message))
        snapshot->instances = listInstances(*snapshot);
    return message;
}

} // namespace agent
