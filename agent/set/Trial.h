#pragma once

#include "agent/set/Manager.h"
#include "agent/set/Objects.h"
#include "agent/set/Terminal.h"

#include <chrono>
#include <string>
#include <vector>

namespace trial {

using std::chrono::seconds;

/// The program's exit statuses.
enum Status { kKept, kUnchanged, kMisused, kReverted, kUnreachable, kUnknown };

struct Options {
    seconds time{60};
    seconds wait{8};
    bool isSure = false;
    bool isForced = false;
    bool isJson = false;
    std::string host;
    std::vector<Assignment> assignments;
};

/// How it ends.
struct End {
    Status status;
    std::string text;
};

/// What cvChange can be set to.
enum class Decision : std::int64_t { confirm = 2, revert = 3 };

/// Thrown when the change, which may have been made, is not to stay.
struct TakeBack;

using Values = std::vector<Value>;

/// One change on trial, from the first question to the last.
class Trial {
public:
    explicit Trial(const Options& options)
        : m_options(options), m_assignments(options.assignments), m_router(options.host) {
        for (const Assignment& assignment : m_assignments) {
            m_instances.push_back(assignment.instance);
            m_new.push_back(assignment.value);
        }
    }

    End run();
    const Values& before() const { return m_before; }

private:
    enum class State { unknown, idle, pending, restoring };

    bool look(const std::vector<Instance>& instances);
    bool look() { return look(m_instances); }
    std::string busy() const;
    std::string describe(const Values& values) const;
    void readBefore();
    void checkInterfaces();
    void make();
    void check();
    void showTable() const;
    void confirm();
    End settle();

    Answer put(const std::vector<Assignment>& assignments);
    Answer decide(Decision decision) { return put({assignmentOf(decision)}); }
    static Assignment assignmentOf(Decision decision) {
        return {instance("cvChange"), static_cast<std::int64_t>(decision)};
    }
    bool isInTime() const;

    const Options& m_options;
    const std::vector<Assignment>& m_assignments;
    Manager m_router;
    std::vector<Instance> m_instances;
    Values m_before; ///< the change
    Values m_new;    ///< that the change is to bring

    // What the router said when it was last asked.
    State m_state = State::unknown;
    seconds m_remaining{};
    Values m_values;
    std::string m_trouble; ///< why there is nothing to see

    Clock::time_point m_end{}; ///< of the trial, at the earliest
    bool m_wasSeen = false;    ///< on the router
    bool m_isSettling = false;
    bool m_isConfirming = false; ///< the router may have been told to keep it
};

} // namespace trial
