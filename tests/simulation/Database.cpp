#include "Database.h"

#include "device/Command.h"

#include <algorithm>
#include <map>
#include <stdexcept>
#include <utility>
#include <variant>

namespace simulation {

using agent::shapeOf;
using agent::Table;

namespace {

const char* const kDone = "Operation succeeded\n";
const char* const kUnknownRow = "Unknown row\n";

Table tableOf(const std::string& name) {
    const auto* const found =
        std::find_if(agent::kAllTables.begin(), agent::kAllTables.end(),
                     [&name](Table table) { return shapeOf(table).name == name; });
    if (found == agent::kAllTables.end())
        throw std::invalid_argument("no such table");
    return *found;
}

std::size_t columnOf(Table table, const std::string& name) {
    const std::size_t column = shapeOf(table).find(name);
    if (column == shapeOf(table).columns.size())
        throw std::invalid_argument("no such column");
    return column;
}

std::vector<std::string> valuesOf(Table table, const device::Command& command) {
    std::vector<std::string> values;
    for (std::size_t i = 0; i < command.values.size(); ++i) {
        const bool text = std::holds_alternative<std::string>(command.values[i]);
        const std::size_t column = columnOf(table, command.columns[i]);
        if (column == 0 || shapeOf(table).columns[column].text != text)
            throw std::invalid_argument("no such value");
        values.push_back(text ? std::get<std::string>(command.values[i])
                              : std::to_string(std::get<int>(command.values[i])));
    }
    return values;
}

} // namespace

std::string Record::text() const {
    std::string line = cells.front().text;
    for (std::size_t i = 1; i < cells.size(); ++i)
        line += '|' + cells[i].text;
    return line;
}

void Database::makeFactory() {
    const Writer factory;
    if (m_reusesIds)
        for (const char* const row :
             {"NetworkSetupNode Type", "NetworkSetupNode Type", "StatusNetifConfig Name"})
            run(std::string("insertkey ") + row + " text:spare;", factory);
    for (int n = 1; n <= 8; ++n) {
        const std::string number = std::to_string(n);
        const std::string on = n <= 3 || n == 8 ? "1" : "0";
        run("insertkey Atm Enabled integer:" + on + " Vpi integer:" + number +
                " Vci integer:32 DeviceName text:atm" + number + ";",
            factory);
        run("insertkey VLAN InterfaceName text:eth0.10" + number + " ParentIf text:eth0;", factory);
        run("insertkey VLAN Enable integer:1 InterfaceName text:wan1.10" + number +
                " ParentIf text:wan1;",
            factory);
        if (on == "1")
            run("insertkey NetworkSetupNode Type text:MPoA InterfaceName text:wan" + number +
                    " ParentInterface text:SHDSL ConfigurationSpecifics text:" + number +
                    " Enable integer:1;",
                factory);
    }
    run("insertkey VLANSingleParams DiscardUntaggedFrames integer:0;", factory);
    run("insertkey StatusNetifConfig Name text:eth0;", factory);
    // Holes in the Ids: the client numbers new rows otherwise than a rehearsal does.
    for (const char* const table : {"NetworkSetupNode Type", "StatusNetifConfig Name"})
        if (m_reusesIds)
            run(std::string("deletekey ") + table + " spare;", factory);
}

std::optional<std::string> Database::run(const std::string& text, const Writer& writer) try {
    using device::Verb;
    const device::Command command = device::parseCommand(text);
    const Table table = tableOf(command.table);
    ++m_count;
    if (command.verb == Verb::size)
        return std::to_string(rows(table).size()) + "\n";
    if (command.verb == Verb::insertkey)
        return insert(table, command.columns, valuesOf(table, command), writer);
    const bool byKey = command.verb != Verb::selectrow;
    const std::size_t key = byKey ? columnOf(table, command.keyColumn) : 0;
    const std::vector<std::string> values = valuesOf(table, command);
    bool any = false;
    for (std::size_t i = byKey ? 0 : static_cast<std::size_t>(command.row); i < rows(table).size();
         ++i) {
        Record& row = rows(table)[i];
        if (byKey && row.cells[key].text != command.keyValue)
            continue;
        any = true;
        if (command.verb == Verb::selectkey || command.verb == Verb::selectrow) {
            if (!(writer == kOthers))
                row.read = m_count;
            if (command.columns.empty())
                return row.text() + "\n";
            std::string line;
            for (const std::string& column : command.columns)
                line += (line.empty() ? "" : "|") + row.cells[columnOf(table, column)].text;
            return line + "\n";
        }
        ++m_writes;
        if (command.verb == Verb::deletekey) {
            const Record gone = row;
            rows(table).erase(rows(table).begin() + static_cast<std::ptrdiff_t>(i--));
            if (m_watcher != nullptr)
                m_watcher->removed(table, gone, writer);
            continue;
        }
        for (std::size_t v = 0; v < values.size(); ++v) {
            const std::size_t column = columnOf(table, command.columns[v]);
            if (row.cells[column].text == values[v] && writer == kOthers)
                continue; // nobody can see that they have written
            const Cell before = std::exchange(row.cells[column], {values[v], writer, m_count});
            if (m_watcher != nullptr)
                m_watcher->updated(table, row, column, before);
        }
    }
    return any && !values.empty()                   ? kDone
           : any && command.verb == Verb::deletekey ? kDone
                                                    : kUnknownRow;
} catch (const std::invalid_argument&) {
    return std::nullopt;
}

int Database::freeId(Table table) const {
    int id = 1;
    for (const Record& row : (*this)[table]) {
        if (m_reusesIds && row.id() != id)
            break;
        id = row.id() + 1;
    }
    return id;
}

std::string Database::insert(Table table, const std::vector<std::string>& columns,
                             const std::vector<std::string>& values, const Writer& writer) {
    Record row;
    row.serial = ++m_serial;
    row.inserted = writer;
    for (const agent::Column& column : shapeOf(table).columns)
        row.cells.push_back({column.text ? "" : "0", writer, m_count});
    row.cells[0].text = std::to_string(freeId(table));
    for (std::size_t i = 0; i < columns.size(); ++i)
        row.cells[columnOf(table, columns[i])].text = values[i];
    ++m_writes;
    Records& all = rows(table);
    const auto place =
        std::find_if(all.begin(), all.end(), [&row](const Record& r) { return r.id() > row.id(); });
    const Record& stored = *all.insert(place, row);
    if (m_watcher != nullptr)
        m_watcher->inserted(table, stored);
    return row.cells[0].text + "\n";
}

std::string Database::meaning() const {
    std::map<std::string, std::string> bridges;
    for (const Record& row : (*this)[Table::bridge])
        bridges[row.cells[0].text] = row.cells[1].text;
    std::vector<std::string> lines;
    for (const Table table : agent::kAllTables) {
        const std::size_t bridge = shapeOf(table).bridgeId;
        for (Record row : (*this)[table]) {
            row.cells[0].text = shapeOf(table).name;
            if (bridge != 0) {
                const auto found = bridges.find(row.cells[bridge].text);
                row.cells[bridge].text = found == bridges.end() ? "gone" : found->second;
            }
            lines.push_back(row.text() + "\n");
        }
    }
    std::sort(lines.begin(), lines.end());
    std::string all;
    for (const std::string& line : lines)
        all += line;
    return all;
}

} // namespace simulation
