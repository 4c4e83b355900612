#include "agent/change/Record.h"

#include <algorithm>
#include <utility>

namespace agent {

namespace {

template <class List, class Value>
bool contains(const List& list, const Value& value) {
    return std::find(list.begin(), list.end(), value) != list.end();
}

/// Bridges and what refers to them are known together: a new bridge can be in use by others.
bool hangsTogether(Table table) {
    return table == Table::bridge || shapeOf(table).bridgeId != 0;
}

} // namespace

bool Chain::isOwn(const std::string& value) const {
    return contains(own, value);
}

bool Trail::writes() const {
    return added || removed || std::any_of(columns.begin(), columns.end(), [](const Chain& chain) {
               return !chain.own.empty();
           });
}

bool Trail::isAbout(Table table, const Row& row) const {
    const std::size_t subject = shapeOf(table).subject;
    return row.id() == id && row.fits(table) &&
           (subject == 0 || columns[subject].has(row.columns[subject]));
}

Row Trail::before() const {
    Row row;
    for (const Chain& chain : columns)
        row.columns.push_back(chain.from.value_or(""));
    row.columns.front() = std::to_string(id);
    return row;
}

bool TableRecord::hadBefore(int id) const {
    return contains(others, id);
}

void TableRecord::forget(const Rows& now) {
    others.erase(std::remove_if(others.begin(), others.end(),
                                [&now](int id) {
                                    return std::none_of(
                                        now.begin(), now.end(),
                                        [id](const Row& row) { return row.id() == id; });
                                }),
                 others.end());
}

bool Record::empty() const {
    return std::all_of(m_tables.begin(), m_tables.end(),
                       [](const TableRecord& table) { return table.trails.empty(); });
}

void Record::know(const Image& image, Table table) {
    for (const Table each : kAllTables) {
        TableRecord& record = (*this)[each];
        const bool concerned = each == table || (hangsTogether(each) && hangsTogether(table));
        if (!concerned || std::exchange(record.known, true))
            continue;
        for (const Row& row : image[each])
            record.others.push_back(row.id());
    }
}

/// The trail of a row that is there; a new one where none is about it.
Trail& Record::trailOf(const Image& image, Table table, const Row& now) {
    TableRecord& record = (*this)[table];
    const auto found =
        std::find_if(record.trails.rbegin(), record.trails.rend(), [&](const Trail& trail) {
            return !trail.removed && trail.isAbout(table, now);
        });
    if (found != record.trails.rend())
        return *found;
    const int id = now.id();
    record.others.erase(std::remove(record.others.begin(), record.others.end(), id),
                        record.others.end());
    Trail trail;
    trail.id = id;
    trail.sure = true;
    trail.columns.emplace_back();
    for (std::size_t i = 1; i < now.columns.size(); ++i)
        trail.columns.push_back(beginChain(image, table, now, i));
    record.trails.push_back(std::move(trail));
    return record.trails.back();
}

/// The chain of a column with what others have there.
Chain Record::beginChain(const Image& image, Table table, const Row& now,
                         std::size_t column) const {
    Chain chain{now.columns[column], {}, Names::bridge};
    if (column != shapeOf(table).bridgeId)
        return chain;
    const auto bridge = image.find(Table::bridge, Row{{*chain.from}}.id());
    const auto& trails = (*this)[Table::bridge].trails;
    if (bridge == image[Table::bridge].end())
        chain.names = Names::none;
    else if (std::any_of(trails.begin(), trails.end(), [&](const Trail& trail) {
                 return trail.id == bridge->id() && (trail.added ? !trail.removed : trail.removed);
             }))
        chain.names = Names::later;
    return chain;
}

std::size_t Record::add(const Image& image, Table table, const Row& row) {
    know(image, table);
    Trail trail;
    trail.id = row.id();
    trail.added = true;
    for (const std::string& value : row.columns)
        trail.columns.push_back({std::nullopt, {value}, Names::bridge});
    trail.columns.front() = {};
    (*this)[table].forget(image[table]);
    auto& trails = (*this)[table].trails;
    trails.push_back(std::move(trail));
    return trails.size() - 1;
}

void Record::alter(const Image& image, Table table, const Row& now, const Row& wanted) {
    know(image, table);
    Trail& trail = trailOf(image, table, now);
    for (std::size_t i = 1; i < now.columns.size(); ++i) {
        Chain& chain = trail.columns[i];
        const bool written = wanted.columns[i] != now.columns[i];
        if (!chain.has(now.columns[i]) && (chain.own.empty() || written))
            chain = beginChain(image, table, now, i);
        if (!written)
            continue;
        trail.begin();
        if (!chain.isOwn(wanted.columns[i]))
            chain.own.push_back(wanted.columns[i]);
    }
}

void Record::remove(const Image& image, Table table, const Row& now) {
    know(image, table);
    Trail& trail = trailOf(image, table, now);
    for (std::size_t i = 1; i < now.columns.size(); ++i)
        if (Chain& chain = trail.columns[i]; !chain.has(now.columns[i]))
            chain = beginChain(image, table, now, i);
    if (table == Table::bridge) {
        // What still refers to it has to follow when it comes back under another Id.
        for (const Table each : kAllTables)
            for (const Row& row : image[each])
                if (const std::size_t column = shapeOf(each).bridgeId;
                    column != 0 && row.fits(each) && row.columns[column] == now.columns[0])
                    alter(image, each, row, row);
    }
    trail.removed = true;
    trail.begin();
}

void Record::settle() {
    for (TableRecord& table : m_tables)
        for (Trail& trail : table.trails)
            trail.sure = true;
}

void Record::doubtRemovals(const Record& before) {
    for (const Table table : kAllTables) {
        const auto& known = before[table].trails;
        auto& trails = (*this)[table].trails;
        for (std::size_t i = 0; i < trails.size(); ++i)
            if (trails[i].removed && (i >= known.size() || !known[i].removed))
                trails[i].begin();
    }
}

void Record::renumber(Table table, std::size_t trail, int id) {
    auto& others = (*this)[table].others;
    others.erase(std::remove(others.begin(), others.end(), id), others.end()); // they had freed it
    const int noted = std::exchange((*this)[table].trails[trail].id, id);
    if (table != Table::bridge || noted == 0)
        return;
    for (const Table each : kAllTables)
        if (const std::size_t column = shapeOf(each).bridgeId; column != 0)
            for (Trail& member : (*this)[each].trails)
                if (auto& own = member.columns[column].own; contains(own, std::to_string(noted)))
                    own.push_back(std::to_string(id));
}

} // namespace agent
