#include "Record.h"

#include <algorithm>
#include <charconv>

namespace agent {

namespace {

constexpr std::string_view kGone = "-";

/** Cuts the piece up to the character, or what there is, off the front of a text. */
std::string_view cut(std::string_view& text, char end) {
    const std::string_view piece = text.substr(0, text.find(end));
    text.remove_prefix(std::min(piece.size() + 1, text.size()));
    return piece;
}

std::optional<int> number(std::string_view text) {
    int value = 0;
    const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || stop != text.data() + text.size())
        return std::nullopt;
    return value;
}

bool sameId(Table table, const Trail& trail, const std::optional<Row>& row) {
    return !row || (row->fits(table) && row->id() == trail.id);
}

} // namespace

bool Trail::removed() const {
    return before() && std::find(versions.begin(), versions.end(), std::nullopt) != versions.end();
}

Trail* TableRecord::find(int id) {
    const auto found = std::find_if(trails.begin(), trails.end(),
                                    [id](const Trail& trail) { return trail.id == id; });
    return found == trails.end() ? nullptr : &*found;
}

bool Record::empty() const {
    return std::all_of(m_tables.begin(), m_tables.end(),
                       [](const TableRecord& table) { return table.trails.empty(); });
}

void Record::note(Table table, const Rows& rows, int id, const std::optional<Row>& version) {
    TableRecord& record = (*this)[table];
    if (record.trails.empty() && record.others.empty())
        for (const Row& row : rows)
            record.others.push_back(row.id());
    Trail* trail = record.find(id);
    if (trail == nullptr) {
        const auto row =
            std::find_if(rows.begin(), rows.end(), [id](const Row& r) { return r.id() == id; });
        record.others.erase(std::remove(record.others.begin(), record.others.end(), id),
                            record.others.end());
        record.trails.push_back({id, {row == rows.end() ? std::nullopt : std::optional(*row)}});
        trail = &record.trails.back();
    }
    if (trail->after() != version)
        trail->versions.push_back(version);
}

// table NAME
// others ID ID ...
// trail ID
// ROW, or "-" where there is none, once for each version

std::string Record::serialize() const {
    std::string text;
    for (const Table table : kAllTables) {
        const TableRecord& record = (*this)[table];
        if (record.trails.empty())
            continue;
        text.append("table ").append(shapeOf(table).name).append("\nothers");
        for (const int id : record.others)
            text.append(" ").append(std::to_string(id));
        text += '\n';
        for (const Trail& trail : record.trails) {
            text.append("trail ").append(std::to_string(trail.id)).append("\n");
            for (const std::optional<Row>& version : trail.versions)
                text.append(version ? version->text() : std::string(kGone)).append("\n");
        }
    }
    return text;
}

std::optional<Record> Record::parse(std::string_view text) {
    Record record;
    std::optional<Table> table;
    Trail* trail = nullptr;
    while (!text.empty()) {
        std::string_view line = cut(text, '\n');
        const std::string_view whole = line;
        const std::string_view word = cut(line, ' ');
        if (word == "table") {
            const auto* const found =
                std::find_if(kAllTables.begin(), kAllTables.end(),
                             [line](Table known) { return shapeOf(known).name == line; });
            if (found == kAllTables.end())
                return std::nullopt;
            table = *found;
            trail = nullptr;
        } else if (!table) {
            return std::nullopt;
        } else if (word == "others") {
            while (!line.empty()) {
                const std::optional<int> id = number(cut(line, ' '));
                if (!id)
                    return std::nullopt;
                record[*table].others.push_back(*id);
            }
        } else if (word == "trail") {
            const std::optional<int> id = number(line);
            if (!id || record[*table].find(*id) != nullptr)
                return std::nullopt;
            trail = &record[*table].trails.emplace_back(Trail{*id, {}});
        } else {
            std::optional<Row> row;
            if (whole != kGone)
                row = parseRow(whole);
            if (trail == nullptr || !sameId(*table, *trail, row))
                return std::nullopt;
            trail->versions.push_back(std::move(row));
        }
    }
    for (const TableRecord& each : record.m_tables)
        for (const Trail& known : each.trails)
            if (known.versions.empty())
                return std::nullopt;
    return record;
}

} // namespace agent
