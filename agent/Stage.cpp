#include "Stage.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

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

/// The Id that the client tells of a row that it has inserted; 0 when it tells none.
int idIn(std::string_view answer) {
    if (answer.empty() || answer.back() != '\n')
        return 0;
    answer.remove_suffix(1);
    int id = 0;
    const auto [stop, error] = std::from_chars(answer.data(), answer.data() + answer.size(), id);
    return error == std::errc() && stop == answer.data() + answer.size() ? id : 0;
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

} // namespace

/// A command, taken apart.
struct Stage::Command {
    enum class Verb { select, size, update, insert, remove };

    Verb verb;
    Table table;
    std::size_t keyColumn = 0; ///< of selectkey, updatekey and deletekey
    std::string key;
    std::optional<std::size_t> row; ///< of selectrow
    std::vector<std::size_t> columns;
    std::vector<std::string> values; ///< one for each column, where the verb writes

    const TableShape& shape() const { return shapeOf(table); }
    bool writes() const { return verb != Verb::select && verb != Verb::size; }

    /// @return nothing for what the client would refuse
    static std::optional<Command> parse(std::string_view text);

    bool matches(const Row& line) const {
        return keyColumn == 0 ? line.columns[0] == key
                              : line.fits(table) && line.columns[keyColumn] == key;
    }
};

std::optional<Stage::Command> Stage::Command::parse(std::string_view text) {
    constexpr struct {
        std::string_view name;
        Verb verb;
        bool keyed;
    } kVerbs[] = {
        {"selectkey", Verb::select, true},  {"selectrow", Verb::select, false},
        {"size", Verb::size, false},        {"updatekey", Verb::update, true},
        {"insertkey", Verb::insert, false}, {"deletekey", Verb::remove, true},
    };

    const std::size_t end = text.find(';');
    if (end == text.npos)
        return std::nullopt;
    const std::vector<std::string_view> words = wordsOf(text.substr(0, end));
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

bool Stage::isFor(std::string_view commandLine) {
    commandLine.remove_prefix(std::min(commandLine.find_first_not_of(' '), commandLine.size()));
    return startsWith(commandLine, "quorlet ");
}

std::optional<std::string> Stage::answer(const std::string& commandLine) {
    const std::size_t begin = commandLine.find('"');
    const std::size_t end = commandLine.rfind('"');
    if (begin == end)
        return "";
    const auto command =
        Command::parse(std::string_view(commandLine).substr(begin + 1, end - begin - 1));
    if (!command)
        return ""; // the client complains on standard error only
    return command->writes() ? write(*command, commandLine) : select(*command);
}

std::string Stage::select(const Command& command) const {
    const Rows& rows = m_image[command.table];
    if (command.verb == Command::Verb::size)
        return std::to_string(rows.size()) + "\n";
    const auto found =
        command.row
            ? rows.begin() + static_cast<std::ptrdiff_t>(std::min(*command.row, rows.size()))
            : std::find_if(rows.begin(), rows.end(),
                           [&](const Row& row) { return command.matches(row); });
    if (found == rows.end())
        return std::string(kUnknownRow);
    Row shown = *found;
    if (!command.columns.empty()) {
        shown.columns.clear();
        for (const std::size_t column : command.columns) {
            if (column != 0 && !found->fits(command.table))
                return ""; // rather than another column's value
            shown.columns.push_back(found->columns[column]);
        }
    }
    return shown.text() + "\n";
}

std::optional<std::string> Stage::write(const Command& command, const std::string& commandLine) {
    const TableShape& shape = command.shape();
    const Rows rows = m_image[command.table];
    Rows matching;
    if (command.verb != Command::Verb::insert) {
        for (const Row& row : rows)
            if (command.matches(row))
                matching.push_back(row);
        if (matching.empty())
            return std::string(kUnknownRow);
        if (!std::all_of(matching.begin(), matching.end(),
                         [&](const Row& row) { return row.fits(command.table); }))
            return ""; // it could not be taken back
    }
    ++m_writes;
    std::optional<std::string> said;
    if (m_client) {
        said = runClient(command, commandLine);
        if (m_brokenOff || said == kLocked)
            return said;
    }

    if (command.verb == Command::Verb::insert) {
        int id = 0; // as the client numbers them: the highest so far, plus 1
        for (const Row& row : rows)
            id = std::max(id, row.id());
        ++id;
        if (said)
            id = idIn(*said);
        Row row;
        for (const Column& column : shape.columns)
            row.columns.emplace_back(column.text ? "" : "0");
        row.columns[0] = std::to_string(id);
        for (std::size_t i = 0; i < command.columns.size(); ++i)
            row.columns[command.columns[i]] = command.values[i];
        put(command.table, id, row);
        return said ? said : std::to_string(id) + "\n";
    }
    for (const Row& row : matching) {
        if (command.verb == Command::Verb::remove) {
            put(command.table, row.id(), std::nullopt);
            continue;
        }
        Row changed = row;
        for (std::size_t i = 0; i < command.columns.size(); ++i)
            changed.columns[command.columns[i]] = command.values[i];
        put(command.table, row.id(), changed);
    }
    return said ? said : std::string(kSucceeded);
}

/// Runs a write, unless one before it has come out otherwise than rehearsed.
std::optional<std::string> Stage::runClient(const Command& command,
                                            const std::string& commandLine) {
    // While the database is locked the library tries again; then it goes on without.
    m_brokenOff = m_brokenOff || (!m_locked.empty() && m_locked != commandLine);
    if (m_brokenOff)
        return "";
    m_locked.clear();
    std::optional<std::string> said = m_client(commandLine);
    if (said == kLocked)
        m_locked = commandLine;
    else
        m_brokenOff = !said || !isRehearsed(command, *said);
    return said;
}

/// Whether the client has answered as the image makes one expect. A new row may get any Id that is
/// free, but for one that has to be the neighbour of the row before it.
bool Stage::isRehearsed(const Command& command, const std::string& said) {
    if (command.verb != Command::Verb::insert)
        return said == kSucceeded;
    const int id = idIn(said);
    if (id <= 0 || m_image.find(command.table, id) != m_image[command.table].end())
        return false;
    if (!hasNeighbours(command.table))
        return true;
    const std::size_t column = command.shape().bridgeId;
    const auto place = std::find(command.columns.begin(), command.columns.end(), column);
    const std::string bridge =
        place == command.columns.end()
            ? ""
            : command.values[static_cast<std::size_t>(place - command.columns.begin())];
    const bool apart =
        m_neighbour.id != 0 && m_neighbour.bridge == bridge && id != m_neighbour.id + 1;
    m_neighbour = {bridge, id};
    return !apart;
}

void Stage::put(Table table, int id, const std::optional<Row>& version) {
    Rows& rows = m_image[table];
    if (m_record != nullptr) {
        m_record->note(table, rows, id, version);
        if (table == Table::bridge && !version)
            noteReferences(std::to_string(id));
    }
    const auto row = m_image.find(table, id);
    if (!version)
        rows.erase(row);
    else if (row != rows.end())
        *row = *version;
    else
        rows.push_back(*version);
}

/// What still refers to a bridge that goes has to follow when that comes back under another Id.
void Stage::noteReferences(const std::string& bridge) {
    for (const Table table : kAllTables)
        for (const Row& row : m_image[table])
            if (const std::size_t column = shapeOf(table).bridgeId;
                column != 0 && row.fits(table) && row.columns[column] == bridge)
                m_record->note(table, m_image[table], row.id(), row);
}

} // namespace agent
