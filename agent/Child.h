#pragma once

#include <chrono>
#include <functional>

#include <sys/types.h>

namespace agent {

/// One of the processes that the parent starts, stops, and starts again when it dies.
class Child {
public:
    /// What it does until the descriptor `stop` is readable, writing a byte to `alive` at each beat
    /// from when it is ready. @return its exit status
    using Work = std::function<int(int alive, int stop)>;

    Child(const char* name, Work work) : m_name(name), m_work(std::move(work)) {}

    const char* name() const { return m_name; }
    bool is(pid_t process) const { return process == m_process; }
    bool running() const { return m_process > 0; }

    /// @return whether there is such a process
    bool start();

    /// To be called when it has ended or could not be started: it is due again after a pause.
    void ended();
    bool due() const { return !running() && Clock::now() >= m_due; }

    /// Takes in its signs of life. @return whether any has come
    bool hear();
    int alive() const { return m_alive; } ///< readable when one has

    /// Kills it when it has given no sign for too long. To be called once a beat, which is how the
    /// time is counted: when the whole machine was frozen, nobody has missed anything.
    void watch();
    bool hangs() const; ///< it was killed for that, and has not ended yet

    /// Has it end at once; it is due again as after any other death.
    void killNow() const;

    /// Called in the other child, which must not read what is meant for the parent.
    void forget();

    /// Asks it to stop, and kills it when it has not in time. To be called until it has ended; the
    /// time counts from the first call.
    void stop(std::chrono::seconds time);

private:
    using Clock = std::chrono::steady_clock;

    const char* m_name;
    Work m_work;
    pid_t m_process = 0;
    int m_alive = -1;
    int m_silence = 0; ///< beats since its start, or its last sign of life
    int m_limit = 0;   ///< beats that it may be silent
    Clock::time_point m_due;
    Clock::time_point m_killAt; ///< unset while nobody has asked it to stop
};

} // namespace agent
