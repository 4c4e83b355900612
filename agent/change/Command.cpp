#include "agent/change/Command.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

namespace agent {

namespace {

constexpr std::string_view kInteger = "integer:";
constexpr std::string_view kText = "text:";

bool startsWith(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

bool isTyped(std::string_view word) {
    return startsWith(word, kInteger) || startsWith(word, kText);
}

/// Runs of characters other than blanks; each refers to the text.
std::vector<std::string_view> wordsOf(std::string_view text) {
    std::vector<std::string_view> words;
    for (std::size_t begin; (begin = text.find_first_not_of(' ')) != text.npos;) {
        text.remove_prefix(begin);
        words.push_back(text.substr(0, text.find(' ')));
        text.remove_prefix(words.back().size());
    }
    return words;
}

constexpr struct {
    std::string_view name;
    Command::Verb verb;
    bool keyed;
} kVerbs[] = {
    {"selectkey", Command::Verb::select, true},  {"selectrow", Command::Verb::select, false},
    {"size", Command::Verb::size, false},        {"updatekey", Command::Verb::update, true},
    {"insertkey", Command::Verb::insert, false}, {"deletekey", Command::Verb::remove, true},
};

bool isInteger(const std::string& text) {
    const std::size_t sign = !text.empty() && text.front() == '-' ? 1 : 0;
    return text.size() > sign && text.find_first_not_of("0123456789", sign) == text.npos;
}

} // namespace

bool isSafe(char c) {
    return static_cast<unsigned char>(c) >= ' ' && c != 0x7f &&
           std::string_view("\"$`\\;").find(c) == std::string_view::npos;
}

bool isSafe(const Column& column, const std::string& value) {
    if (!column.text)
        return isInteger(value);
    const bool blanks = !value.empty() && (value.front() == ' ' || value.back() == ' ');
    return std::all_of(value.begin(), value.end(), [](char c) { return isSafe(c); }) && !blanks &&
           value.find(" integer:") == value.npos && value.find(" text:") == value.npos;
}

bool Command::isFor(std::string_view commandLine) {
    commandLine.remove_prefix(std::min(commandLine.find_first_not_of(' '), commandLine.size()));
    return startsWith(commandLine, "quorlet ");
}

std::optional<Command> Command::parse(std::string_view commandLine) {
    const std::size_t quote = commandLine.find('"');
    const std::size_t end = commandLine.find(';', quote);
    if (quote == commandLine.npos || end == commandLine.npos || end > commandLine.rfind('"'))
        return std::nullopt;
    const std::vector<std::string_view> words =
        wordsOf(commandLine.substr(quote + 1, end - quote - 1));
    if (words.size() < 2)
        return std::nullopt;
    const auto* const verb = std::find_if(std::begin(kVerbs), std::end(kVerbs),
                                          [&](const auto& v) { return v.name == words[0]; });
    const auto* const table = std::find_if(kAllTables.begin(), kAllTables.end(),
                                           [&](Table t) { return shapeOf(t).name == words[1]; });
    if (verb == std::end(kVerbs) || table == kAllTables.end())
        return std::nullopt;
    Command command{verb->verb, *table, 0, {}, {}, {}, {}};
    const TableShape& shape = command.shape();
    std::size_t at = 2;
    if (verb->keyed) {
        if (words.size() < 4 || shape.find(words[2]) == shape.columns.size())
            return std::nullopt;
        command.keyColumn = shape.find(words[2]);
        command.key = words[3];
        at = 4;
    } else if (verb->name == "selectrow") {
        if (words.size() < 3)
            return std::nullopt;
        command.row = std::strtoul(std::string(words[2]).c_str(), nullptr, 10);
        at = 3;
    }
    while (at < words.size()) {
        const std::size_t column = shape.find(words[at]);
        if (column == shape.columns.size())
            return std::nullopt;
        command.columns.push_back(column);
        ++at;
        if (!command.writes())
            continue;
        const std::string_view type = shape.columns[column].text ? kText : kInteger;
        if (at == words.size() || !startsWith(words[at], type))
            return std::nullopt;
        // A text has its inner blanks and ends where the next column's value comes.
        const char* const begin = words[at].data() + type.size();
        const char* last = words[at].data() + words[at].size();
        for (++at; at < words.size(); ++at) {
            const bool next = words[at].find(':') == words[at].npos && at + 1 < words.size() &&
                              isTyped(words[at + 1]);
            if (next || !shape.columns[column].text)
                break;
            last = words[at].data() + words[at].size();
        }
        command.values.emplace_back(begin, last);
    }
    return command;
}

Command Command::update(Table table, int id) {
    return {Verb::update, table, 0, std::to_string(id), {}, {}, {}};
}

Command Command::insert(Table table) {
    return {Verb::insert, table, 0, {}, {}, {}, {}};
}

Command Command::remove(Table table, int id) {
    return {Verb::remove, table, 0, std::to_string(id), {}, {}, {}};
}

Command& Command::with(std::size_t column, const std::string& value) {
    columns.push_back(column);
    values.push_back(value);
    return *this;
}

std::string Command::line() const {
    const auto* const known = std::find_if(std::begin(kVerbs), std::end(kVerbs),
                                           [this](const auto& v) { return v.verb == verb; });
    std::string text = " quorlet \" ";
    text.append(known->name).append(" ").append(shape().name);
    if (known->keyed)
        text.append(" ").append(shape().columns[keyColumn].name).append(" ").append(key);
    for (std::size_t i = 0; i < columns.size(); ++i) {
        const Column& column = shape().columns[columns[i]];
        text.append(" ").append(column.name).append(" ");
        text.append(column.text ? kText : kInteger).append(values[i]);
    }
    return text + " ;\" ";
}

bool Command::matches(const Row& line) const {
    return keyColumn == 0 ? line.columns[0] == key
                          : line.fits(table) && line.columns[keyColumn] == key;
}

} // namespace agent
