#include "World.h"

#include "agent/change/Stage.h"

#include <chrono>

using namespace agent;

namespace {

constexpr std::chrono::milliseconds kRun{5}; ///< how long a program runs

/// What the DSL tool says of a line that carries.
constexpr const char* kRates = "Line Rate Information   Down      Up\n"
                               "Actual Data Rate:       5696      1024\n"
                               "Attainable Data Rate:   6144      1280\n";

} // namespace

World::World() : m_now(std::chrono::hours(1)) {
    for (int id = 1; id <= 16; ++id) {
        const std::string number = std::to_string(id);
        const bool lan = id % 2 == 1;
        database[Table::vlan].push_back(
            {{number, lan ? "0" : "1", (lan ? "eth0.10" : "wan1.10") + number, lan ? "" : "wan1"}});
    }
    for (int id = 1; id <= 8; ++id) {
        const std::string number = std::to_string(id);
        database[Table::atm].push_back({{number, "1", "8", "32", "wan" + number, "0"}});
    }
    database[Table::vlanParams].push_back({{"1", "0"}});
}

void World::begin() {
    m_killed = false;
    killAt = 0;
    killAfter = false;
    writes = reads = 0;
    inbox.clear();
    sent.clear();
}

System::Events World::wait(const Events& wanted, Clock::time_point until) {
    Events events;
    events.stop = wanted.stop && (m_killed || (stops && stops()));
    events.message = wanted.message && !m_killed && !inbox.empty();
    events.program = wanted.program;
    if (!events.stop && !events.message && !events.program)
        m_now = std::max(m_now, until);
    if (m_killed) // it comes to its end soon
        m_now += std::chrono::seconds(1);
    return events;
}

void World::send(const std::string& packet) {
    if (const auto message = unpack(packet); message && !m_killed)
        sent.push_back(*message);
}

std::optional<std::string> World::receive() {
    if (m_killed || inbox.empty())
        return std::nullopt;
    const std::string packet = pack(inbox.front());
    inbox.pop_front();
    return packet;
}

bool World::startProgram(const std::string& commandLine) {
    m_now += kRun;
    m_said.clear();
    if (m_killed)
        return true;
    if (!Command::isFor(commandLine)) {
        m_said = kRates;
        return true;
    }
    const auto command = Command::parse(commandLine);
    const bool writing = command && command->writes();
    ++(writing ? writes : reads);
    m_killed = writing && writes == killAt;
    if (!m_killed || killAfter)
        m_said = Stage(database).answer(commandLine).value_or("");
    if (m_killed)
        m_said.clear();
    return true;
}

std::optional<ProgramEnd> World::collectProgram() {
    return ProgramEnd{m_said, "", m_killed ? -1 : 0};
}

bool World::load(const std::string& name, std::optional<std::string>& content) {
    if (const auto file = files.find(name); file != files.end())
        content = file->second;
    return true;
}

bool World::store(const std::string& name, const std::string& content) {
    if (!m_killed)
        files[name] = content;
    return !m_killed;
}

bool World::remove(const std::string& name) {
    if (!m_killed)
        files.erase(name);
    return !m_killed;
}

bool World::rename(const std::string& name, const std::string& newName) {
    if (!m_killed && files.count(name) != 0) {
        files[newName] = files[name];
        files.erase(name);
    }
    return !m_killed;
}
