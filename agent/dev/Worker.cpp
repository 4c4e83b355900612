#include "agent/dev/Worker.h"

#include "agent/Log.h"
#include "agent/dev/DeviceModel.h"
#include "agent/dev/Interposed.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace agent::dev {

namespace {

using std::chrono::seconds;

constexpr seconds kStop{10}; ///< for what is under way, when stopping

// Limits in case the network process has been taken over.
constexpr int kMessagesAtOnce = 16;
constexpr std::size_t kMostJobs = 64;

/// The reasons stand in the order of the library's statuses.
Reason reasonOf(int status) {
    static_assert(CORVANTA_UNFIT == static_cast<int>(Reason::unfit));
    return static_cast<Reason>(status);
}

} // namespace

Worker::Worker(const Options& options, System& system)
    : m_options(options),
      m_system(system),
      m_link(system),
      m_programs(system, options.clientLimit,
                 [this](Clock::time_point until) {
                     wait({false, false, true, false}, until);
                 }),
      m_incarnation(static_cast<std::uint64_t>(system.now().time_since_epoch().count())),
      m_board(system, m_programs),
      m_refresh(options, system, m_programs, m_image, m_board),
      m_undo(system, m_programs, m_image, m_board, m_refresh, m_stopNow),
      m_changer(options, system, m_programs, m_image, m_board, m_refresh, m_undo,
                [this] { expire(); }) {
    answerLibraryFrom(&m_programs);
}

Worker::~Worker() {
    answerLibraryFrom(nullptr);
}

/// Waits for events, and handles whatever else happens meanwhile.
System::Events Worker::wait(System::Events wanted, Clock::time_point until) {
    if (m_stopping && !m_stopNow)
        until = std::min(until, m_stopBy);
    if (m_running != nullptr && !m_running->late)
        until = std::min(until, m_running->request.deadline);
    wanted.message = true;
    wanted.stop = !m_stopping;
    const System::Events events = m_system.wait(wanted, until);
    if (events.message)
        for (int n = 0; n < kMessagesAtOnce; ++n)
            if (const auto message = m_link.receive())
                take(*message);
    if (events.stop) {
        m_stopping = true;
        m_stopBy = m_system.now() + kStop;
    }
    if (m_stopping && !m_stopNow && m_system.now() >= m_stopBy)
        stopNow();
    expire();
    return events;
}

void Worker::greet() {
    m_link.send(Hello{m_incarnation, m_undo.foundHalfDone(), m_undo.last()});
    m_board.publish();
}

void Worker::take(const Message& message) {
    const bool room = m_jobs.size() < kMostJobs;
    if (const auto* set = std::get_if<SetRequest>(&message)) {
        if (room && set->incarnation == m_incarnation)
            m_jobs.emplace_back(*set);
    } else if (const auto* back = std::get_if<TakeBack>(&message)) {
        if (room && back->incarnation == m_incarnation)
            m_jobs.emplace_back(*back);
    } else if (std::holds_alternative<Hello>(message)) {
        greet();
    }
}

/// Reports the sets that have missed their deadlines. Those that wait are dropped; the one under
/// way runs nothing more.
void Worker::expire() {
    const auto now = m_system.now();
    const auto isLate = [&](const Job& job) {
        const auto* set = std::get_if<SetRequest>(&job);
        if (set == nullptr || now < set->deadline)
            return false;
        m_link.send(SetResult{set->id, Outcome::late, Reason::failed, 0});
        return true;
    };
    m_jobs.erase(std::remove_if(m_jobs.begin(), m_jobs.end(), isLate), m_jobs.end());
    if (m_running == nullptr || m_running->late || now < m_running->request.deadline)
        return;
    m_running->late = true;
    m_board.next.undoing = true;
    m_board.publish();
    m_link.send(SetResult{m_running->request.id, Outcome::late, Reason::failed, m_running->place});
}

/// The time to stop is over.
void Worker::stopNow() {
    m_stopNow = true;
    if (m_running != nullptr)
        m_running->late = true;
    m_programs.kill();
}

void Worker::run() {
    if (initialize(m_options.verbose) != 1)
        log(LOG_ERR, "the library could not be initialized");
    openLog(m_options.foreground); // the library has opened it without standard error
    readMapping(m_board.next.model);
    greet();
    for (;;) {
        wait({}, m_system.now()); // takes in messages, whatever else there is to do
        if (workIsDue())
            continue;
        if (m_stopping)
            return;
        if (wait({false, false, false, m_refresh.listens()},
                 std::min(m_refresh.due(), m_undo.due()))
                .file)
            m_refresh.lookAtDatabase();
    }
}

/// Does one piece of what there is to do. @return whether there was any
bool Worker::workIsDue() {
    if (m_stopNow)
        return false;
    const auto now = m_system.now();
    // A set waits until everything has been read once; to take one back reads what it needs.
    const bool hasJob = !m_jobs.empty() && (m_board.next.complete || m_stopping ||
                                            std::holds_alternative<TakeBack>(m_jobs.front()));
    // What is due gets its turn after each job: a taken-over network process can send jobs without
    // end.
    if (hasJob && !std::exchange(m_didJob, true)) {
        Job job = std::move(m_jobs.front());
        m_jobs.pop_front();
        doJob(std::move(job));
        return true;
    }
    m_didJob = false;
    if (m_undo.state() == ChangeState::restoring && (m_stopping || now >= m_undo.due())) {
        if (!stepUndo() && m_stopping)
            m_stopNow = true;
        return true;
    }
    return (!m_stopping && keepUp(now)) || hasJob;
}

/// Does one thing whose time has come. @return whether there was any
bool Worker::keepUp(Clock::time_point now) {
    if (now >= m_undo.due())
        stepUndo();
    else if (m_refresh.lookIsDue(now))
        m_refresh.look();
    else if (m_refresh.stepIsDue(now))
        m_refresh.step(m_stopping);
    else
        return false;
    return true;
}

bool Worker::stepUndo() {
    const LimitedLog limited(m_jobLines, m_system.now());
    return m_undo.step();
}

void Worker::doJob(Job job) {
    const LimitedLog limited(m_jobLines, m_system.now());
    if (const auto* back = std::get_if<TakeBack>(&job)) {
        m_link.send(SetResult{back->id, m_undo.takeBack(back->id), Reason::none, 0});
        return;
    }
    Transaction set{std::move(std::get<SetRequest>(job))};
    set.outcome = Outcome::unavailable;
    m_running = &set;
    if (!m_stopping)
        m_changer.make(set);
    m_running = nullptr;
    if (!set.late) {
        m_link.send(SetResult{set.request.id, set.outcome, reasonOf(set.status), set.place});
        return;
    }
    m_board.next.undoing = false;
    m_board.publish();
}

} // namespace agent::dev
