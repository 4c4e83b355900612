#pragma once

#include "Image.h"
#include "Record.h"

#include <string>
#include <vector>

namespace agent {

/// The next commands that bring a change's rows back.
struct Restoring {
    std::vector<std::string> commands; ///< none when nothing is left to do
    /// Rows that are no longer as the change left them, since others have changed them, and members
    /// of a bridge that others keep apart.
    int leftAlone = 0;
};

/// The tables that have to be read before restoring().
Tables tablesToRestore(const Record& record);

/// Compares what the database holds now with what a change made of it, however
/// far that got. Rows come back with new Ids, and what refers to a bridge follows
/// its new Id, which is known once it is back: after the commands have run, the
/// tables are read and compared again, until there are none left. Rows that are
/// equal in all but their Ids may be taken for one another.
///
/// Neighbouring members of a bridge come back as neighbours, in the old order: when
/// somebody else's row has come between, both are made anew.
/// @param round how many comparisons went before: after a few, members that others
///              keep apart stay where they are, and are counted
Restoring restoring(const Record& record, const Image& now, int round);

/// Whether every row that the change removes or alters could be written back.
bool canBeRestored(const Record& record);

} // namespace agent
