#include "agent/change/JournalText.h"

#include "agent/change/Restore.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>

namespace agent {

namespace {

// corvantad change 1
// set, or pending
// the record
// end CRC, of all that comes before this line

constexpr std::string_view kHeading = "corvantad change 1\n";
constexpr std::string_view kSet = "set\n";
constexpr std::string_view kPending = "pending\n";
constexpr std::string_view kEnd = "end ";
constexpr std::size_t kEndSize = kEnd.size() + 8 + 1;

std::string checksumOf(std::string_view text) {
    std::uint32_t crc = ~std::uint32_t{0}; // CRC-32 as in Ethernet
    for (const char c : text) {
        crc ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; ++bit)
            crc = crc >> 1 ^ ((crc & 1) != 0 ? 0xedb88320U : 0U);
    }
    std::array<char, 9> digits{};
    std::snprintf(digits.data(), digits.size(), "%08x", static_cast<unsigned>(~crc));
    return digits.data();
}

bool skip(std::string_view& text, std::string_view start) {
    const bool found = text.substr(0, start.size()) == start;
    if (found)
        text.remove_prefix(start.size());
    return found;
}

constexpr std::string_view kGone = "-";

/// Cuts the piece up to the character, or what there is, off the front of a text.
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

std::string toText(const Entry& entry) {
    std::string text(kHeading);
    text.append(entry.pending ? kPending : kSet).append(toLines(entry.record));
    return text + std::string(kEnd) + checksumOf(text) + "\n";
}

std::optional<Entry> toEntry(std::string_view text) {
    if (text.size() < kEndSize)
        return std::nullopt;
    std::string_view body = text.substr(0, text.size() - kEndSize);
    if (text.substr(body.size()) != std::string(kEnd) + checksumOf(body) + "\n")
        return std::nullopt;
    Entry entry;
    if (!skip(body, kHeading))
        return std::nullopt;
    entry.pending = skip(body, kPending);
    if (!entry.pending && !skip(body, kSet))
        return std::nullopt;
    auto record = toRecord(body);
    if (!record || !canBeRestored(*record))
        return std::nullopt;
    entry.record = std::move(*record);
    return entry;
}

// table NAME
// others ID ID ...
// trail ID
// ROW, or "-" where there is none, once for each version

std::string toLines(const Record& from) {
    std::string text;
    for (const Table table : kAllTables) {
        const TableRecord& record = from[table];
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

std::optional<Record> toRecord(std::string_view text) {
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
            record[*table].trails.push_back({*id, {}});
            trail = &record[*table].trails.back();
        } else {
            std::optional<Row> row;
            if (whole != kGone)
                row = parseRow(whole);
            if (trail == nullptr || !sameId(*table, *trail, row))
                return std::nullopt;
            trail->versions.push_back(std::move(row));
        }
    }
    for (const Table each : kAllTables)
        for (const Trail& known : record[each].trails)
            if (known.versions.empty())
                return std::nullopt;
    return record;
}

} // namespace agent
