#include "agent/change/Record.h"

#include <algorithm>

namespace agent {

std::size_t Trail::ofBefore() const {
    const auto gone = std::find(versions.begin(), versions.end(), std::nullopt);
    return static_cast<std::size_t>(gone - versions.begin());
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

} // namespace agent
