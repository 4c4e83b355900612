#pragma once

#include "agent/dev/Journal.h"
#include "agent/dev/Refresh.h"

#include <cstdint>
#include <optional>
#include <string>

namespace agent {

/// The change that can still be taken back, and its journal.
///
///               plan()            keep(), for good
///     idle ──────────────▶ made ──────────────────▶ idle      what keep() or confirm() has removed
///      ▲                    │ │ keep(), on trial              the journal of, nothing takes back
///      │ no row left        │ ▼
///      │ to bring back      │ pending ── confirm() ──▶ idle
///     restoring ◀───────────┘ │
///      ▲ └── step(), again    │ time, revert(), takeBack()
///      └──────────────────────┘  also: a journal at the start
///
/// The journal is there, whole, in `made`, `pending` and `restoring`, and in no other state.
class Undo {
public:
    /// @param stopNow  once set, nothing more is run
    Undo(System& system, Programs& programs, Image& image, Board& board, Refresh& refresh,
         const bool& stopNow);
    Undo(const Undo&) = delete;
    Undo& operator=(const Undo&) = delete;

    bool foundHalfDone() const { return m_found; } ///< at the start
    ChangeState state() const { return m_board.next.trial.state; }
    const Record& record() const { return m_record; } ///< of what is pending

    /// Before the first row changes. @return whether the journal is safely there
    bool plan(const Record& planned);

    /// The point of no return of a change that is whole: it is pending, or stays.
    /// @return whether it is; else it has to be taken back
    bool keep(const Record& planned, Record done, std::chrono::seconds trial);

    /// Remembers the last set that stays, for takeBack().
    void remember(std::uint64_t set, Record done);

    Outcome confirm();
    Outcome extend(std::chrono::seconds trial);
    Outcome revert(Record record, RevertReason reason);
    Outcome revert(RevertReason reason) { return revert(std::move(m_record), reason); }
    Outcome takeBack(std::uint64_t set);

    Clock::time_point due() const;

    /// What time asks for. @return whether the change that is taken back is back
    bool step();

private:
    bool restore();
    std::optional<int> restoreRows();

    System& m_system;
    Programs& m_programs;
    Image& m_image;
    Board& m_board;
    Refresh& m_refresh;
    const bool& m_stopNow;
    Journal m_journal;
    bool m_found = false;
    Record m_record;           ///< of the change that is pending, or being taken back
    RevertReason m_reason{};   ///< why it is being taken back
    Clock::time_point m_retry; ///< when to try again
    std::uint64_t m_last = 0;  ///< the last set that was made
    Record m_lastRecord;       ///< and how to take it back
};

} // namespace agent
