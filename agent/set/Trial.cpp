#include "agent/set/Trial.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include <unistd.h>

namespace trial {

namespace {

constexpr Patience kGet{seconds(2), 5};
constexpr int kSettleTries = 3;  ///< of a get, when the change is being taken back
constexpr int kSetTries = 3;     ///< of the same request
constexpr int kSetRounds = 2;    ///< once more when the router answers again
constexpr seconds kMargin{2};    ///< of the trial, left for taking back
constexpr seconds kSettled{1};   ///< a device can cut a manager off a moment after its answer
constexpr int kRounds = 4;       ///< of looking whether the change has been taken back
constexpr seconds kQuestion{60}; ///< that is asked before anything is set

std::string join(const std::vector<std::string>& words) {
    std::string text;
    for (std::size_t i = 0; i < words.size(); ++i)
        text += (i == 0 ? "" : i + 1 < words.size() ? ", " : " and ") + words[i];
    return text;
}

} // namespace

struct TakeBack {
    std::string why;
};

Answer Trial::put(const std::vector<Assignment>& assignments) {
    // A set is not sent again when its trial may already be over.
    const auto tries = std::clamp<seconds::rep>(m_options.time / m_options.wait, 1, kSetTries);
    return m_router.set(assignments, {m_options.wait, static_cast<int>(tries)});
}

bool Trial::isInTime() const {
    return Clock::now() < m_end - kMargin;
}

/// Asks in one request for the state of changes and for values.
bool Trial::look(const std::vector<Instance>& instances) {
    std::vector<Instance> asked = {instance("cvChangeState"), instance("cvConfirmRemaining")};
    asked.insert(asked.end(), instances.begin(), instances.end());
    Patience patience = kGet;
    if (m_isSettling)
        patience.tries = kSettleTries;
    else if (m_end != Clock::time_point())
        patience.tries = static_cast<int>(
            std::clamp<Clock::rep>((m_end - Clock::now()) / kGet.time, 1, kGet.tries));
    m_state = State::unknown;
    m_values.clear();
    const Answer answer = m_router.get(asked, patience);
    m_trouble = answer.trouble;
    if (answer.kind == Answer::Kind::refused)
        m_trouble = answer.error == SNMP_ERR_GENERR
                        ? "the router cannot read its own configuration now (genErr)"
                        : Manager::user() + " may not read this";
    if (answer.kind != Answer::Kind::values)
        return false;
    for (std::size_t i = 0; i < asked.size(); ++i) {
        if (!answer.values[i]) {
            m_trouble = "the router has no " + nameOf(asked[i]) + ", or " + Manager::user() +
                        " may not read it";
            return false;
        }
        if (i > 1)
            m_values.push_back(*answer.values[i]);
    }
    m_state = static_cast<State>(std::get<std::int64_t>(*answer.values[0]));
    m_remaining = seconds(std::get<std::int64_t>(*answer.values[1]));
    return true;
}

std::string Trial::busy() const {
    return m_state == State::pending
               ? "another change is pending: try again in " + std::to_string(m_remaining.count()) +
                     " s, when it will have been taken back, or later"
               : "another change is being taken back: try again in some seconds";
}

std::string Trial::describe(const Values& values) const {
    std::vector<std::string> words;
    for (std::size_t i = 0; i < values.size(); ++i)
        words.push_back(nameOf(m_instances[i]) + " = " + textOf(*m_instances[i].object, values[i]));
    return join(words);
}

void Trial::readBefore() {
    if (!look())
        throw End{kUnchanged, "nothing was set: " + m_trouble};
    if (m_state != State::idle)
        throw End{kUnchanged, "nothing was set: " + busy()};
    m_before = m_values;
}

/// A WAN interface is there while the circuit of its number is enabled; the device takes any name.
void Trial::checkInterfaces() {
    constexpr std::string_view kKind = "WanInterface";
    std::vector<Instance> circuits;
    std::vector<std::string> names, wrong;
    for (oid row = 1; row <= instance("cvCircuitEnabled").object->lastRow; ++row)
        circuits.push_back(instance("cvCircuitEnabled", row));
    const auto isInterface = [&](const Assignment& assignment) {
        const std::string_view name = assignment.instance.object->name;
        return name.size() > kKind.size() && name.substr(name.size() - kKind.size()) == kKind &&
               assignment.value != Value(std::string());
    };
    if (std::none_of(m_assignments.begin(), m_assignments.end(), isInterface))
        return;
    Answer answer = m_router.get(circuits, kGet);
    if (answer.kind != Answer::Kind::values)
        throw End{kUnchanged, "nothing was set: the router does not tell which interfaces it has"};
    for (const Assignment& assignment : m_assignments) {
        if (assignment.instance.object == circuits[0].object)
            answer.values[assignment.instance.row - 1] = assignment.value;
    }
    for (std::size_t i = 0; i < circuits.size(); ++i) {
        if (answer.values[i] == Value(std::int64_t(1)))
            names.push_back("wan" + std::to_string(i + 1));
    }
    for (const Assignment& assignment : m_assignments) {
        const std::string name = textOf(*assignment.instance.object, assignment.value);
        if (isInterface(assignment) && std::find(names.begin(), names.end(), name) == names.end())
            wrong.push_back(name);
    }
    if (wrong.empty())
        return;
    const std::string warning =
        "the router has no interface " + join(wrong) +
        (names.empty() ? "" : "; those of its enabled circuits are " + join(names));
    if (m_options.isForced)
        return tell("warning: " + warning);
    if (m_options.isSure)
        throw End{kUnchanged, "nothing was set: " + warning + ". --force sets it all the same"};
    tell(warning);
    if (!agreed("Set it all the same?", Clock::now() + kQuestion))
        throw End{kUnchanged, "nothing was set"};
}

/// Sets the values on trial.
void Trial::make() {
    std::vector<Assignment> request = {
        {instance("cvConfirmTimeout"), std::int64_t(m_options.time.count())}};
    request.insert(request.end(), m_assignments.begin(), m_assignments.end());
    Answer answer;
    for (int i = 0; i < kSetRounds && answer.kind == Answer::Kind::none; ++i) {
        // Only the answer may be lost. A repeated set continues from what the first one changed.
        while (i > 0 && !look({})) {
            if (interrupted() || !isInTime())
                throw TakeBack{"no answer to the set: " + m_trouble};
            pause(kSettled);
        }
        if (interrupted())
            throw TakeBack{"interrupted"};
        m_end = Clock::now() + m_options.time;
        answer = put(request);
    }
    if (answer.kind == Answer::Kind::none)
        throw TakeBack{"no answer to the set: " + answer.trouble};
    if (answer.kind == Answer::Kind::values) {
        m_wasSeen = true;
        return;
    }
    std::string text = sentence(answer, request);
    look({});
    if (answer.error == SNMP_ERR_UNDOFAILED)
        throw End{kUnknown, text};
    if (answer.error == SNMP_ERR_RESOURCEUNAVAILABLE &&
        (m_state == State::pending || m_state == State::restoring))
        throw End{kUnchanged, "refused: " + busy() + " (resourceUnavailable)"};
    text = "refused: " + text;
    if (m_state == State::restoring)
        throw End{kReverted, text + "; the router is taking the change back"};
    if (m_state == State::pending)
        throw End{kUnreachable, text +
                                    "; a change is pending, another's or this one, and the router "
                                    "takes it back by itself"};
    throw End{kUnchanged, text};
}

/// Makes sure that the change is on trial and that the router shows its values.
void Trial::check() {
    while (!look()) {
        if (interrupted())
            throw TakeBack{"interrupted"};
        if (!isInTime())
            throw TakeBack{m_trouble};
        pause(kSettled);
    }
    if (interrupted())
        throw TakeBack{"interrupted"};
    if (m_state != State::pending)
        throw TakeBack{"the change is no longer pending"};
    if (m_values != m_new)
        throw TakeBack{"the router shows " + describe(m_values)};
}

void Trial::showTable() const {
    std::vector<std::array<std::string, 3>> rows = {{"OBJECT", "OLD", "NEW"}};
    for (std::size_t i = 0; i < m_instances.size(); ++i) {
        const Object& object = *m_instances[i].object;
        rows.push_back(
            {nameOf(m_instances[i]), textOf(object, m_before[i]), textOf(object, m_new[i])});
    }
    int widths[2] = {};
    for (const auto& row : rows) {
        for (std::size_t i = 0; i < 2; ++i)
            widths[i] = std::max(widths[i], static_cast<int>(row[i].size()));
    }
    std::FILE* const out = m_options.isJson ? stderr : stdout;
    for (const auto& row : rows)
        std::fprintf(out, "%-*s  %-*s  %s\n", widths[0], row[0].c_str(), widths[1], row[1].c_str(),
                     row[2].c_str());
    std::fflush(out);
}

void Trial::confirm() {
    while (isInTime() && !(m_isConfirming && interrupted())) {
        if (m_state == State::pending) {
            m_isConfirming = true;
            const Answer answer = decide(Decision::confirm);
            if (answer.kind == Answer::Kind::values)
                throw End{kKept, "the change is confirmed"};
        }
        // The answer can be lost, or the change be gone.
        if (!look())
            pause(kSettled);
        if (m_state == State::idle || m_state == State::restoring)
            return;
    }
}

/// Ends it once the set may have reached the router and is not known to be confirmed.
End Trial::settle() {
    const std::string itself = "the router takes the change back by itself, " +
                               std::to_string(m_options.time.count()) +
                               " seconds after it was made";
    if (!m_isConfirming)
        tell("taking the change back; should that fail, " + itself);
    m_isSettling = true;
    for (int i = 0; i < kRounds; ++i) {
        look({});
        if (m_state == State::idle)
            break;
        m_wasSeen = m_wasSeen || m_state != State::unknown;
        // After the trial, a pending change is somebody else's.
        if (m_state == State::pending && Clock::now() < m_end) {
            const Answer answer = decide(Decision::revert);
            if (answer.kind == Answer::Kind::refused)
                tell(sentence(answer, {assignmentOf(Decision::revert)}));
        } else {
            pause(kSettled);
        }
    }
    if (m_state == State::restoring)
        return {kReverted, "the router is taking the change back"};
    if (m_state != State::idle && m_isConfirming)
        return {kUnknown, "it is not known whether the confirmation reached the router"};
    if (m_state != State::idle)
        return {kUnreachable, "the router could not be told: " + itself};
    if (!m_wasSeen)
        return {kUnreachable, "nothing is pending; should the set still be on its way, " + itself};
    if (!look())
        return {kUnknown, "nothing is pending any more, but the values cannot be read"};
    if (m_isConfirming && m_values == m_new)
        return {kKept, "the change is confirmed"};
    if (m_values == m_before)
        return {kReverted, "the change has been taken back"};
    return {kUnknown, "nothing is pending any more, and the router shows " + describe(m_values)};
}

End Trial::run() {
    noteSignals();
    try {
        readBefore();
        checkInterfaces();
        if (interrupted())
            throw End{kUnchanged, "nothing was set"};
        make();
        check();
        pause(kSettled);
        check();
        showTable();
        if (!m_options.isSure) {
            m_end = Clock::now() + std::max(m_remaining - seconds(1), seconds(0));
            if (!agreed("The router answers. Keep the change?", m_end - kMargin))
                throw TakeBack{interrupted() ? "interrupted" : "not confirmed"};
            check();
        }
        confirm();
    } catch (const End& end) {
        return end;
    } catch (const TakeBack& takeBack) {
        tell(takeBack.why);
    }
    return settle();
}

} // namespace trial
