#pragma once

#include "agent/change/Command.h"
#include "agent/change/Image.h"
#include "agent/change/Record.h"

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace agent {

/// A command that brings a change's rows back.
struct Step {
    Command command;
    Trail* trail = nullptr; ///< of the row that comes or goes; null for an update
    Row seen;               ///< what an update or a removal was decided on; empty for an insert
    bool wasSure = false;   ///< the trail, when a removal was decided on

    bool inserts() const { return command.verb == Command::Verb::insert; }
    bool removes() const { return command.verb == Command::Verb::remove; }

    /// Whether it has to do with a row that comes back: it is put back, or removed to be made anew.
    bool putsBack() const { return trail != nullptr && trail->returns(); }
};

/// Compares what the database holds with what a change made of it, however far that got: what is
/// the change's own goes, what others have written since stays. Restore.h has the rules.
class Comparison {
public:
    /// @param record what it finds out about its rows is noted there; outlives this
    /// @param now    the tables that the record touches, or of some of them the touched rows alone
    /// @param unite  whether neighbours that have come back apart are made anew
    Comparison(Record& record, const Image& now, bool unite);

    /// The next commands; none when nothing is left to do.
    const std::vector<Step>& steps() const { return m_steps; }

    /// Rows that can't come back, or go, for what others have done.
    int leftAlone() const { return m_leftAlone; }

private:
    /// What stands for the trails of a table.
    struct Standing {
        std::map<const Trail*, const Row*> rows;
        std::set<const Row*> taken;
        std::vector<Trail*> trails; ///< by Id, so that rows come back in their order
    };

    void compare(Table table);
    Standing claim(Table table);
    template <class IsIt>
    bool lead(Table table, const Trail* trail, Standing& standing, const IsIt& isIt) const;
    void claimBack(Table table, Standing& standing) const;
    void claimById(Table table, Standing& standing) const;
    void claimLost(Table table, Standing& standing);
    void claimChangedBridges(Standing& standing) const;
    void learnBridges(const Standing& standing);

    bool isLeft(Table table, Trail& trail, const Standing& standing);
    bool isTheirs(Table table, const Trail& trail, const Standing& standing) const;
    bool bring(Table table, const Trail& trail, const Row& now);
    bool takeAway(Table table, Trail& trail, const Row& now);
    void insert(Table table, Trail& trail);
    bool canReturn(Table table, const Trail& trail, const Standing& standing) const;
    const Row* inPlaceOf(Table table, const Trail& trail, const Standing& standing) const;
    void unite(Table table, Standing& standing);
    void makeAnew(Table table, const std::vector<Trail*>& neighbours, Standing& standing);
    bool isHeld(const Row& bridge) const;
    void removeBridges();

    Row wanted(Table table, const Trail& trail) const;
    bool isOwn(Table table, const Trail& trail, std::size_t column, const std::string& value) const;
    bool isWhole(Table table, const Trail& trail, const Row& row) const;
    bool isGone(const Chain& bridge) const;
    std::string present(const Chain& bridge) const;
    bool isReplaced(Table table, const Trail& trail) const;
    bool isNew(Table table, const Row& row) const;

    Record& m_record;
    const Image& m_now;
    const bool m_unite;
    std::map<std::string, std::string> m_bridges; ///< present Ids of bridges that were there before
    std::map<std::string, std::string> m_added;   ///< and of those that the change has added
    std::set<const Row*> m_leaving;               ///< rows that go, or leave their bridge
    /// After what refers to them, which tells whose it is.
    std::vector<std::pair<Trail*, const Row*>> m_bridgesToGo;
    bool m_bridgesMissing = false; ///< what refers to any waits until all are back
    bool m_foundLost = false;
    std::vector<Step> m_steps;
    int m_leftAlone = 0;
};

} // namespace agent
