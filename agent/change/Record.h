#pragma once

#include "agent/change/Image.h"

#include <array>
#include <optional>
#include <string>
#include <vector>

// What a change makes of the rows that it touches, column by column: all that has to be known to
// take it back, and nothing that it never wrote.
//
// A column has a chain: what others had there, then what the change writes there, in turn. A value
// of the chain's second part is the change's own. When a later request of one trial finds another
// value there, that is somebody else's. As long as the change leaves it, it stays. Once the change
// writes the column anew, the chain begins again, from that value: so a revert brings back what
// others wrote last, not what they have replaced.
//
// A row is known by its Id and its subject, since the database uses Ids again: a row with an Id
// that is known and a subject that is neither the row's nor written by the change is another one,
// or one that others have renamed. It is never written.
namespace agent {

/// Which bridge an Id has named: bridges can have one Id in turn.
enum class Names {
    bridge, ///< one that was there before
    later,  ///< one that the change has added, or others after it had removed that one
    none,   ///< there was none
};

/// What a change makes of one column.
struct Chain {
    std::optional<std::string> from; ///< what others had there; nothing in a row that it adds
    std::vector<std::string> own;    ///< what it writes there, each value once
    Names names = Names::bridge;     ///< where `from` is the Id of a bridge

    bool isOwn(const std::string& value) const;
    bool has(const std::string& value) const { return from == value || isOwn(value); }
};

/// What has become of a row that the change removes, once it is taken back.
enum class Return {
    none,    ///< nothing yet
    tried,   ///< it is being inserted: it may be there, under an Id that nobody knows
    back,    ///< it has come back
    givenUp, ///< others have put a row for the same subject there, or removed its bridge
};

/// What a change makes of one row.
struct Trail {
    int id = 0; ///< 0 for a new row until the client tells
    bool added = false;
    bool removed = false;
    bool sure = false;          ///< all of it has been made; else it can have ended anywhere
    bool told = false;          ///< a new row's Id, by the client: it has no other one
    std::vector<Chain> columns; ///< the first, of the Id, stays empty
    Return state = Return::none;
    int backId = 0;

    /// Whether it alters a row that stays where it is.
    bool alters() const { return !added && !removed; }
    bool returns() const { return removed && !added; }
    bool mayReturn() const { return state == Return::none || state == Return::tried; }
    bool writes() const; ///< whether any column

    /// Something else is about to become of it.
    void begin() {
        told = told || (added && sure);
        sure = false;
    }

    /// Whether the row with its Id is the one that it is about.
    bool isAbout(Table table, const Row& row) const;

    /// The row as others had it.
    Row before() const;
};

/// What a change makes of one table.
struct TableRecord {
    bool known = false;      ///< whether the Ids that the table had are
    std::vector<int> others; ///< those of the trails left out
    std::vector<int> alike;  ///< Ids of rows that look like those that were put back last
    std::vector<Trail> trails;

    bool hadBefore(int id) const;

    /// Forgets the Ids that others have freed: new rows can get them.
    void forget(const Rows& now);
};

class Record {
public:
    TableRecord& operator[](Table table) { return m_tables[static_cast<std::size_t>(table)]; }
    const TableRecord& operator[](Table table) const {
        return m_tables[static_cast<std::size_t>(table)];
    }

    bool empty() const;
    bool touches(Table table) const { return !(*this)[table].trails.empty(); }

    /// Each notes what is about to become of a row; the image is what the database still holds.
    /// @return the place of the new row's trail
    std::size_t add(const Image& image, Table table, const Row& row);
    void alter(const Image& image, Table table, const Row& now, const Row& wanted);
    void remove(const Image& image, Table table, const Row& now);

    /// All that was noted has been made.
    void settle();

    /// Nobody knows whether the rows have gone that are removed here, and were not before.
    void doubtRemovals(const Record& before);

    /// A new row has got another Id than it was noted with.
    void renumber(Table table, std::size_t trail, int id);

private:
    void know(const Image& image, Table table);
    Trail& trailOf(const Image& image, Table table, const Row& now);
    Chain beginChain(const Image& image, Table table, const Row& now, std::size_t column) const;

    std::array<TableRecord, kTables> m_tables;
};

} // namespace agent
