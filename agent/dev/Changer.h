#pragma once

#include "agent/change/Stage.h"
#include "agent/dev/Undo.h"

#include <corvanta.h>

#include <functional>

namespace agent::dev {

/// A set on its way through the device.
struct Transaction {
    explicit Transaction(SetRequest asked) : request(std::move(asked)) {}

    SetRequest request;
    Outcome outcome = Outcome::refused;
    int status = CORVANTA_OK; ///< a corvanta_status, of what ended it
    std::size_t place = 0;    ///< of the variable that ended it
    bool late = false;        ///< nobody waits any more: run nothing more for it
};

/// Makes sets. A change is rehearsed on an image of the database first. What it will do to which
/// rows goes into the journal, and only then it is performed. One that is not whole in the end is
/// taken back.
class Changer {
public:
    /// @param expire  sees whether the set under way is late
    Changer(const Options& options, System& system, Programs& programs, Image& image, Board& board,
            Refresh& refresh, Undo& undo, std::function<void()> expire);

    void make(Transaction& set);

private:
    /// What a rehearsal has found that a set takes.
    struct Plan {
        Record record; ///< how to take it back
        Script script; ///< the commands that change something
        int runs = 0;  ///< of the client, the reading back included
    };

    Outcome decide(Transaction& set);
    bool fits(const Transaction& set) const;
    int readFor(const Transaction& set);
    int play(Transaction& set, Stage& stage);
    bool holds(const SetRequest& set, Image image) const;
    int rehearse(Transaction& set, Plan& plan);
    bool hasTime(const Transaction& set, const Plan& plan) const;
    void perform(Transaction& set, Plan plan);
    int readBack(const Transaction& set, const Record& done, Image& image, Tables& current) const;

    const Options& m_options;
    System& m_system;
    Programs& m_programs;
    Image& m_image; ///< of the database, each table as it was last read
    Board& m_board;
    Refresh& m_refresh;
    Undo& m_undo;
    const std::function<void()> m_expire;
};

} // namespace agent::dev
