#include "agent/dev/DatabaseReader.h"

#include "agent/change/Command.h"

#include <corvanta.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <set>
#include <string>
#include <utility>

namespace agent::dev {

namespace {

constexpr std::size_t kMostRows = 100000; ///< no table has more: such an answer is no count
constexpr int kTries = 10;                ///< somebody can go on changing a table while it is read

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
    const std::string command = Command{Command::Verb::size, table, 0, {}, {}, {}, {}}.line();
    if (const int status = call_cmd(command, answer, kNotTraced); status != CORVANTA_OK)
        return status;
    const char* const end = answer.data() + answer.size();
    const auto [stop, error] = std::from_chars(answer.data(), end, size);
    return error == std::errc() && stop == end && size <= kMostRows ? CORVANTA_OK : CORVANTA_FAILED;
}

/// Reads rows, the last one first, down to one that has not changed since the reading before: those
/// below it are taken from that.
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

} // namespace

int readTable(Image& image, Table table) {
    std::size_t size = image[table].size(); // most likely still
    bool whole = false;
    Rows rows;
    for (int tries = 0; tries < kTries; ++tries) {
        const std::size_t expected = size;
        const Rows last = std::exchange(rows, Rows(expected));
        // After a whole reading, only the rows from the first added or removed one on can differ.
        const int status = readDown(table, whole ? last : Rows(), rows);
        if (status != CORVANTA_OK && status != CORVANTA_UNKNOWN_ROW)
            return status;
        if (const int counted = readSize(table, size); counted != CORVANTA_OK)
            return counted;
        // Two rows that really have the same Id look the same at the next reading.
        whole = status == CORVANTA_OK && (noneComesTwice(rows) || rows == last);
        if (whole && size == expected) {
            image[table] = std::move(rows);
            return CORVANTA_OK;
        }
    }
    return CORVANTA_FAILED;
}

int readIfResized(Image& image, Table table) {
    std::size_t size = 0;
    const int status = readSize(table, size);
    return status != CORVANTA_OK || size == image[table].size() ? status : readTable(image, table);
}

int readRow(Image& image, Table table, int id) {
    const auto known = image.find(table, id);
    if (known != image[table].end()) {
        Row row;
        const auto position = static_cast<std::size_t>(known - image[table].begin());
        const int status = readAt(table, position, row);
        if (status == CORVANTA_OK && row.id() == id) {
            *known = std::move(row);
            return CORVANTA_OK;
        }
        if (status != CORVANTA_OK && status != CORVANTA_UNKNOWN_ROW)
            return status;
    }
    return readTable(image, table);
}

} // namespace agent::dev
