#pragma once

#include "agent/Options.h"
#include "agent/dev/Board.h"
#include "agent/dev/FileWatch.h"

#include <optional>
#include <string>

namespace agent::dev {

/// Keeps the image, and with it the board, up with the device: at intervals, and when the watched
/// file or the kernel's circuits have changed. It reads a table, or the line, at a time.
class Refresh {
public:
    Refresh(const Options& options, System& system, Programs& programs, Image& image, Board& board);
    Refresh(const Refresh&) = delete;
    Refresh& operator=(const Refresh&) = delete;

    Clock::time_point due() const; ///< the next step or look
    bool stepIsDue(Clock::time_point now) const;
    bool lookIsDue(Clock::time_point now) const { return now >= m_lookDue; }
    bool listens() const; ///< whether an event of the watched file is worth a look

    /// Reads a table, or the line, so that a set waits for no more than that.
    void step(const bool& stopping);

    /// Polls the kernel's circuit list and the watched file, which may send no events.
    void look();
    void lookAtDatabase();

    /// Whether the database still holds what was read, as far as the watched file can tell.
    bool databaseIsKnown();

    FileWatch::Mark mark();
    void accept(const FileWatch::Mark& mark);

    /// After a change that this agent has made: schedules a refresh of all but the current tables.
    void settle(Tables current);

private:
    void begin();
    void end(bool failed, int status);

    const Options& m_options;
    System& m_system;
    Programs& m_programs;
    Image& m_image;
    Board& m_board;
    std::optional<FileWatch> m_watch;
    std::optional<std::string> m_circuits; ///< the kernel's list, as it was last shown
    Tables m_stale = Tables(kAllTables);   ///< that can have changed since they were read
    /// A refresh, which takes several steps.
    struct {
        bool underWay = false;
        bool line = false;       ///< what it reads
        Tables tables;           ///< likewise, those that are left
        FileWatch::Mark mark;    ///< taken when it began
        Clock::time_point begun; ///< the last one of the database
    } m_reading;
    bool m_failing = false;       ///< whether the last refresh failed
    bool m_blind = false;         ///< whether the watched file could not be looked at
    Clock::time_point m_due;      ///< the next refresh, of the line at least
    Clock::time_point m_fullDue;  ///< of everything
    Clock::time_point m_lookDue;  ///< when to look at the circuits and the watched file
    Clock::time_point m_staleDue; ///< when to read what is stale, while something is
    Clock::time_point m_accepted; ///< the last mark that was accepted
};

} // namespace agent::dev
