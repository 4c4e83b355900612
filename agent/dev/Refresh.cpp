#include "agent/dev/Refresh.h"

#include "agent/Log.h"
#include "agent/dev/DatabaseReader.h"
#include "agent/dev/DeviceModel.h"

#include <corvanta.h>

#include <algorithm>

namespace agent::dev {

namespace {

using std::chrono::seconds;

constexpr seconds kRetry{5};  ///< longest pause after a refresh that failed
constexpr seconds kSettle{1}; ///< from a set to a refresh, which shows what the device made of it
constexpr seconds kLook{1};   ///< between two looks at what has no events
constexpr std::chrono::milliseconds kBurst{100}; ///< for a change to end, once it is seen
constexpr int kLongestSet = 90;                  ///< client runs, more than any single value needs

std::string inSeconds(std::chrono::microseconds time) {
    return std::to_string(std::chrono::ceil<seconds>(time).count()) + " s";
}

} // namespace

Refresh::Refresh(const Options& options, System& system, Programs& programs, Image& image,
                 Board& board)
    : m_options(options),
      m_system(system),
      m_programs(programs),
      m_image(image),
      m_board(board),
      m_due(system.now()),
      m_fullDue(m_due),
      m_lookDue(m_due),
      m_staleDue(m_due) {
    m_board.next.refreshed = m_due;
    if (!options.watchDatabase.empty())
        m_watch.emplace(system, options.watchDatabase);
}

Clock::time_point Refresh::due() const {
    const auto due = std::min(m_due, m_lookDue);
    return m_stale.empty() ? due : std::min(due, m_staleDue);
}

bool Refresh::stepIsDue(Clock::time_point now) const {
    return m_reading.underWay || now >= m_due || (!m_stale.empty() && now >= m_staleDue);
}

bool Refresh::listens() const {
    // While something is to be read anyway, events can wait: there may be many.
    return m_watch && m_stale.empty();
}

FileWatch::Mark Refresh::mark() {
    bool changed = false; // by this agent itself, if by nobody else
    return m_watch ? m_watch->mark(changed) : FileWatch::Mark();
}

void Refresh::look() {
    m_lookDue = m_system.now() + kLook;
    lookAtDatabase();
    auto circuits = m_system.circuits();
    if (!circuits || circuits == m_circuits || !m_board.next.complete)
        return;
    m_circuits = std::move(circuits);
    m_board.show(m_image);
}

void Refresh::lookAtDatabase() {
    if (!m_watch)
        return;
    const auto state = m_watch->look();
    const bool blind = state == FileWatch::State::unreadable;
    if (blind != m_blind)
        log(blind ? LOG_WARNING : LOG_INFO,
            m_watch->file() + (blind ? " cannot be watched: everything is read at each interval"
                                     : " is watched again"));
    m_blind = blind;
    if (state != FileWatch::State::changed || m_reading.underWay)
        return;
    if (m_stale.empty())
        m_staleDue = std::max(m_system.now() + kBurst, m_reading.begun + m_options.refreshPause);
    m_stale.add(Tables(kAllTables));
}

void Refresh::accept(const FileWatch::Mark& mark) {
    if (m_watch)
        m_watch->accept(mark);
    m_accepted = m_system.now();
}

bool Refresh::databaseIsKnown() {
    return m_watch && m_watch->hasEvents() && m_stale.empty() && !m_failing &&
           m_watch->look() == FileWatch::State::same;
}

void Refresh::begin() {
    const auto now = m_system.now();
    m_reading.line = now >= m_due;
    // Whatever others have changed before the mark, in any table, is read after it.
    bool changed = false;
    const FileWatch::Mark mark = m_watch ? m_watch->mark(changed) : FileWatch::Mark();
    if (changed)
        m_stale = Tables(kAllTables);
    const bool everything = !m_watch || m_failing || now >= m_fullDue || (m_reading.line && !mark);
    m_reading.tables = everything && m_reading.line ? Tables(kAllTables) : m_stale;
    if (everything && m_reading.line)
        m_fullDue = now + m_options.fullInterval;
    m_reading.underWay = true;
    if (m_reading.tables.empty())
        return;
    m_reading.begun = now;
    m_reading.mark = mark;
}

void Refresh::step(const bool& stopping) {
    const Programs::CutShort cut(m_programs, stopping);
    if (!m_reading.underWay)
        begin();
    const unsigned long failures = client_failures();
    int status = CORVANTA_OK;
    const auto* const table = std::find_if(kAllTables.begin(), kAllTables.end(),
                                           [this](Table t) { return m_reading.tables.has(t); });
    if (table != kAllTables.end()) {
        status = readTable(m_image, *table);
        m_reading.tables.remove({*table});
        m_stale.remove({*table});
    } else if (m_reading.line && !readLine(m_board.next.model)) {
        status = CORVANTA_FAILED;
    }
    if (stopping)
        return; // a reading that was cut short says nothing
    const bool failed = status != CORVANTA_OK || client_failures() != failures;
    if (failed || table == kAllTables.end())
        end(failed, status);
}

void Refresh::end(bool failed, int status) {
    const auto now = m_system.now();
    m_reading.underWay = false;
    if (failed != m_failing)
        log(failed ? LOG_WARNING : LOG_INFO,
            failed ? "the device cannot be read, status " + std::to_string(status)
                   : "the device can be read again");
    m_failing = failed;
    if (failed) {
        ++m_board.next.counters.refreshesFailed;
        m_stale = Tables(kAllTables);
        m_due = m_staleDue = now + std::min(m_options.interval, kRetry);
        m_board.publish();
        return;
    }
    const bool alone = m_reading.begun > m_accepted; // no set has come between
    if (alone)
        accept(m_reading.mark);
    if (m_reading.line) {
        ++m_board.next.counters.refreshesDone;
        if (!m_board.next.complete && kLongestSet * m_programs.clientTime() > m_options.setDeadline)
            log(LOG_WARNING, "a set can take " + inSeconds(kLongestSet * m_programs.clientTime()) +
                                 " on this device: --set-deadline is shorter");
        m_board.next.complete = true;
        m_board.next.refreshed = now;
        m_due =
            now + (alone || m_watch ? m_options.interval : std::min(m_options.interval, kSettle));
    }
    m_board.show(m_image);
}

void Refresh::settle(Tables current) {
    const auto now = m_system.now();
    if (!m_watch) {
        m_due = std::min(m_due, now + kSettle);
        return;
    }
    m_stale = Tables(kAllTables);
    m_stale.remove(current);
    m_staleDue = now + kSettle;
}

} // namespace agent::dev
