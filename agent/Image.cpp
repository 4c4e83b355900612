#include "Image.h"

#include <corvanta.h>

#include <algorithm>
#include <cstdlib>

namespace agent {

namespace {

constexpr int kMostRows = 100000; ///< a client that knows more rows than these doesn't count them

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
    Rows rows;
    for (;;) {
        Row row;
        const int status = readAt(table, rows.size(), row);
        if (status == CORVANTA_UNKNOWN_ROW)
            break;
        if (status != CORVANTA_OK)
            return status;
        rows.push_back(std::move(row));
        if (rows.size() > kMostRows)
            return CORVANTA_FAILED;
    }
    (*this)[table] = std::move(rows);
    return CORVANTA_OK;
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
