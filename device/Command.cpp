#include "Command.h"

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace device {
namespace {

constexpr std::string_view kInteger = "integer:";
constexpr std::string_view kText = "text:";

enum class Head { table, key, row };
enum class Tail { none, columns, anyColumns, values };

struct Shape {
    std::string_view name;
    Verb verb;
    Head head;
    Tail tail;
};

constexpr Shape kShapes[] = {
    {"selectkey", Verb::selectkey, Head::key, Tail::columns},
    {"updatekey", Verb::updatekey, Head::key, Tail::values},
    {"insertkey", Verb::insertkey, Head::table, Tail::values},
    {"deletekey", Verb::deletekey, Head::key, Tail::none},
    {"selectrow", Verb::selectrow, Head::row, Tail::anyColumns},
    {"size", Verb::size, Head::table, Tail::none},
};

[[noreturn]] void fail(const std::string& what) {
    throw std::invalid_argument(what);
}

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

int number(std::string_view digits) {
    int value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value);
    if (error != std::errc() || stop != end)
        fail("no number: \"" + std::string(digits) + '"');
    return value;
}

/// Takes a command's tokens one by one.
class Scanner {
public:
    explicit Scanner(std::string_view text) : m_rest(text) {}

    bool done() {
        m_rest.remove_prefix(std::min(m_rest.find_first_not_of(' '), m_rest.size()));
        return m_rest.empty();
    }

    /// The next word; empty at the end.
    std::string_view word() {
        done();
        return take(m_rest.find(' '));
    }

    std::string need(const char* what) {
        const std::string_view found = word();
        if (found.empty())
            fail(std::string("missing ") + what);
        return std::string(found);
    }

    Value typedValue() {
        done();
        if (skip(kInteger))
            return number(take(m_rest.find(' ')));
        if (skip(kText))
            return std::string(take(textEnd()));
        fail("neither integer: nor text: at \"" + std::string(m_rest) + '"');
    }

private:
    std::string_view take(std::size_t length) {
        const std::string_view taken = m_rest.substr(0, length);
        m_rest.remove_prefix(taken.size());
        return taken;
    }

    bool skip(std::string_view start) {
        if (!startsWith(m_rest, start))
            return false;
        m_rest.remove_prefix(start.size());
        return true;
    }

    /// Length of the text at which the scanner stands.
    std::size_t textEnd() const {
        std::size_t end = 0; // behind the last word that belongs to the text
        Scanner ahead(m_rest);
        for (bool first = m_rest.empty() || m_rest.front() != ' '; !ahead.done(); first = false) {
            Scanner pair = ahead;
            const std::string_view column = pair.word();
            const std::string_view value = pair.word();
            // A word that touches the colon belongs to the text, whatever follows it.
            if (!first && column.find(':') == column.npos &&
                (startsWith(value, kInteger) || startsWith(value, kText)))
                break;
            ahead.word();
            end = m_rest.size() - ahead.m_rest.size();
        }
        return end;
    }

    std::string_view m_rest;
};

std::string_view body(std::string_view text) {
    const auto control = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; };
    if (std::any_of(text.begin(), text.end(), control))
        fail("control character in command");
    const std::size_t end = text.find(';');
    if (end == text.npos)
        fail("missing ;");
    if (text.find_first_not_of(' ', end + 1) != text.npos)
        fail("text after ;");
    return text.substr(0, end);
}

} // namespace

Command parseCommand(std::string_view text) {
    Scanner scanner(body(text));
    const std::string verb = scanner.need("verb");
    const auto* const shape = std::find_if(std::begin(kShapes), std::end(kShapes),
                                           [&](const Shape& s) { return s.name == verb; });
    if (shape == std::end(kShapes))
        fail("unknown verb " + verb);

    Command command;
    command.verb = shape->verb;
    command.table = scanner.need("table");
    if (shape->head == Head::key) {
        command.keyColumn = scanner.need("key column");
        command.keyValue = scanner.need("key value");
    } else if (shape->head == Head::row) {
        command.row = number(scanner.need("row number"));
        if (command.row < 0)
            fail("negative row number");
    }

    if (shape->tail == Tail::none && !scanner.done())
        fail("too many words");
    if (shape->tail == Tail::columns || shape->tail == Tail::values)
        if (scanner.done())
            fail("missing column");
    while (!scanner.done()) {
        command.columns.push_back(scanner.need("column"));
        if (shape->tail == Tail::values)
            command.values.push_back(scanner.typedValue());
    }
    return command;
}

} // namespace device
