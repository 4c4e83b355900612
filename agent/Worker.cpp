#include "Worker.h"

#include "Log.h"

#include <algorithm>

namespace agent {

namespace {

using std::chrono::seconds;

constexpr seconds kRetry{5};  ///< longest pause after a refresh that failed
constexpr seconds kSettle{1}; ///< from a set to a refresh, which shows what the device made of it
constexpr seconds kGrace{3};  ///< for a refresh to end, when stopping

} // namespace

Worker::Worker(Settings settings, std::function<void()> published)
    : m_settings(settings), m_published(std::move(published)), m_due(Clock::now()) {
    m_next.refreshed = m_due;
    publish();
}

void Worker::start() {
    m_thread = std::thread(&Worker::run, this);
}

bool Worker::stop() {
    std::unique_lock lock(m_mutex);
    m_stopping = true;
    m_changed.notify_all();
    const auto limit = Clock::now() + kGrace;
    while (!m_ended) {
        if (m_working || !m_jobs.empty())
            m_changed.wait(lock);
        else if (m_changed.wait_until(lock, limit) == std::cv_status::timeout) {
            m_thread.detach();
            return false;
        }
    }
    lock.unlock();
    m_thread.join();
    return true;
}

bool Worker::make(const std::shared_ptr<Transaction>& transaction, seconds deadline) {
    if (await({transaction, &Worker::makeAll}, deadline))
        return true;
    transaction->abandoned = true;
    return false;
}

void Worker::undo(const std::shared_ptr<Transaction>& transaction, seconds deadline) {
    await({transaction, &Worker::undoAll}, transaction->abandoned ? seconds(0) : deadline);
}

bool Worker::await(Job job, seconds deadline) {
    std::unique_lock lock(m_mutex);
    const bool& ended = job.transaction->ended = false;
    m_jobs.push_back(job);
    m_changed.notify_all();
    return m_changed.wait_for(lock, deadline, [&ended] { return ended; });
}

void Worker::run() {
    if (initialize(m_settings.verbose) != 1)
        log(LOG_ERR, "the library could not be made ready");
    openLog(m_settings.foreground); // the library has opened it without standard error
    std::unique_lock lock(m_mutex);
    for (;;) {
        if (!m_jobs.empty()) {
            const Job job = std::move(m_jobs.front());
            m_jobs.pop_front();
            m_working = true;
            lock.unlock();
            (this->*job.run)(*job.transaction);
            lock.lock();
            m_working = false;
            job.transaction->ended = true;
            m_changed.notify_all();
        } else if (m_stopping) {
            m_ended = true;
            m_changed.notify_all();
            return;
        } else if (m_toLoad != 0 || Clock::now() >= m_due) {
            lock.unlock();
            refreshPart();
            lock.lock();
        } else {
            m_changed.wait_until(lock, m_due);
        }
    }
}

void Worker::makeAll(Transaction& transaction) {
    unsigned loaded = 0;
    unsigned affected = 0;
    for (std::size_t i = 0; i < transaction.changes.size(); ++i) {
        Change& change = transaction.changes[i];
        const Object& object = *change.object;
        transaction.position = i;
        int status =
            load(m_next.model, kDiscard | (object.before & ~loaded)); // waits for a locked database
        if (status == CORVANTA_OK)
            status = object.access(access_get, change.row, change.old);
        if (status == CORVANTA_OK && transaction.abandoned)
            status = CORVANTA_FAILED;
        if (status == CORVANTA_OK) {
            change.begun = true;
            Value value = change.value;
            status = object.access(access_set, change.row, value);
        }
        transaction.status = status;
        if (status != CORVANTA_OK)
            return show(kAll);
        // The default bridge comes and goes without the cache.
        loaded = object.after & kDefaultWan ? 0 : loaded | object.before;
        affected |= object.after;
    }
    show(affected);
}

void Worker::undoAll(Transaction& transaction) {
    bool undone = false;
    for (auto change = transaction.changes.rbegin(); change != transaction.changes.rend();
         ++change) {
        if (!change->begun)
            continue;
        undone = true;
        int status;
        do
            status = undo(*change);
        while (status == CORVANTA_LOCKED && !m_stopping);
        if (status != CORVANTA_OK)
            log(LOG_ERR, "a set that failed could not be undone, status " + std::to_string(status));
    }
    if (undone)
        show(kAll);
}

int Worker::undo(const Change& change) {
    Value current;
    if (const int status = load(m_next.model, kDiscard | change.object->before);
        status != CORVANTA_OK)
        return status;
    if (const int status = change.object->access(access_get, change.row, current);
        status != CORVANTA_OK)
        return status;
    if (current == change.old)
        return CORVANTA_OK;
    current = change.old;
    return change.object->access(access_set, change.row, current);
}

void Worker::refreshPart() {
    if (m_toLoad == 0)
        m_toLoad = kAll;
    const unsigned part = m_toLoad & (~m_toLoad + 1); // the lowest bit
    m_toLoad &= ~part;
    const int status = load(m_next.model, part);
    const auto now = Clock::now();
    if (status == CORVANTA_OK && m_toLoad != 0)
        return;
    const bool failed = status != CORVANTA_OK;
    if (failed != m_failing)
        log(failed ? LOG_WARNING : LOG_INFO,
            failed ? "the device cannot be read, status " + std::to_string(status)
                   : "the device can be read again");
    m_failing = failed;
    m_toLoad = 0;
    if (failed) {
        ++m_next.refreshesFailed;
        m_due = now + std::min(m_settings.interval, kRetry);
    } else {
        ++m_next.refreshesDone;
        m_next.complete = true;
        m_next.refreshed = now;
        m_due = now + m_settings.interval;
    }
    publish();
}

void Worker::show(unsigned parts) {
    if (load(m_next.model, parts) != CORVANTA_OK)
        log(LOG_WARNING, "the device cannot be read after a set");
    m_due = std::min(m_due, Clock::now() + kSettle);
    publish();
}

void Worker::publish() {
    m_next.instances = listInstances(m_next);
    std::atomic_store(&m_snapshot, std::make_shared<const Snapshot>(m_next));
    m_published();
}

} // namespace agent
