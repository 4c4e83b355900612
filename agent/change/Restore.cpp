#include "agent/change/Restore.h"

#include "agent/change/Command.h"
#include "agent/change/Comparison.h"
#include "agent/change/Stage.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace agent {

namespace {

constexpr int kRounds = 10;             ///< more than any change needs
constexpr int kRoundsForNeighbours = 5; ///< others can come between again

bool refersToBridges(Table table) {
    return shapeOf(table).bridgeId != 0;
}

class Restore {
public:
    Restore(Record& record, Image& image, RestoreDevice& device)
        : m_record(record), m_image(image), m_device(device) {}

    std::optional<int> run() {
        if (!look())
            return std::nullopt;
        for (int round = 0; round < kRounds; ++round) {
            const Comparison comparison(m_record, m_image, round < kRoundsForNeighbours);
            if (comparison.steps().empty())
                return comparison.leftAlone();
            if (!announce(comparison.steps()) || !perform(comparison.steps()) || !lookAgain())
                return std::nullopt;
        }
        return std::nullopt;
    }

private:
    template <class Is>
    bool any(Table table, const Is& is) const;
    bool follows(Table table) const;
    bool isReadWhole(Table table) const;
    bool look();
    bool lookAgain();
    bool announce(const std::vector<Step>& steps);
    static bool isAlike(Table table, const Row& row, const std::vector<Step>& steps);
    bool perform(const std::vector<Step>& steps);
    bool stands(const Step& step);
    void apply(const Step& step, const std::string& said);

    Record& m_record;
    Image& m_image;
    RestoreDevice& m_device;
    std::vector<Step> m_run; ///< since it has looked
};

template <class Is>
bool Restore::any(Table table, const Is& is) const {
    const auto& trails = m_record[table].trails;
    return std::any_of(trails.begin(), trails.end(), is);
}

/// Whether rows have to follow bridges that come back.
bool Restore::follows(Table table) const {
    return refersToBridges(table) &&
           any(Table::bridge, [](const Trail& trail) { return trail.returns(); });
}

/// Whether a table has to be read as a whole, since rows can come or go, or have to be there.
bool Restore::isReadWhole(Table table) const {
    if (any(table, [](const Trail& trail) { return !trail.alters(); }))
        return true;
    if (refersToBridges(table))
        return m_record[table].known &&
               any(Table::bridge, [](const Trail& trail) { return trail.added; });
    if (table != Table::bridge)
        return false;
    return std::any_of(kAllTables.begin(), kAllTables.end(), [this](Table each) {
        const std::size_t column = shapeOf(each).bridgeId;
        return column != 0 && any(each, [column](const Trail& trail) {
                   return trail.returns() || (trail.alters() && !trail.columns[column].own.empty());
               });
    });
}

bool Restore::look() {
    for (const Table table : kAllTables) {
        const bool whole = isReadWhole(table);
        if (whole && !m_device.read(m_image, table))
            return false;
        if (!whole)
            for (const Trail& trail : m_record[table].trails)
                if ((trail.writes() || follows(table)) &&
                    !m_device.readRow(m_image, table, trail.id))
                    return false;
    }
    return true;
}

/// Looks at what has been written.
bool Restore::lookAgain() {
    Tables resized;
    Tables lost; // the Id of a row in there
    for (const Step& step : m_run) {
        if (step.inserts() || step.removes())
            resized.add(step.command.table);
        if (step.inserts() && step.trail->state != Return::back)
            lost.add(step.command.table);
    }
    for (const Table table : kAllTables) {
        if (lost.has(table) && !m_device.read(m_image, table))
            return false;
        if (resized.has(table) && !lost.has(table) && !m_device.readIfResized(m_image, table))
            return false;
    }
    for (const Step& step : std::exchange(m_run, {})) {
        const int id = step.inserts() ? step.trail->backId : step.seen.id();
        if (!step.removes() && !lost.has(step.command.table) &&
            !m_device.readRow(m_image, step.command.table, id))
            return false;
    }
    return true;
}

/// Says which rows are put back, before they are, and which Ids can be somebody else's afterwards.
bool Restore::announce(const std::vector<Step>& steps) {
    Tables tables;
    for (const Step& step : steps) {
        const Table table = step.command.table;
        if (step.removes() && !step.putsBack())
            step.trail->begin();
        if (step.putsBack())
            step.trail->state = Return::tried;
        if (!step.inserts() || tables.has(table))
            continue;
        tables.add(table);
        TableRecord& record = m_record[table];
        record.forget(m_image[table]);
        record.alike.clear();
        for (const Row& row : m_image[table])
            if (isAlike(table, row, steps))
                record.alike.push_back(row.id());
    }
    return tables.empty() || m_device.store(m_record);
}

/// Whether a row looks like one that the steps put back, or can by then.
bool Restore::isAlike(Table table, const Row& row, const std::vector<Step>& steps) {
    bool alike = false;
    for (const Step& step : steps) {
        const Command& command = step.command;
        if (command.table != table)
            continue;
        const bool same = !step.inserts() && step.seen.id() == row.id();
        if (same)
            return !step.removes();
        alike = alike || (step.inserts() && std::equal(command.values.begin(), command.values.end(),
                                                       row.columns.begin() + 1, row.columns.end()));
    }
    return alike;
}

bool Restore::perform(const std::vector<Step>& steps) {
    bool inserted = false;
    bool works = true;
    auto step = steps.begin();
    for (; step != steps.end(); ++step) {
        works = step->inserts() || m_device.readRow(m_image, step->command.table, step->seen.id());
        if (!works || (!step->inserts() && !stands(*step)))
            break;
        m_run.push_back(*step);
        const auto said = m_device.run(step->command.line());
        works = said.has_value();
        if (!works)
            break;
        apply(*step, *said);
        inserted = inserted || step->inserts();
    }
    for (; step != steps.end(); ++step) {
        const bool mayHaveRun = !m_run.empty() && m_run.back().trail == step->trail && !works;
        if (!step->removes() || mayHaveRun)
            continue;
        if (step->putsBack()) { // it has not been made anew
            step->trail->state = Return::back;
            step->trail->backId = step->seen.id();
        } else {
            step->trail->sure = step->wasSure;
        }
    }
    return works && (!inserted || m_device.store(m_record));
}

/// Whether the row is what a step was decided on.
bool Restore::stands(const Step& step) {
    const auto row = m_image.find(step.command.table, step.seen.id());
    return row != m_image[step.command.table].end() && *row == step.seen;
}

/// Does to the image what a step has done.
void Restore::apply(const Step& step, const std::string& said) {
    const Command& command = step.command;
    const int id = step.inserts() ? idIn(said) : step.seen.id();
    auto row = m_image.find(command.table, id);
    if (step.removes()) {
        m_image[command.table].erase(row);
        if (!step.putsBack())
            step.trail->removed = step.trail->sure = true; // its Id can be somebody else's now
        return;
    }
    if (id <= 0)
        return; // the client's answer has been cut
    if (step.inserts()) {
        step.trail->state = Return::back;
        step.trail->backId = id;
    }
    Rows& rows = m_image[command.table];
    if (row == rows.end()) { // in its place, by which it is read
        row = rows.insert(std::find_if(rows.begin(), rows.end(),
                                       [id](const Row& each) { return each.id() > id; }),
                          Row{std::vector<std::string>(command.shape().columns.size())});
        row->columns[0] = std::to_string(id);
    }
    for (std::size_t i = 0; i < command.columns.size(); ++i)
        row->columns[command.columns[i]] = command.values[i];
}

} // namespace

std::optional<int> takeBack(Record& record, Image& image, RestoreDevice& device) {
    return Restore(record, image, device).run();
}

bool canBeRestored(const Record& record) {
    for (const Table table : kAllTables) {
        const TableShape& shape = shapeOf(table);
        for (const Trail& trail : record[table].trails)
            for (std::size_t i = 1; i < shape.columns.size(); ++i) {
                const Chain& chain = trail.columns[i];
                const bool written = trail.returns() || !chain.own.empty();
                if (written && chain.from && !isSafe(shape.columns[i], *chain.from))
                    return false;
            }
    }
    return true;
}

} // namespace agent
