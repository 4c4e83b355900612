#include "agent/dev/Worker.h"

#include "agent/Log.h"
#include "agent/dev/Client.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include <poll.h>

namespace agent {

namespace {

using std::chrono::seconds;

constexpr seconds kStop{10}; ///< for what is under way, when stopping

// Limits for another side that means ill: it could be somebody else by now.
constexpr int kMessagesAtOnce = 16;
constexpr std::size_t kMostJobs = 64;

} // namespace

Worker::Worker(Settings settings, Link link, int stop)
    : m_settings(std::move(settings)),
      m_link(link),
      m_stop(stop),
      m_side(static_cast<std::uint64_t>(Clock::now().time_since_epoch().count())),
      m_board(link),
      m_refresh(m_settings.pace, m_image, m_board),
      m_undo(m_settings.state, m_image, m_board, m_refresh, m_hurry),
      m_changer(m_image, m_board, m_refresh, m_undo, m_settings.pace.setDeadline,
                [this] { expire(); }),
      m_beatDue(Clock::now()) {
    setWait([this](int descriptor, Clock::time_point until) { return wait(descriptor, until); });
}

/// Waits for a descriptor, and sees to what happens meanwhile.
bool Worker::wait(int descriptor, Clock::time_point until) {
    if (Clock::now() >= m_beatDue)
        beat();
    until = std::min(until, m_beatDue);
    if (m_stopping && !m_hurry)
        until = std::min(until, m_stopBy);
    if (m_running != nullptr && !m_running->late)
        until = std::min(until, m_running->request.deadline);
    const auto left = std::max(until - Clock::now(), Clock::duration(0));
    const timespec time{left / seconds(1), (left % seconds(1)).count()};
    std::array<pollfd, 3> events{
        {{m_link.descriptor(), POLLIN, 0}, {m_stop, POLLIN, 0}, {descriptor, POLLIN, 0}}};
    if (m_stopping)
        events[1].fd = -1;
    ppoll(events.data(), events.size(), &time, nullptr);
    if (events[0].revents != 0)
        for (int n = 0; n < kMessagesAtOnce; ++n)
            if (const auto message = m_link.receive())
                take(*message);
    if (events[1].revents != 0) {
        m_stopping = true;
        m_stopBy = Clock::now() + kStop;
    }
    if (m_stopping && !m_hurry && Clock::now() >= m_stopBy)
        hurry();
    expire();
    return events[2].revents != 0;
}

void Worker::greet() {
    m_link.send(Hello{m_side, m_undo.foundHalfDone()});
    m_board.publish();
}

void Worker::beat() {
    m_link.send(Alive{});
    m_beatDue = m_settings.beat ? Clock::now() + *m_settings.beat : Clock::time_point::max();
}

void Worker::take(const Message& message) {
    const bool room = m_jobs.size() < kMostJobs;
    if (const auto* set = std::get_if<SetRequest>(&message)) {
        if (room && set->side == m_side)
            m_jobs.emplace_back(*set);
    } else if (const auto* back = std::get_if<TakeBack>(&message)) {
        if (room && back->side == m_side)
            m_jobs.emplace_back(*back);
    } else if (std::holds_alternative<Hello>(message)) {
        greet();
    }
}

/// Tells of the sets that have missed their deadlines. Those that wait are dropped, the one under
/// way runs nothing more.
void Worker::expire() {
    const auto now = Clock::now();
    const auto isLate = [&](const Job& job) {
        const auto* set = std::get_if<SetRequest>(&job);
        if (set == nullptr || now < set->deadline)
            return false;
        m_link.send(SetResult{set->id, Outcome::late, CORVANTA_FAILED, 0});
        return true;
    };
    m_jobs.erase(std::remove_if(m_jobs.begin(), m_jobs.end(), isLate), m_jobs.end());
    if (m_running == nullptr || m_running->late || now < m_running->request.deadline)
        return;
    m_running->late = true;
    m_board.next.undoing = true;
    m_board.publish();
    m_link.send(SetResult{m_running->request.id, Outcome::late, CORVANTA_FAILED, m_running->place});
}

/// The time to stop is over.
void Worker::hurry() {
    m_hurry = true;
    if (m_running != nullptr)
        m_running->late = true;
    killProgram();
}

void Worker::run() {
    if (initialize(m_settings.verbose) != 1)
        log(LOG_ERR, "the library could not be made ready");
    openLog(m_settings.foreground); // the library has opened it without standard error
    readMapping(m_board.next.model);
    greet();
    for (;;) {
        wait(-1, Clock::now()); // takes in what has come, whatever there is to do
        if (workIsDue())
            continue;
        if (m_stopping)
            return;
        if (wait(m_refresh.listensTo(), std::min(m_refresh.due(), m_undo.due())))
            m_refresh.lookAtDatabase();
    }
}

/// Does one piece of what there is to do. @return whether there was any
bool Worker::workIsDue() {
    const auto now = Clock::now();
    const bool restores = m_undo.state() == ChangeState::restoring;
    // A set waits until everything has been read once.
    if (!m_jobs.empty() && (m_board.next.complete || m_stopping)) {
        Job job = std::move(m_jobs.front());
        m_jobs.pop_front();
        doJob(std::move(job));
    } else if (restores && (m_stopping || now >= m_undo.due())) {
        if (m_hurry)
            return false;
        if (!m_undo.step() && m_stopping)
            m_hurry = true;
    } else if (m_stopping) {
        return false;
    } else if (!restores && now >= m_undo.due()) {
        m_undo.step();
    } else if (m_refresh.lookIsDue(now)) {
        m_refresh.look();
    } else if (m_refresh.stepIsDue(now)) {
        m_refresh.step(m_stopping);
    } else {
        return false;
    }
    return true;
}

void Worker::doJob(Job job) {
    if (const auto* back = std::get_if<TakeBack>(&job)) {
        m_link.send(SetResult{back->id, m_undo.takeBack(back->id), CORVANTA_OK, 0});
        return;
    }
    Transaction set{std::move(std::get<SetRequest>(job))};
    set.outcome = Outcome::unavailable;
    m_running = &set;
    if (!m_stopping)
        m_changer.make(set);
    m_running = nullptr;
    if (!set.late) {
        m_link.send(SetResult{set.request.id, set.outcome, set.status, set.place});
        return;
    }
    m_board.next.undoing = false;
    m_board.publish();
}

} // namespace agent
