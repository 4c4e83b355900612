#include "agent/net/SetLog.h"

#include "agent/Log.h"
#include "agent/net/Snapshots.h"

#include <array>
#include <cstdio>
#include <iterator>
#include <string_view>
#include <utility>

namespace agent::net {

namespace {

constexpr std::size_t kLongest = 600; ///< who sets what
constexpr std::string_view kAndMore = "; and more";
constexpr std::size_t kLongestText = 40; ///< a value

const char* describe(Outcome outcome) {
    switch (outcome) {
    case Outcome::done:
        return "made";
    case Outcome::refused:
        return "refused: nothing has changed";
    case Outcome::late:
        return "missed its deadline and is taken back";
    case Outcome::notUndone:
        return "failed, and could not be taken back wholly";
    case Outcome::undoing:
        return "failed and is being taken back";
    case Outcome::unavailable:
        return "refused: a change is pending or being taken back, or there is too little time";
    case Outcome::inconsistent:
        break;
    }
    return "refused: no change is pending";
}

/// The object and its row by name, or the whole OID where there is no such object.
std::string describe(const Assignment& assignment) {
    const Object* const object = assignment.object;
    std::string name = object != nullptr ? object->label() : "";
    for (std::size_t i = object != nullptr ? object->name().size() : 0; i < assignment.name.size();
         ++i)
        name += "." + std::to_string(assignment.name[i]);
    return name;
}

std::string describe(const Object& object, const Value& value) {
    static const char* const truths[] = {"true", "false"};
    static const char* const verdicts[] = {"none", "confirm", "revert"};
    const auto index = static_cast<std::size_t>(value.number - 1);
    if (object.type() == Type::text)
        return "'" + printable(value.text, kLongestText) + "'";
    if (object.control() == Control::change && index < std::size(verdicts))
        return verdicts[index];
    if (object.type() == Type::integer && object.maximum() == 2 && index < std::size(truths))
        return truths[index];
    return std::to_string(value.number);
}

/// "NAME OLD -> NEW", as far as they are known.
std::string describe(const Assignment& assignment, const View& view) {
    std::string text = describe(assignment);
    if (assignment.object == nullptr)
        return text;
    const Object& object = *assignment.object;
    const Instance* const instance = instanceOf(view.snapshot, assignment.name);
    Value before;
    if (object.control() == Control::none && instance != nullptr &&
        object.read(view, instance->row, before))
        text += " " + describe(object, before);
    if (assignment.value)
        text += " -> " + describe(object, *assignment.value);
    return text;
}

} // namespace

void SetLog::begin(const ManagerRequest& request, const View& view) {
    m_came = request.came;
    std::string values;
    for (const Assignment& assignment : request.assignments) {
        if (values.size() >= kLongest)
            break;
        values += (values.empty() ? " " : ", ") + describe(assignment, view);
    }
    m_request = printable("set by " + request.manager + ":" + values, kLongest);
}

void SetLog::end(const std::string& outcome, ErrorStatus error) {
    const std::chrono::duration<double> took = m_system.now() - m_came;
    std::array<char, 32> time{};
    std::snprintf(time.data(), time.size(), "%.2f s", took.count());
    log(LOG_NOTICE,
        m_request + ": " + outcome +
            (error != ErrorStatus::noError ? std::string(" (") + nameOf(error) + ")" : "") + ", " +
            time.data());
}

void SetLog::end(const SetRequest& set, const SetResult& result) {
    std::string outcome = describe(result.outcome);
    if (result.outcome == Outcome::done && set.verdict == Verdict::confirm) {
        outcome += ", confirms " + std::exchange(m_onTrial, "");
    } else if (result.outcome == Outcome::done && set.trial != std::chrono::seconds(0)) {
        outcome += ", on trial for " + std::to_string(set.trial.count()) + " s";
        if (m_onTrial.size() < kLongest) // each renewal of the trial adds to it
            m_onTrial += (m_onTrial.empty() ? "" : "; ") + m_request;
        else if (m_onTrial.compare(m_onTrial.size() - kAndMore.size(), kAndMore.npos, kAndMore) !=
                 0)
            m_onTrial += kAndMore;
    }
    end(outcome, errorOf(result));
}

void SetLog::reverts(const Snapshot& before, const Snapshot& now) {
    static const char* const reasons[] = {"", "it was not confirmed in time", "a manager wanted it",
                                          "the agent was restarted", "a further change failed"};
    if (now.counters.reverts == before.counters.reverts)
        return;
    const std::string what = std::exchange(m_onTrial, "");
    log(LOG_NOTICE, (what.empty() ? "a change on trial" : what) + ": taken back, since " +
                        reasons[static_cast<std::size_t>(now.revertReason) % std::size(reasons)]);
}

} // namespace agent::net
