#include "agent/change/Stage.h"

#include <algorithm>
#include <charconv>
#include <string>
#include <utility>
#include <vector>

namespace agent {

int idIn(std::string_view answer) {
    if (answer.empty() || answer.back() != '\n')
        return 0;
    answer.remove_suffix(1);
    int id = 0;
    const auto [stop, error] = std::from_chars(answer.data(), answer.data() + answer.size(), id);
    return error == std::errc() && stop == answer.data() + answer.size() ? id : 0;
}

void Stage::perform(const Script& script, Client client, Renumber renumber) {
    m_script = &script;
    m_client = std::move(client);
    m_renumber = std::move(renumber);
}

std::optional<std::string> Stage::answer(const std::string& commandLine) {
    const auto command = Command::parse(commandLine);
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
    const Rows& rows = m_image[command.table];
    Rows matching;
    Row row; // a new one
    if (command.verb != Command::Verb::insert) {
        for (const Row& each : rows)
            if (command.matches(each))
                matching.push_back(each);
        if (matching.empty())
            return std::string(kUnknownRow);
        if (!std::all_of(matching.begin(), matching.end(),
                         [&](const Row& each) { return each.fits(command.table); }))
            return ""; // it could not be taken back
    } else {
        for (const Column& column : command.shape().columns)
            row.columns.emplace_back(column.text ? "" : "0");
        for (std::size_t i = 0; i < command.columns.size(); ++i)
            row.columns[command.columns[i]] = command.values[i];
        row.columns[0] = "0";
    }
    if (m_script != nullptr) {
        // While the database is locked the library tries again; then it goes on without.
        const bool again = !m_locked.empty() && m_locked == commandLine;
        m_brokenOff = m_brokenOff || (!m_locked.empty() && !again) || !isNext(command);
        if (m_brokenOff)
            return "";
        if (!again)
            note(command, matching, row);
        std::optional<std::string> said = runClient(command, commandLine);
        if (m_brokenOff || said == kLocked)
            return said;
        if (command.verb == Command::Verb::insert)
            row.columns[0] = std::to_string(idIn(*said));
        apply(command, matching, row);
        return said;
    }
    if (command.verb == Command::Verb::insert) {
        int id = 0; // as the client numbers them: the highest so far, plus 1
        for (const Row& each : rows)
            id = std::max(id, each.id());
        row.columns[0] = std::to_string(id + 1);
    }
    note(command, matching, row);
    apply(command, matching, row);
    return command.verb == Command::Verb::insert ? row.columns[0] + "\n" : std::string(kSucceeded);
}

/// Runs a write, and compares its answer with the rehearsal.
std::optional<std::string> Stage::runClient(const Command& command,
                                            const std::string& commandLine) {
    std::optional<std::string> said = m_client(commandLine);
    m_locked = said == kLocked ? commandLine : "";
    if (said != kLocked)
        m_brokenOff = !said || !isRehearsed(command, *said);
    return said;
}

/// The Id that a row has where its rehearsed one was this.
int Stage::present(Table table, int rehearsed) const {
    const auto found = m_ids.find({table, rehearsed});
    return found != m_ids.end() ? found->second : rehearsed;
}

std::string Stage::present(Table table, const std::string& rehearsed) const {
    return std::to_string(present(table, Row{{rehearsed}}.id()));
}

/// Whether the library wants what it wanted in the rehearsal.
bool Stage::isNext(const Command& command) const {
    // The one that was written last is still the last where it found the database locked.
    const std::size_t place = m_written.size() - (m_locked.empty() ? 0 : 1);
    if (place >= m_script->size())
        return false;
    const Command& expected = (*m_script)[place].command;
    if (command.verb != expected.verb || command.table != expected.table ||
        command.keyColumn != expected.keyColumn || command.columns != expected.columns)
        return false;
    const std::size_t bridge = command.shape().bridgeId;
    std::string key = expected.key;
    if (command.verb != Command::Verb::insert && command.keyColumn == 0)
        key = present(command.table, key);
    else if (bridge != 0 && command.keyColumn == bridge)
        key = present(Table::bridge, key);
    std::vector<std::string> values = expected.values;
    for (std::size_t i = 0; i < values.size(); ++i)
        if (bridge != 0 && command.columns[i] == bridge)
            values[i] = present(Table::bridge, values[i]);
    return command.key == key && command.values == values;
}

/// Whether the client has answered as the image makes one expect. A new row may get any Id that is
/// free, but for one that has to be the neighbour of the row before it.
bool Stage::isRehearsed(const Command& command, const std::string& said) {
    if (command.verb != Command::Verb::insert)
        return said == kSucceeded;
    const int id = idIn(said);
    if (id <= 0)
        return false;
    const Rehearsed& rehearsed = (*m_script)[m_written.size() - 1];
    const std::size_t trail = m_written.back().trail;
    m_ids[{command.table, rehearsed.id}] = id;
    if (m_record != nullptr)
        m_record->renumber(command.table, trail, id);
    if (id != rehearsed.id && m_renumber && !m_renumber(rehearsed, id))
        return false;
    if (m_image.find(command.table, id) != m_image[command.table].end())
        return false; // others have removed that one since
    if (!hasNeighbours(command.table))
        return true;
    const int before = present(command.table, rehearsed.id - 1);
    const auto row = m_image.find(command.table, before);
    if (row == m_image[command.table].end() || !row->fits(command.table))
        return true;
    const std::size_t column = command.shape().bridgeId;
    const auto place = std::find(command.columns.begin(), command.columns.end(), column);
    const bool together =
        place != command.columns.end() &&
        command.values[static_cast<std::size_t>(place - command.columns.begin())] ==
            row->columns[column];
    return !together || id == before + 1;
}

/// Notes a write before it is run: nobody can know what became of it when the answer is lost.
void Stage::note(const Command& command, const Rows& matching, Row row) {
    m_written.push_back({command, row.columns.empty() ? 0 : row.id(), 0});
    if (m_record == nullptr)
        return;
    if (command.verb == Command::Verb::insert)
        m_written.back().trail = m_record->add(m_image, command.table, row);
    for (const Row& each : matching) {
        if (command.verb == Command::Verb::remove) {
            m_record->remove(m_image, command.table, each);
            continue;
        }
        Row wanted = each;
        for (std::size_t i = 0; i < command.columns.size(); ++i)
            wanted.columns[command.columns[i]] = command.values[i];
        m_record->alter(m_image, command.table, each, wanted);
    }
}

/// Does to the image what a write does to the database.
void Stage::apply(const Command& command, const Rows& matching, Row row) {
    if (m_script != nullptr && m_record != nullptr)
        m_record->settle();
    Rows& rows = m_image[command.table];
    if (command.verb == Command::Verb::insert) { // where the database has it: the first one counts
        const auto behind = std::find_if(rows.begin(), rows.end(),
                                         [&](const Row& each) { return each.id() > row.id(); });
        rows.insert(behind, std::move(row));
    }
    for (const Row& each : matching) {
        const auto place = m_image.find(command.table, each.id());
        if (command.verb == Command::Verb::remove)
            rows.erase(place);
        else
            for (std::size_t i = 0; i < command.columns.size(); ++i)
                place->columns[command.columns[i]] = command.values[i];
    }
}

} // namespace agent
