#include "Front.h"

#include "agent/link/Objects.h"

#include <utility>

namespace simulation {

using agent::net::ErrorStatus;

namespace {

constexpr seconds kSameAnswer{60}; ///< for how long a repeated request gets the answer of before

std::string identityOf(const Request& request) {
    std::string text = std::to_string(request.manager) + ':' + std::to_string(request.number);
    for (const auto& [place, value] : request.values)
        text += std::string(" ") + place.first->label() + '.' + std::to_string(place.second) + '=' +
                std::to_string(value.number) + value.text;
    return text + (request.trial ? " for " + std::to_string(*request.trial) : "") + ' ' +
           std::to_string(static_cast<int>(request.verdict));
}

} // namespace

Front::Front(Machine& machine, Oracle& oracle)
    : m_machine(machine),
      m_oracle(oracle),
      m_link(machine.network()),
      m_snapshots(machine.options, machine.network()),
      m_sets(machine.options, machine.network(), m_link, m_snapshots) {
    while (m_link.receive()) { // what was meant for the process before
    }
}

/// Nobody is answered any more.
Front::~Front() {
    if (m_current && m_current->set)
        m_oracle.unanswered(*m_current->set);
}

void Front::ask(const Request& request) {
    m_queue.push_back({request, m_machine.now(), identityOf(request), std::nullopt, false});
}

void Front::asked(const agent::Message& message) {
    if (const auto* set = std::get_if<agent::SetRequest>(&message))
        m_current->set = set->id;
}

void Front::hangUp() {
    if (!m_current)
        return;
    if (m_current->set)
        m_oracle.unanswered(*m_current->set);
    m_sets.hangUp();
    m_current.reset();
}

void Front::get(const Place& place) {
    m_snapshots.showForGet(false);
    agent::Value value;
    if (!m_snapshots.stale() &&
        place.first->read(m_snapshots.view(m_sets.refused()), place.second, value))
        m_oracle.shown(place, value, m_snapshots.shown().refreshed);
}

void Front::work() {
    receive();
    for (;;) {
        if (m_current && m_sets.waits())
            return;
        if (m_current)
            finish();
        else if (!m_queue.empty())
            begin();
        else
            return;
    }
}

void Front::receive() {
    while (const auto message = m_link.receive()) {
        if (const auto* snapshot = std::get_if<agent::Snapshot>(&*message)) {
            const auto before = m_snapshots.take(*snapshot);
            m_sets.take(*snapshot, before.get());
        } else if (const auto* result = std::get_if<agent::SetResult>(&*message)) {
            m_sets.take(*result);
        } else if (const auto* hello = std::get_if<agent::Hello>(&*message)) {
            m_snapshots.take(*hello);
            m_sets.take(*hello);
        }
    }
    m_sets.checkTime();
}

agent::net::ManagerRequest Front::toManagerRequest(const Waiting& waiting) const {
    const Request& request = waiting.request;
    agent::net::ManagerRequest made{"manager " + std::to_string(request.manager),
                                    std::to_string(request.manager) + ':' +
                                        std::to_string(request.number),
                                    waiting.identity,
                                    waiting.came,
                                    {}};
    const auto assign = [&made](const agent::Object& object, int row, const agent::Value& value) {
        agent::Oid name = object.name();
        name.push_back(static_cast<unsigned long>(row));
        made.assignments.push_back({std::move(name), &object, value, ErrorStatus::noError});
    };
    for (const auto& [place, value] : request.values)
        assign(*place.first, place.second, value);
    if (request.trial)
        assign(objectCalled("cvConfirmTimeout"), 0, {*request.trial, ""});
    if (request.verdict != agent::Verdict::notGiven)
        assign(objectCalled("cvChange"), 0, {static_cast<long>(request.verdict), ""});
    return made;
}

void Front::begin() {
    m_current = std::move(m_queue.front());
    m_queue.pop_front();
    m_sets.begin(toManagerRequest(*m_current));
    if (m_sets.answer().error == ErrorStatus::noError)
        m_sets.commit();
}

void Front::finish() {
    const ErrorStatus error = m_sets.answer().error;
    if (m_current->takenBack)
        return answer(error == ErrorStatus::noError ? ErrorStatus::genErr : error);
    if (error != ErrorStatus::noError || !m_current->request.restFails)
        return answer(error);
    m_current->takenBack = true;
    m_sets.takeBack();
    if (!m_sets.waits())
        answer(ErrorStatus::genErr);
}

void Front::answer(ErrorStatus error) {
    const auto before = m_answers.find(m_current->identity);
    if (before != m_answers.end() && m_current->came - before->second.when < kSameAnswer &&
        !m_current->request.restFails) {
        ++m_oracle.seen["a repeated request got its answer"];
        if (before->second.error != error)
            m_oracle.fail("a repeated request gets another answer");
        if (m_current->set)
            m_oracle.fail("a repeated request is performed twice");
    } else {
        m_answers[m_current->identity] = {error, m_machine.now()};
    }
    if (m_machine.trace)
        m_machine.trace(m_machine.stamp() + "answer to " + m_current->identity + ": " +
                        nameOf(error));
    if (m_current->set)
        m_oracle.answered(*m_current->set, error);
    m_last = error;
    m_sets.release(error != ErrorStatus::noError);
    m_current.reset();
}

} // namespace simulation
