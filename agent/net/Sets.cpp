#include "agent/net/Sets.h"

#include "agent/system/Invariant.h"

#include <utility>

namespace agent::net {

namespace {

using std::chrono::seconds;

constexpr std::chrono::milliseconds kTell{250}; ///< of the deadline, to be told that it was missed
constexpr seconds kReading{10}; ///< longer than that, for the next process to read the device

} // namespace

Sets::Sets(const Options& options, System& system, Link& link, Snapshots& snapshots)
    : m_options(options),
      m_system(system),
      m_link(link),
      m_snapshots(snapshots),
      m_log(system),
      // Not those of the process before, whose results may still come.
      m_nextId(static_cast<std::uint64_t>(system.now().time_since_epoch().count())) {}

void Sets::enter(State next) {
    constexpr bool kAllowed[][7] = {
        // idle, checked, performing, made, takingBack, failed, repeated
        {true, true, false, false, false, true, true},    // from idle
        {true, false, true, true, false, false, false},   // from checked
        {true, false, false, true, false, true, false},   // from performing
        {true, false, false, false, true, true, false},   // from made
        {true, false, false, false, false, true, false},  // from takingBack
        {true, false, false, false, false, false, false}, // from failed
        {true, false, false, false, false, false, false}, // from repeated
    };
    require(kAllowed[static_cast<int>(m_state)][static_cast<int>(next)],
            "a set request goes from a state to one that cannot follow");
    require(holds(next), "a set request is not what its state says");
    m_state = next;
}

bool Sets::holds(State state) const {
    const bool good = m_answer.error == ErrorStatus::noError;
    if (m_made)
        return false; // it begins later than `performing`, and ends before the next state
    switch (state) {
    case State::idle:
    case State::repeated:
        return !m_set && !m_sent;
    case State::checked:
        return m_set && !m_sent && good && checkTrial() == ErrorStatus::noError;
    case State::performing:
        return m_set && m_sent && !isEmpty() && m_set->incarnation == m_incarnation &&
               m_giveUp > m_set->deadline;
    case State::made:
        return m_set && good && m_sent != isEmpty();
    case State::takingBack:
        return m_set && m_sent && m_giveUp > m_system.now();
    case State::failed:
        return m_set && !good;
    }
    return false;
}

bool Sets::waits() const {
    return m_state == State::performing || m_state == State::takingBack;
}

/// Whether there is nothing to do: cvConfirmTimeout was set to 0 by itself.
bool Sets::isEmpty() const {
    return m_set->changes.empty() && m_set->trial == seconds(0) &&
           m_set->verdict == Verdict::notGiven;
}

// ---------------------------------------------------------------------------- of the manager

void Sets::begin(ManagerRequest request) {
    require(!waits(), "a set request begins while another one is performed");
    release(false);
    m_request = std::move(request);
    if (const auto before = m_answers.find(m_request)) {
        m_answer = *before;
        enter(State::repeated);
        return;
    }
    m_answers.forget(m_request); // and its earlier ones of the same Id
    m_snapshots.showNewest();
    m_log.begin(m_request, m_snapshots.view(m_refused));
    m_set.emplace();
    m_set->id = m_nextId++;
    m_set->deadline = m_request.came + m_options.setDeadline - kTell;
    m_answer = check();
    if (m_answer.error == ErrorStatus::noError) {
        enter(State::checked);
        return;
    }
    m_answers.remember(m_request, m_answer, m_system.now(), false);
    m_log.end("refused: nothing has changed", m_answer.error);
    enter(State::failed);
}

Answer Sets::check() {
    if (m_system.now() >= m_set->deadline) // so long ago that its manager has stopped waiting
        return {ErrorStatus::genErr, 0};
    std::size_t place = 0;
    for (const Assignment& assignment : m_request.assignments) {
        if (const ErrorStatus error = check(assignment, place); error != ErrorStatus::noError)
            return {error, place};
        ++place;
    }
    if (const ErrorStatus error = checkTrial(); error != ErrorStatus::noError)
        return {error, 0};
    // Its answer could not be kept, so that its repetition would be made once more.
    return {m_answers.makeRoom(m_request) ? ErrorStatus::noError : ErrorStatus::resourceUnavailable,
            0};
}

ErrorStatus Sets::check(const Assignment& assignment, std::size_t place) {
    if (assignment.error != ErrorStatus::noError)
        return assignment.error;
    const Object& object = *assignment.object;
    if (object.control() == Control::none && m_snapshots.stale())
        return ErrorStatus::genErr;
    const Instance* const instance = instanceOf(m_snapshots.shown(), assignment.name);
    if (instance == nullptr)
        return ErrorStatus::noCreation;
    switch (object.control()) {
    case Control::confirmTimeout:
        m_set->trial = seconds(assignment.value->number);
        break;
    case Control::change:
        m_set->verdict = static_cast<Verdict>(assignment.value->number);
        break;
    case Control::none:
        m_set->changes.push_back({&object, instance->row, *assignment.value, place});
        break;
    }
    return ErrorStatus::noError;
}

/// Whether the request goes with what is pending.
ErrorStatus Sets::checkTrial() const {
    const Snapshot& shown = m_snapshots.shown();
    if (shown.trial.state == ChangeState::restoring || shown.undoing)
        return ErrorStatus::resourceUnavailable;
    const bool pending = shown.trial.state == ChangeState::pending;
    const bool alone = m_set->changes.empty() && m_set->trial == seconds(0);
    bool fits = true;
    if (m_set->verdict != Verdict::notGiven)
        fits = pending && alone;
    else if (m_set->trial != seconds(0))
        fits = pending || !m_set->changes.empty();
    else if (pending)
        return ErrorStatus::resourceUnavailable;
    return fits ? ErrorStatus::noError : ErrorStatus::inconsistentValue;
}

void Sets::commit() {
    if (m_state == State::repeated)
        return;
    require(m_state == State::checked, "a set request is performed that was not checked");
    if (isEmpty()) {
        end({m_set->id, Outcome::done, Reason::none, 0});
        return;
    }
    m_set->incarnation = m_incarnation;
    m_giveUp = m_set->deadline + kTell;
    m_sent = true;
    enter(State::performing);
    m_link.send(*m_set);
}

void Sets::takeBack() {
    if (m_state != State::made)
        return;
    m_answers.forget(m_request); // which was noError
    if (!m_sent) {
        m_answer = {ErrorStatus::genErr, 0};
        enter(State::failed);
        return;
    }
    m_giveUp = m_system.now() + m_options.setDeadline;
    enter(State::takingBack);
    m_link.send(TakeBack{m_set->id, m_incarnation});
}

void Sets::release(bool refused) {
    if (refused && m_state != State::repeated)
        ++m_refused;
    m_set.reset();
    m_sent = false;
    m_made = false;
    enter(State::idle);
}

void Sets::hangUp() {
    m_log.end("goes on to its end, though its manager has hung up");
    release(false);
}

// ---------------------------------------------------------------- of the device's process

void Sets::take(const Hello& hello) {
    if (hello.incarnation == m_incarnation)
        return;
    m_incarnation = hello.incarnation;
    const bool wasLate = m_late.count(hello.made) != 0;
    m_late.clear();
    if (wasLate) {
        m_late.insert(hello.made); // until it has done what the process before has not
        m_link.send(TakeBack{hello.made, m_incarnation});
    }
    if (waits())
        judge(hello);
}

void Sets::take(const SetResult& result) {
    // One behind it can be late while it has yet to be taken back; and what could not be can still
    // stay, should the process end before its journal is there.
    if (result.outcome != Outcome::done && result.outcome != Outcome::notUndone)
        m_late.erase(result.id);
    if (waits() && result.id == m_set->id)
        end(result);
}

void Sets::take(const Snapshot& snapshot, const Snapshot* before) {
    if (before != nullptr)
        m_log.reverts(*before, m_snapshots.newest());
    if (m_made && snapshot.complete)
        end({m_set->id, Outcome::done, Reason::none, 0});
}

/// What has become of the set that the process before was asked for, or to take back.
void Sets::judge(const Hello& hello) {
    const bool isLast = hello.made == m_set->id;
    // Nothing is pending when a process begins: be it that a manager wanted it to end, or not.
    const bool ends = m_set->verdict == Verdict::none || m_set->verdict == Verdict::revert;
    if (hello.takesBack) {
        end({m_set->id, Outcome::undoing, Reason::failed, 0});
    } else if (m_state == State::takingBack && isLast) {
        m_link.send(TakeBack{m_set->id, m_incarnation});
    } else if (m_state == State::performing && (isLast || ends)) {
        m_made = true;
        if (!m_options.master.empty()) // snmpd would not wait
            m_giveUp = m_set->deadline + kReading;
    } else {
        end({m_set->id, Outcome::refused, Reason::failed, 0});
    }
}

void Sets::checkTime() {
    if (!waits() || m_system.now() < m_giveUp)
        return;
    // The device's process does not move, or has not read the device yet. Should it have made the
    // set, or yet make it, it is told what the manager is.
    if (m_state == State::performing)
        m_link.send(TakeBack{m_set->id, m_incarnation});
    m_late.insert(m_set->id);
    end({m_set->id, Outcome::late, Reason::failed, 0});
}

void Sets::end(const SetResult& result) {
    m_made = false;
    m_snapshots.showNewest();
    if (m_state == State::takingBack) {
        // The manager is told of the part that failed first, unless taking back fails too.
        const bool back = result.outcome == Outcome::refused;
        if (!back)
            m_late.insert(m_set->id);
        m_answer = {back ? ErrorStatus::genErr : ErrorStatus::undoFailed, 0};
        m_log.end(back ? "taken back, since another part of the request failed"
                       : "could not be taken back, though another part of the request failed",
                  back ? ErrorStatus::noError : m_answer.error);
        enter(State::failed);
        return;
    }
    m_answer = {errorOf(result), result.place};
    m_answers.remember(m_request, m_answer, m_system.now(), m_sent);
    m_log.end(*m_set, result);
    enter(m_answer.error == ErrorStatus::noError ? State::made : State::failed);
}

} // namespace agent::net
