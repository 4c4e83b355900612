#pragma once

#include "agent/Log.h"
#include "agent/dev/Journal.h"
#include "agent/dev/Refresh.h"

#include <cstdint>
#include <optional>
#include <string>

namespace agent::dev {

/// The change that can still be taken back, and its journal.
///
///              plan()               keep(), to stay
///     idle ─────────────▶ performing ─────────────▶ idle
///      ▲                   │    ▲ │
///      │ no row is left    │    │ │ keep(), on trial
///      │ to bring back     │    │ ▼
///      │            revert()  plan() pending ──────── confirm() ──▶ idle
///      │                   ▼         │
///     restoring ◀──────────┴─────────┘ revert(), takeBack(), or its time is over
///      ▲ └─ step(), until it succeeds
///      └─── a journal was there at the start, or takeBack() of the last set that stays
///
/// What holds in each state, and is checked whenever one is entered:
///
///     idle        there is no journal: nothing takes anything back; that of the last set that
///                 stays is kept for takeBack()
///     performing  the journal is there, whole, and tells how to take back all that the set may do
///     pending     the same for all that has been done on trial since nothing was pending
///     restoring   the same for what is being taken back, or the journal cannot be looked at yet;
///                 nothing else writes; for takeBack() no row is touched until the journal is there
///
/// A set on trial that changes no row goes from idle to pending directly.
class Undo {
public:
    /// @param stopNow  once set, nothing more is run
    Undo(System& system, Programs& programs, Image& image, Board& board, Refresh& refresh,
         const bool& stopNow);
    Undo(const Undo&) = delete;
    Undo& operator=(const Undo&) = delete;

    bool foundHalfDone() const { return m_found; } ///< at the start
    /// The last set that stays, be it of the process before; 0 for none.
    std::uint64_t last() const { return m_last.set; }
    ChangeState state() const { return m_board.next.trial.state; }
    const Record& record() const { return m_record; } ///< of what is pending

    /// Before the first row changes. @return whether the journal is safely there
    bool plan(std::uint64_t set, const Record& planned);

    /// The same while it is performed: a row has got another Id than was planned.
    bool replan(std::uint64_t set, const Record& planned);

    /// The point of no return of a change that is whole: it is pending, or stays.
    /// @return whether it is; else it has to be taken back
    bool keep(std::uint64_t set, const Record& planned, Record done, std::chrono::seconds trial);

    /// Remembers the last set that stays, for takeBack().
    void remember(std::uint64_t set, Record done);

    /// @param set  which asks for it: whoever takes that back takes back what was pending
    Outcome confirm(std::uint64_t set);
    Outcome extend(std::chrono::seconds trial);
    Outcome revert(Record record, RevertReason reason);
    Outcome revert(RevertReason reason) { return revert(std::move(m_record), reason); }
    Outcome takeBack(std::uint64_t set);

    Clock::time_point due() const;

    /// Does what is due. @return whether nothing is left to take back
    bool step();

private:
    enum class State { idle, performing, pending, restoring };
    struct Made {
        std::uint64_t set = 0;
        Record record; ///< how to take it back
    };

    void enter(State next);
    bool readJournal();
    void beginIdle();
    bool restore();

    System& m_system;
    Programs& m_programs;
    Image& m_image;
    Board& m_board;
    Refresh& m_refresh;
    const bool& m_stopNow;
    Journal m_journal;
    State m_state = State::idle;
    bool m_found = false;
    bool m_unread = false;          ///< the journal, which can't be looked at so far
    bool m_unsaved = false;         ///< the journal of what is to be taken back
    Record m_record;                ///< of the change that is pending, or being taken back
    RevertReason m_reason{};        ///< why it is being taken back
    std::optional<int> m_leftAlone; ///< rows, once all others are back and only the journal is left
    Clock::time_point m_retry;      ///< when to try again
    Clock::time_point m_tell;       ///< when to log again that it can't be taken back yet
    LineLimit m_lines;              ///< about that, and rows that are left alone
    Made m_last;                    ///< that stays, and can be taken back
};

} // namespace agent::dev
