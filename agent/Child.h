#pragma once

#include <chrono>
#include <functional>

#include <sys/types.h>

namespace agent {

/// One of the processes that the parent starts, stops, and starts again when it dies.
class Child {
public:
    /// @param work  what it does until the descriptor `stop` is readable; @return its exit status
    Child(const char* name, std::function<int(int stop)> work)
        : m_name(name), m_work(std::move(work)) {}

    const char* name() const { return m_name; }
    bool is(pid_t process) const { return process == m_process; }
    bool running() const { return m_process > 0; }

    /// @return whether there is such a process
    bool start();

    /// To be called when it has ended or could not be started: it is due again after a pause.
    void ended();
    bool due() const { return !running() && Clock::now() >= m_due; }

    /// Asks it to stop, and kills it when that takes too long. To be called again and again until
    /// it has ended; the time limit counts from the first call.
    void stop(std::chrono::seconds time);

private:
    using Clock = std::chrono::steady_clock;

    const char* m_name;
    std::function<int(int stop)> m_work;
    pid_t m_process = 0;
    Clock::time_point m_due;
    Clock::time_point m_killAt; ///< unset while nobody has asked it to stop
};

} // namespace agent
