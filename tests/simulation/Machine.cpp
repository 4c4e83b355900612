#include "Machine.h"

#include "agent/system/Files.h"

#include <algorithm>
#include <cerrno>
#include <stdexcept>

namespace simulation {

using agent::Clock;

namespace {

constexpr std::size_t kMostPackets = 64; ///< that a process may fall behind
constexpr milliseconds kTick{4};         ///< that the times of files move on by
constexpr milliseconds kYoung{20};
constexpr seconds kLonger{6};      ///< than a set may take
constexpr int kMostWaits = 100000; ///< one after the other, while no time passes

/// What the DSL tool says of a line that carries.
const char* const kRates = "Line Rate Information   Down      Up\n"
                           "Actual Data Rate:       5696      1024\n"
                           "Attainable Data Rate:   6144      1280\n";

/// What stands between the quotes.
std::string argumentOf(const std::string& commandLine) {
    const std::size_t begin = commandLine.find('"');
    const std::size_t end = commandLine.rfind('"');
    return begin == end ? "" : commandLine.substr(begin + 1, end - begin - 1);
}

} // namespace

Machine::Machine(bool reusesIds)
    : database(reusesIds), disk([this] {
          step();
          return !m_killed;
      }) {
    options.state = Disk::kFolder;
    options.master = "simulated";
    database.makeFactory();
}

/// What the device's process does next can be the last that it does.
void Machine::step() {
    if (m_stepping || m_killed)
        return;
    m_stepping = true;
    ++m_steps;
    onStep();
    onNetwork();
    m_stepping = false;
}

void Machine::pass(Clock::duration time) {
    constexpr seconds kPiece{1};
    const Time end = m_now + time;
    while (m_now < end) {
        m_now = std::min<Time>(end, m_now + kPiece);
        onNetwork();
    }
}

void Machine::kill() {
    m_killed = true;
    m_deadNow = m_now;
    m_program.reset();
}

void Machine::restart() {
    m_killed = m_stops = lookFailed = journalRemoved = false;
    m_program.reset();
}

void Machine::forgetPackets() {
    m_toDevice.clear();
    m_toNetwork.clear();
}

void Machine::touchDatabaseFile() {
    const auto ticks = m_now.time_since_epoch() / kTick;
    m_fileChanged = Time(ticks * kTick);
    m_fileTouched = true;
}

// ------------------------------------------------------------------------------ the processes

agent::System::Events Machine::Door::wait(const Events& wanted, Time until) {
    m.step();
    Events events;
    if (m.m_killed) { // it comes to its end soon
        m.m_deadNow = std::min(std::max(until, m.m_deadNow), m.m_deadNow + seconds(1));
        events.stop = wanted.stop;
        events.program = wanted.program;
        return events;
    }
    if (m.timeOfWait.count() >= 0)
        until = std::min(until, m.m_now + std::exchange(m.timeOfWait, Clock::duration(-1)));
    if (wanted.program && m.m_program)
        until = std::min(until, m.m_program->ends);
    events.message = wanted.message && !m.m_toDevice.empty();
    events.stop = wanted.stop && m.m_stops;
    events.file = wanted.file && m.hasFileEvents && m.m_fileTouched;
    if (!events.message && !events.stop && !events.file && until > m.m_now) {
        m.m_now = until;
        m.m_waits = 0;
        m.onNetwork();
    } else if (++m.m_waits > kMostWaits) {
        throw std::runtime_error("it waits without an end, and without passing time");
    }
    events.program = wanted.program && m.m_program && m.m_now >= m.m_program->ends;
    return events;
}

void Machine::DeviceDoor::send(const std::string& packet) {
    m.step();
    ++m.m_operations;
    const auto message = agent::unpack(packet);
    if (m.m_killed || !message)
        return;
    m.onSent(*message);
    if (m.m_toNetwork.size() < kMostPackets)
        m.m_toNetwork.push_back(packet);
}

std::optional<std::string> Machine::DeviceDoor::receive() {
    m.step();
    if (m.m_killed || m.m_toDevice.empty())
        return std::nullopt;
    ++m.m_operations;
    const std::string packet = m.m_toDevice.front();
    m.m_toDevice.pop_front();
    if (const auto message = agent::unpack(packet))
        m.onReceived(*message);
    return packet;
}

void Machine::NetworkDoor::send(const std::string& packet) {
    ++m.m_operations;
    if (const auto message = agent::unpack(packet))
        m.onAsked(*message);
    if (m.m_toDevice.size() < kMostPackets)
        m.m_toDevice.push_back(packet);
}

std::optional<std::string> Machine::NetworkDoor::receive() {
    if (m.m_toNetwork.empty())
        return std::nullopt;
    ++m.m_operations;
    const std::string packet = m.m_toNetwork.front();
    m.m_toNetwork.pop_front();
    return packet;
}

// ----------------------------------------------------------------------------------- programs

bool Machine::Door::startProgram(const std::string& commandLine) {
    m.step();
    ++m.m_operations;
    m.m_program.emplace();
    m.m_program->ends = m.m_now + m.clientTime;
    if (m.m_killed)
        return true;
    if (commandLine.find("quorlet") == commandLine.npos) {
        m.m_program->end = {m.lineFails ? "" : kRates, "", m.lineFails ? 1 : 0};
        return true;
    }
    if (m.nextClient == ClientFault::notStarted) {
        m.nextClient = ClientFault::none;
        m.writer(); // the set has begun
        m.m_program.reset();
        return false;
    }
    m.runClient(argumentOf(commandLine));
    return true;
}

std::string Machine::stamp() const {
    const auto time = std::chrono::duration_cast<milliseconds>(m_now.time_since_epoch()).count();
    return std::to_string(time / 1000 - 3600) + "." + std::to_string(time % 1000 + 1000).substr(1) +
           " step " + std::to_string(m_steps) + ": ";
}

void Machine::runClient(const std::string& command) {
    ClientFault fault = std::exchange(nextClient, ClientFault::none);
    agent::ProgramEnd& end = m_program->end;
    std::optional<std::string> said;
    const Writer by = writer();
    const bool does = fault != ClientFault::killedBefore && fault != ClientFault::hangsBefore &&
                      fault != ClientFault::empty;
    const auto has = [&command](const char* verb) { return command.find(verb) != command.npos; };
    const bool lies = fault == ClientFault::lies && by.kind == Writer::Kind::set &&
                      (has("deletekey") || (has("updatekey") && m_steps % 2 == 0));
    if (fault == ClientFault::lies && !lies)
        std::swap(nextClient, fault); // waits for what it can lie about
    lied = lied || lies;
    if (m_now < lockedUntil)
        said = "Database locked\n";
    else if (lies)
        said = "Operation succeeded\n";
    else if (does)
        said = database.run(command, by);
    if (trace && (fault != ClientFault::none ||
                  (command.find("select") == command.npos && command.find("size") == command.npos)))
        trace(stamp() + "client " + command + " -> " +
              (said ? said->substr(0, said->size() - 1) : "nothing") +
              (fault != ClientFault::none ? " (fault)" : ""));
    if (database.writes() != m_fileWrites) {
        m_fileWrites = database.writes();
        touchDatabaseFile();
    }
    end.output = said.value_or("");
    end.status = said || fault == ClientFault::empty ? 0 : 2;
    switch (fault) {
    case ClientFault::killedBefore:
    case ClientFault::killedAfter:
        end = {"", "", -1};
        break;
    case ClientFault::cut:
        end.output.resize(end.output.size() / 2);
        end.status = m_steps % 2 == 0 ? -1 : 1; // it can also end by itself, as on a full pipe
        break;
    case ClientFault::hangsBefore:
    case ClientFault::hangsAfter:
        m_program->ends = Time::max();
        break;
    case ClientFault::dawdles:
        m_program->ends = m_now + kLonger;
        break;
    default:
        break;
    }
}

std::optional<agent::ProgramEnd> Machine::Door::collectProgram() {
    m.step();
    if (!m.m_program)
        return agent::ProgramEnd{"", "", -1};
    if (m.m_now < m.m_program->ends && !m.m_killed)
        return std::nullopt;
    const agent::ProgramEnd end = m.m_program->end;
    m.m_program.reset();
    return end;
}

void Machine::Door::killProgram() {
    m.step();
    m.m_program.reset();
}

// -------------------------------------------------------------------------------------- files

bool Machine::Door::load(const std::string& name, std::optional<std::string>& content) {
    ++m.m_operations;
    const bool looked = agent::loadFile(Disk::kFolder + name, content);
    m.lookFailed = m.lookFailed || !looked;
    return looked;
}

bool Machine::Door::store(const std::string& name, const std::string& content) {
    ++m.m_operations;
    return agent::replaceFile(Disk::kFolder + name, content);
}

bool Machine::Door::remove(const std::string& name) {
    ++m.m_operations;
    const bool had = m.disk.has(Disk::kFolder + name);
    const bool removed = agent::removeFile(Disk::kFolder + name);
    m.journalRemoved = had && removed && Disk::kFolder + name == kJournal;
    m.journalGoes(name);
    return removed;
}

bool Machine::Door::rename(const std::string& name, const std::string& newName) {
    ++m.m_operations;
    const bool renamed = agent::renameFile(Disk::kFolder + name, Disk::kFolder + newName);
    m.journalGoes(name);
    return renamed;
}

void Machine::journalGoes(const std::string& name) {
    if (name != "change.journal" || m_killed)
        return;
    if (const auto frozen = std::exchange(killsOnceGone, std::nullopt)) {
        pass(*frozen);
        kill();
    }
}

std::optional<agent::FileState> Machine::Door::watchedFile() {
    m.step();
    if (m.options.watchDatabase.empty())
        return std::nullopt;
    agent::FileState state;
    state.size = static_cast<off_t>(m.m_fileSize);
    const auto time = m.m_fileChanged.time_since_epoch();
    state.modified = {std::chrono::duration_cast<seconds>(time).count(),
                      (time % seconds(1)).count()};
    state.changed = state.modified;
    state.young = m.m_now - m.m_fileChanged < kYoung;
    return state;
}

bool Machine::Door::watchedFileTouched() {
    m.step();
    return std::exchange(m.m_fileTouched, false) && m.hasFileEvents;
}

} // namespace simulation

/// A process of the device calls initialize() once; here one after the other does, and the library
/// drops the cache of the one before.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:update_managed_objects\nleak:initialize";
}
