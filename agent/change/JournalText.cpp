#include "agent/change/JournalText.h"

#include "agent/change/Lines.h"
#include "agent/change/Restore.h"

#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>

namespace agent {

namespace {

constexpr std::string_view kHeading = "corvantad change 2\n";
constexpr std::string_view kHeading1 = "corvantad change 1\n";
constexpr std::string_view kSet = "set";
constexpr std::string_view kPending = "pending";
constexpr std::string_view kEnd = "end ";
constexpr std::size_t kEndSize = kEnd.size() + 8 + 1;
constexpr std::string_view kKinds = "=~-"; ///< of what others had, in the order of Names
constexpr char kNotThere = '+';

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

std::string toLine(std::string_view word, const std::vector<int>& numbers) {
    std::string line(word);
    for (const int number : numbers)
        line.append(" ").append(std::to_string(number));
    return line + "\n";
}

std::string toLine(const Trail& trail) {
    std::string line = "row " + std::to_string(trail.id);
    line.append(trail.added ? " added" : "").append(trail.removed ? " removed" : "");
    line.append(trail.sure ? " sure" : "").append(trail.told ? " told" : "");
    if (trail.state == Return::tried)
        line.append(" tried");
    else if (trail.state == Return::givenUp)
        line.append(" givenUp");
    else if (trail.state == Return::back)
        line.append(" back ").append(std::to_string(trail.backId));
    return line + "\n";
}

std::string toLine(const Chain& chain) {
    std::string line;
    if (chain.from)
        line.append(1, kKinds[static_cast<std::size_t>(chain.names)]).append(*chain.from);
    else
        line.append(1, kNotThere);
    bool first = !chain.from;
    for (const std::string& own : chain.own) {
        line.append(first ? "" : "|").append(own);
        first = false;
    }
    return line + "\n";
}

/// @param text what stands behind "row "
std::optional<Trail> toTrail(std::string_view text) {
    Trail trail;
    const std::optional<int> id = toNumber(cut(text, ' '));
    if (!id)
        return std::nullopt;
    trail.id = *id;
    trail.columns.emplace_back();
    while (!text.empty()) {
        const std::string_view word = cut(text, ' ');
        if (word == "added") {
            trail.added = true;
        } else if (word == "removed") {
            trail.removed = true;
        } else if (word == "sure") {
            trail.sure = true;
        } else if (word == "told") {
            trail.told = true;
        } else if (word == "tried") {
            trail.state = Return::tried;
        } else if (word == "givenUp") {
            trail.state = Return::givenUp;
        } else if (word == "back") {
            const std::optional<int> back = toNumber(cut(text, ' '));
            if (!back)
                return std::nullopt;
            trail.state = Return::back;
            trail.backId = *back;
        } else {
            return std::nullopt;
        }
    }
    return trail;
}

std::optional<Chain> toChain(std::string_view line) {
    Chain chain;
    const std::size_t kind = line.empty() ? kKinds.npos : kKinds.find(line.front());
    if (line.empty() || (kind == kKinds.npos && line.front() != kNotThere))
        return std::nullopt;
    const Row values = parseRow(line.substr(1));
    chain.own = values.columns;
    if (kind != kKinds.npos) {
        chain.names = static_cast<Names>(kind);
        chain.from = chain.own.front();
        chain.own.erase(chain.own.begin());
    }
    return chain;
}

/// Whether each row has all its columns, and what was not there is only in rows that were added.
bool isWhole(const Record& record) {
    for (const Table table : kAllTables)
        for (const Trail& trail : record[table].trails) {
            if (trail.columns.size() != shapeOf(table).columns.size())
                return false;
            for (std::size_t i = 1; i < trail.columns.size(); ++i)
                if (!trail.added && !trail.columns[i].from)
                    return false;
        }
    return true;
}

} // namespace

std::string toText(const Entry& entry) {
    std::string text(kHeading);
    text.append(entry.pending ? kPending : kSet).append(" ").append(std::to_string(entry.set));
    text.append("\n").append(toLines(entry.record));
    return text + std::string(kEnd) + checksumOf(text) + "\n";
}

std::optional<Entry> toEntry(std::string_view text) {
    if (text.size() < kEndSize)
        return std::nullopt;
    std::string_view body = text.substr(0, text.size() - kEndSize);
    if (text.substr(body.size()) != std::string(kEnd) + checksumOf(body) + "\n")
        return std::nullopt;
    Entry entry;
    const bool version1 = skip(body, kHeading1);
    if (!version1 && !skip(body, kHeading))
        return std::nullopt;
    std::string_view set = cut(body, '\n');
    const std::string_view word = cut(set, ' ');
    entry.pending = word == kPending;
    if (!entry.pending && word != kSet)
        return std::nullopt;
    const auto number = std::from_chars(set.data(), set.data() + set.size(), entry.set);
    if (number.ptr != set.data() + set.size() || set.empty() != version1)
        return std::nullopt;
    auto record = version1 ? toRecordOfVersion1(body, entry.pending) : toRecord(body);
    if (!record || !canBeRestored(*record))
        return std::nullopt;
    entry.record = std::move(*record);
    return entry;
}

std::string toLines(const Record& from) {
    std::string text;
    for (const Table table : kAllTables) {
        const TableRecord& record = from[table];
        if (!record.known)
            continue;
        text.append("table ").append(shapeOf(table).name).append("\n");
        text.append(toLine("others", record.others));
        text.append(toLine("alike", record.alike));
        for (const Trail& trail : record.trails) {
            text.append(toLine(trail));
            for (std::size_t i = 1; i < trail.columns.size(); ++i)
                text.append(toLine(trail.columns[i]));
        }
    }
    return text;
}

std::optional<Record> toRecord(std::string_view text) {
    Record record;
    TableRecord* table = nullptr;
    while (!text.empty()) {
        std::string_view line = cut(text, '\n');
        const std::string_view whole = line;
        const std::string_view word = cut(line, ' ');
        if (word == "table") {
            const std::optional<Table> known = toTable(line);
            if (!known)
                return std::nullopt;
            table = &record[*known];
            table->known = true;
        } else if (table == nullptr) {
            return std::nullopt;
        } else if (word == "others" || word == "alike") {
            auto ids = toNumbers(line);
            if (!ids)
                return std::nullopt;
            (word == "others" ? table->others : table->alike) = std::move(*ids);
        } else if (word == "row") {
            auto trail = toTrail(line);
            if (!trail)
                return std::nullopt;
            table->trails.push_back(std::move(*trail));
        } else {
            auto chain = toChain(whole);
            if (!chain || table->trails.empty())
                return std::nullopt;
            table->trails.back().columns.push_back(std::move(*chain));
        }
    }
    return isWhole(record) ? std::optional(std::move(record)) : std::nullopt;
}

} // namespace agent
