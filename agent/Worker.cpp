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

bool Worker::make(const std::shared_ptr<Transaction>& transaction, Clock::time_point deadline) {
    if (await({transaction, &Worker::makeAll}, deadline))
        return true;
    transaction->abandoned = true;
    return false;
}

bool Worker::undo(const std::shared_ptr<Transaction>& transaction, Clock::time_point deadline) {
    return await({transaction, &Worker::undoAll}, deadline);
}

bool Worker::await(Job job, Clock::time_point deadline) {
    std::unique_lock lock(m_mutex);
    const bool& ended = job.transaction->ended = false;
    m_jobs.push_back(job);
    m_changed.notify_all();
    return m_changed.wait_until(lock, deadline, [&ended] { return ended; });
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
            status = remember(change);
        if (status == CORVANTA_OK && transaction.abandoned)
            status = CORVANTA_FAILED;
        if (status == CORVANTA_OK) {
            change.begun = true;
            Value value = change.value;
            status = object.access(access_set, change.row, value);
        }
        transaction.status = status;
        if (status != CORVANTA_OK)
            return;
        // The default bridge comes and goes without the cache.
        loaded = object.after & kDefaultWan ? 0 : loaded | object.before;
        affected |= object.after;
    }
    show(affected);
}

/// Reads the old value, and those of the objects that change along.
int Worker::remember(Change& change) {
    if (change.object->after & kDefaultWan) {
        for (const Instance& instance : m_next.instances) {
            const Object& object = *instance.object;
            if (!object.followsWan)
                continue;
            Change bystander{&object, instance.row, {}};
            const int status = object.access(access_get, instance.row, bystander.old);
            if (status == CORVANTA_OK)
                change.bystanders.push_back(bystander);
            else if (status != CORVANTA_UNKNOWN_ROW)
                return status;
        }
    }
    return change.object->access(access_get, change.row, change.old);
}

void Worker::undoAll(Transaction& transaction) {
    for (auto change = transaction.changes.rbegin(); change != transaction.changes.rend();
         ++change) {
        if (!change->begun)
            continue;
        undo(transaction, *change);
        for (const Change& bystander : change->bystanders)
            undo(transaction, bystander);
    }
    show(kAll);
}

void Worker::undo(Transaction& transaction, const Change& change) {
    int status;
    do
        status = restore(change);
    while (status == CORVANTA_LOCKED && !m_stopping);
    if (status == CORVANTA_OK)
        return;
    transaction.undone = false;
    log(LOG_ERR, "a set that failed could not be undone, status " + std::to_string(status));
}

int Worker::restore(const Change& change) {
    const auto access = change.object->access;
    Value current;
    if (const int status = load(m_next.model, kDiscard); status != CORVANTA_OK)
        return status;
    if (const int status = access(access_get, change.row, current); status != CORVANTA_OK)
        return status;
    if (current == change.old)
        return CORVANTA_OK;
    if (const int status = load(m_next.model, change.object->before); status != CORVANTA_OK)
        return status;
    current = change.old;
    const int status = access(access_set, change.row, current);
    if (status == CORVANTA_OK || status == CORVANTA_LOCKED)
        return status;
    // What a change that failed half way has not made is missed here, but the value may be back.
    const bool back =
        access(access_get, change.row, current) == CORVANTA_OK && current == change.old;
    return back ? CORVANTA_OK : status;
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
