#pragma once

#include "agent/Options.h"
#include "agent/link/Link.h"
#include "agent/net/Answers.h"
#include "agent/net/SetLog.h"
#include "agent/net/Snapshots.h"

#include <cstdint>
#include <optional>
#include <set>

namespace agent::net {

/// The set request of a manager, from its check to its answer. There is one at a time.
///
///             begin()             commit()              a result
///     idle ────────────▶ checked ──────────▶ performing ────────▶ made
///      │ │                  │ nothing to do      │                 ▲ │
///      │ │                  └────────────────────┼─────────────────┘ │ takeBack()
///      │ │ refused                               │ an error, or      │
///      │ │                                       │ no time left      ▼
///      │ └───────────────▶ failed ◀──────────────┴──────────── takingBack
///      │ answered before                           a result, or no time left
///      └─────────────────▶ repeated
///
/// release() leads from every state to idle.
///
/// What holds in each state, and is checked whenever one is entered:
///
///     idle        there is no set
///     checked     its values fit the snapshot that is shown, and it goes with what is pending;
///                 nothing has been sent
///     performing  it was sent to the device's process of its incarnation, which answers before the
///                 deadline or tells that it was missed; when it does neither, because it does not
///                 move, the set counts as late, and TakeBack is sent after it
///     made        the answer is noError: the values are there, and stay unless it is taken back
///     takingBack  something else in the request has failed; TakeBack was sent
///     failed      the answer is an error
///     repeated    there is no set, but the answer that was given to it before
///
/// When the device's process dies, the next one says what has become of the set: it takes it back,
/// or it is the last that was made, or it was not made. One that was made stays in `performing`
/// until the device has been read, so that its values are shown once it is answered. One that was
/// answered late, and was made all the same, each next process is asked to take back until one has;
/// so is one that could not be taken back.
///
/// A master that ends takes the request with it: begin() is legal in every state but those that
/// wait for the device's process, and ends what was there before.
class Sets {
public:
    Sets(const Options& options, System& system, Link& link, Snapshots& snapshots);
    Sets(const Sets&) = delete;
    Sets& operator=(const Sets&) = delete;

    /// Checks a request against the newest snapshot.
    void begin(ManagerRequest request);

    /// Sends it to the device's process.
    void commit();

    /// Has it taken back after it was made.
    void takeBack();

    /// The request is over. @param refused  counts among those that managers see as refused
    void release(bool refused);

    /// The manager that waits has disconnected. The set goes on to its end.
    void hangUp();

    bool waits() const; ///< for the device's process
    Clock::time_point giveUp() const { return m_giveUp; }
    const Answer& answer() const { return m_answer; } ///< once it doesn't wait any more

    // What the device's process tells.
    void take(const Hello& hello);
    void take(const SetResult& result);
    /// @param before  null for the first
    void take(const Snapshot& snapshot, const Snapshot* before);

    /// Ends the wait when its time is over.
    void checkTime();

    /// Forgets answers that are too old to be asked for again.
    /// @param oldest  when the oldest request that is still to be handled arrived
    void forgetAnswers(Clock::time_point oldest) { m_answers.forgetBefore(oldest); }

    std::uint32_t refused() const { return m_refused; }

private:
    enum class State { idle, checked, performing, made, takingBack, failed, repeated };

    void enter(State next);
    bool holds(State state) const;
    Answer check();
    ErrorStatus check(const Assignment& assignment, std::size_t place);
    ErrorStatus checkTrial() const;
    bool isEmpty() const;
    void judge(const Hello& hello);
    void end(const SetResult& result);

    const Options& m_options;
    System& m_system;
    Link& m_link;
    Snapshots& m_snapshots;
    SetLog m_log;
    Answers m_answers;
    std::uint64_t m_nextId;
    std::uint64_t m_incarnation = 0; ///< of the device's process
    std::uint32_t m_refused = 0;

    State m_state = State::idle;
    ManagerRequest m_request;
    std::optional<SetRequest> m_set;
    bool m_sent = false;
    bool m_made = false;            ///< as the next process says, which has yet to read the device
    std::set<std::uint64_t> m_late; ///< sets that may be there, though their managers think not
    Clock::time_point m_giveUp;     ///< when the device's process must have answered
    Answer m_answer;
};

} // namespace agent::net
