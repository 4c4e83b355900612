#include "agent/change/Image.h"

#include <algorithm>
#include <cstdlib>

namespace agent {

namespace {

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

bool Row::sameButId(const Row& other) const {
    return columns.size() == other.columns.size() &&
           std::equal(columns.begin() + 1, columns.end(), other.columns.begin() + 1);
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

} // namespace agent
