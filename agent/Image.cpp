#include "Image.h"

#include <corvanta.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <set>
#include <utility>

namespace agent {

namespace {

constexpr std::size_t kMostRows = 100000; ///< a client that knows more doesn't count them
constexpr int kTries = 10;                ///< others can go on changing a table while it is read

/// @return a corvanta_status; CORVANTA_UNKNOWN_ROW past the last row
int readAt(Table table, std::size_t position, Row& row) {
    std::array<char, 4096> text{};
    int length = 0;
    const int status = config_row_read(shapeOf(table).name.data(), static_cast<int>(position),
                                       text.data(), static_cast<int>(text.size()), &length);
    if (status == CORVANTA_OK)
        row = parseRow({text.data(), static_cast<std::size_t>(length)});
    return status;
}

int readSize(Table table, std::size_t& size) {
    constexpr int kNotTraced = 7;
    std::string answer;
    const std::string command = " quorlet \" size " + std::string(shapeOf(table).name) + " ;\" ";
    if (const int status = call_cmd(command, answer, kNotTraced); status != CORVANTA_OK)
        return status;
    const char* const end = answer.data() + answer.size();
    const auto [stop, error] = std::from_chars(answer.data(), end, size);
    return error == std::errc() && stop == end && size <= kMostRows ? CORVANTA_OK : CORVANTA_FAILED;
}

/// Reads rows, the last one first, down to one that was there when it was read before: those below
/// it are taken from there.
int readDown(Table table, const Rows& known, Rows& rows) {
    std::size_t position = rows.size();
    while (position > 0) {
        --position;
        if (const int status = readAt(table, position, rows[position]); status != CORVANTA_OK)
            return status;
        if (position < known.size() && rows[position] == known[position])
            break;
    }
    std::copy_n(known.begin(), position, rows.begin());
    return CORVANTA_OK;
}

bool noneComesTwice(const Rows& rows) {
    std::set<int> ids;
    return std::all_of(rows.begin(), rows.end(),
                       [&ids](const Row& row) { return ids.insert(row.id()).second; });
}

template <class List>
auto findRow(List& rows, int id) {
    return std::find_if(rows.begin(), rows.end(), [id](const Row& row) { return row.id() == id; });
}

} // namespace

int Row::id() const {
    return static_cast<int>(std::strtol(columns.front().c_str(), nullptr, 10));
}

bool Row::fits(Table table) const {
    return columns.size() == shapeOf(table).columns.size();
}

std::string Row::text() const {
    std::string joined = columns.front();
    for (std::size_t i = 1; i < columns.size(); ++i)
        joined += '|' + columns[i];
    return joined;
}

Row parseRow(std::string_view text) {
    Row row;
    for (std::size_t end = 0; end != text.npos;) {
        end = text.find('|');
        row.columns.emplace_back(text.substr(0, end));
        text.remove_prefix(end == text.npos ? text.size() : end + 1);
    }
    return row;
}

Rows::iterator Image::find(Table table, int id) {
    return findRow((*this)[table], id);
}

Rows::const_iterator Image::find(Table table, int id) const {
    return findRow((*this)[table], id);
}

int Image::read(Table table) {
    std::size_t size = (*this)[table].size(); // most likely still
    bool whole = false;
    Rows rows;
    for (int tries = 0; tries < kTries; ++tries) {
        const std::size_t expected = size;
        const Rows last = std::exchange(rows, Rows(expected));
        // In a whole one, only the rows behind what others have added or removed are others.
        const int status = readDown(table, whole ? last : Rows(), rows);
        if (status != CORVANTA_OK && status != CORVANTA_UNKNOWN_ROW)
            return status;
        if (const int counted = readSize(table, size); counted != CORVANTA_OK)
            return counted;
        // Rows that do have one Id are the same each time.
        whole = status == CORVANTA_OK && (noneComesTwice(rows) || rows == last);
        if (whole && size == expected) {
            (*this)[table] = std::move(rows);
            return CORVANTA_OK;
        }
    }
    return CORVANTA_FAILED;
}

int Image::readRow(Table table, int id) {
    const auto known = find(table, id);
    if (known != (*this)[table].end()) {
        Row row;
        const auto position = static_cast<std::size_t>(known - (*this)[table].begin());
        const int status = readAt(table, position, row);
        if (status == CORVANTA_OK && row.id() == id) {
            *known = std::move(row);
            return CORVANTA_OK;
        }
        if (status != CORVANTA_OK && status != CORVANTA_UNKNOWN_ROW)
            return status;
    }
    return read(table);
}

} // namespace agent
