#include "agent/dev/Programs.h"

#include "agent/change/Stage.h"

#include <sstream>
#include <utility>

namespace agent::dev {

namespace {

constexpr std::size_t kLongestLine = 200;
constexpr int kMeanOf = 16;  ///< runs that the mean time of a client is of, roughly
constexpr int kNotRun = 126; ///< the status of what may not be run, and the next one: not found

} // namespace

Programs::Programs(System& system, std::chrono::seconds limit, Wait wait)
    : m_system(system), m_limit(limit), m_wait(std::move(wait)) {}

std::optional<std::string> Programs::answer(const std::string& commandLine) {
    if (!Command::isFor(commandLine)) {
        auto end = run(commandLine);
        if (!end || end->status != 0) // the output of a tool that failed is no reading
            return std::nullopt;
        return std::move(end->output);
    }
    return m_stage != nullptr ? m_stage->answer(commandLine) : runClient(commandLine);
}

std::optional<std::string> Programs::runClient(const std::string& commandLine) {
    const auto begun = m_system.now();
    auto end = run(commandLine);
    if (!end)
        return std::nullopt;
    const auto took = m_system.now() - begun;
    // A client can end early by itself: half a number passes for another row's Id.
    if (!end->output.empty() && end->output.back() != '\n')
        end->output.clear();
    if (end->status == 0)
        m_meanTime += m_meanTime.count() == 0 ? took : (took - m_meanTime) / kMeanOf;
    return std::move(end->output);
}

void Programs::pause(std::chrono::seconds time) {
    const auto end = m_system.now() + time;
    while (m_system.now() < end && !isCutShort())
        m_wait(end);
}

void Programs::kill() {
    if (std::exchange(m_running, false))
        m_system.killProgram();
}

std::chrono::microseconds Programs::clientTime() const {
    return std::chrono::duration_cast<std::chrono::microseconds>(m_meanTime);
}

bool Programs::timeClient(const std::function<bool()>& run) {
    const auto before = std::exchange(m_meanTime, Clock::duration(0));
    if (run() && m_meanTime.count() != 0)
        return true;
    m_meanTime = before;
    return false;
}

/// Runs a program. The output of one that hung or was killed is dropped: half an answer could pass
/// for a whole one.
/// @return nothing when it could not be started
std::optional<ProgramEnd> Programs::run(const std::string& commandLine) {
    if (isCutShort() || !m_system.startProgram(commandLine))
        return std::nullopt;
    m_running = true;
    const auto deadline = m_system.now() + m_limit;
    std::optional<ProgramEnd> end;
    while (m_running && !(end = m_system.collectProgram()) && m_system.now() < deadline)
        m_wait(deadline);
    if (!end) {
        kill();
        ++m_killed;
        log(LOG_WARNING, "a program hung and was killed:" + commandLine);
        end = ProgramEnd{"", "", -1};
    }
    m_running = false;
    report(commandLine, *end);
    if (end->status < 0)
        end->output.clear();
    return end;
}

/// Logs what kept a program from running, once, and what it wrote to standard error.
void Programs::report(const std::string& commandLine, const ProgramEnd& end) {
    std::string name;
    std::istringstream(commandLine) >> name;
    const bool notRun = end.status == kNotRun || end.status == kNotRun + 1;
    const std::string why = notRun ? m_system.whyNotRun(name) : "";
    if (std::exchange(m_told[name], why) != why && !why.empty())
        m_toldLines.log(m_system.now(), LOG_ERR, why);
    if (!why.empty())
        return;
    std::istringstream said(end.errors);
    for (std::string line; std::getline(said, line);)
        m_lines.log(m_system.now(), LOG_WARNING, name + " says: " + printable(line, kLongestLine));
}

Programs::CutShort::CutShort(Programs& programs, const bool& flag)
    : m_programs(programs), m_before(std::exchange(programs.m_cutShort, &flag)) {}

Programs::CutShort::~CutShort() {
    m_programs.m_cutShort = m_before;
}

Programs::OnStage::OnStage(Programs& programs, Stage& stage)
    : m_programs(programs), m_before(std::exchange(programs.m_stage, &stage)) {}

Programs::OnStage::~OnStage() {
    m_programs.m_stage = m_before;
}

} // namespace agent::dev
