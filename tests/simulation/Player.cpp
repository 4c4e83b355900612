#include "Player.h"

#include "agent/dev/Worker.h"
#include "agent/system/Invariant.h"

#include <algorithm>
#include <array>
#include <exception>
#include <random>

namespace simulation {

using agent::Table;
using std::chrono::minutes;

namespace {

constexpr seconds kSettled{150}; ///< by then everything has come to its end, once faults end
constexpr seconds kQuiet{3};     ///< for that long, for messages may be on their way
constexpr seconds kServed{60};   ///< likewise, and then a set is made
constexpr seconds kStopped{11};  ///< by then it has, once it was asked to
constexpr std::uint64_t kMostSteps = 1000000;
constexpr seconds kLook{5};    ///< at what is left by then, at most
constexpr seconds kRestart{1}; ///< that the parent waits before it starts a process again

const char* const kWans[] = {"wan1", "wan2", "wan3", "wan8", ""};

/// One of the objects that can be set, and a value for it.
Assignment assignment(std::mt19937& random, unsigned units) {
    const int unit = 1 + static_cast<int>(random() % units);
    const long truth = 1 + static_cast<long>(random() % 2);
    const std::string wan = kWans[random() % std::size(kWans)];
    switch (random() % 8) {
    case 0:
        return {{&objectCalled("cvCircuitEnabled"), unit}, {truth, ""}};
    case 1:
        return {{&objectCalled("cvCircuitVpi"), unit}, {static_cast<long>(random() % 256), ""}};
    case 2:
        return {{&objectCalled("cvDiscardUntaggedFrames"), 0}, {truth, ""}};
    case 3:
        return {{&objectCalled("cvVlanDiscardTag"), unit}, {truth, ""}};
    case 4:
        return {{&objectCalled("cvVlanWanInterface"), unit}, {0, wan}};
    case 5:
        return {{&objectCalled("cvDefaultWanInterface"), 0}, {0, wan}};
    default:
        return {{&objectCalled("cvVlanEnabled"), unit}, {truth, ""}};
    }
}

/// The machine's database, on half of the devices as an operator has configured it.
Machine& configured(Machine& machine, const History& history) {
    std::mt19937 random(static_cast<unsigned>(history.seed));
    std::vector<Assignment> assignments;
    for (unsigned unit = 1; unit <= history.spread; ++unit)
        if (random() % 2 == 0)
            assignments.push_back({{&objectCalled("cvVlanEnabled"), unit}, {1, ""}});
    assignments.push_back({{&objectCalled("cvDefaultWanInterface"), 0}, {0, "wan2"}});
    if (random() % 2 == 0)
        makeWithLibrary(machine.database, assignments);
    return machine;
}

/// A column that others change, and what they write there: often what the agent writes, too.
std::string columnAndValue(const Database& database, Table table, unsigned number, bool names) {
    constexpr const char* kNames[] = {"other", "br1",      "br2",      "eth0",
                                      "wan1",  "eth0.101", "wan1.101", "wan2"};
    const auto& columns = agent::shapeOf(table).columns;
    const std::size_t bridge = agent::shapeOf(table).bridgeId;
    const Records& bridges = database[Table::bridge];
    if (bridge != 0 && !bridges.empty() && number % 2 == 0)
        return "BridgeId integer:" + std::to_string(bridges[number / 8 % bridges.size()].id());
    const std::size_t column = 1 + number % (columns.size() - 1);
    return std::string(columns[column].name) +
           (columns[column].text
                ? std::string(" text:") + kNames[names ? number / 64 % std::size(kNames) : 0]
                : " integer:" + std::to_string(number / 8 % 3));
}

/// All columns of a row but its Id, as the client takes them.
std::string columnsOf(Table table, const Record& row) {
    std::string text;
    const auto& columns = agent::shapeOf(table).columns;
    for (std::size_t i = 1; i < columns.size(); ++i)
        text += " " + std::string(columns[i].name) + (columns[i].text ? " text:" : " integer:") +
                row.cells[i].text;
    return text;
}

} // namespace

Player::Player(const History& history, std::function<void(const std::string&)> trace)
    : m_history(history), m_machine(history.reusesIds), m_oracle(configured(m_machine, history)) {
    m_machine.trace = std::move(trace);
    m_machine.options.watchDatabase = history.watches ? "database" : "";
    m_machine.hasFileEvents = history.fileEvents;
    m_machine.clientTime = milliseconds(history.clientTime);
    m_machine.writer = [this] { return m_oracle.writer(); };
    m_machine.onSent = [this](const agent::Message& message) { m_oracle.sent(message); };
    m_machine.onReceived = [this](const agent::Message& message) { m_oracle.received(message); };
    m_machine.onAsked = [this](const agent::Message& message) { m_front->asked(message); };
    m_machine.onStep = [this] { onStep(); };
    m_machine.onNetwork = [this] { runNetwork(); };
}

Result Player::play() {
    while (m_phase != Phase::over) {
        runDevice();
        m_oracle.processEnded();
        if (m_phase == Phase::over)
            break;
        if (m_powerFails) {
            std::mt19937 random(static_cast<unsigned>(m_next));
            m_machine.disk.cutPower(random);
        }
        if (std::exchange(m_machineEnds, false)) {
            killNetwork();
            m_machine.forgetPackets();
        }
        m_powerFails = false;
        m_machine.pass(kRestart);
        m_machine.restart();
        if (const auto steps = std::exchange(m_nextLives, std::nullopt))
            m_diesAt = m_machine.steps() + *steps;
    }
    if (m_oracle.problem().empty())
        m_oracle.checkAgainstLibrary();
    for (const Probe& probe : m_probes)
        if (m_oracle.problem().empty() && probe.error == agent::net::ErrorStatus::commitFailed &&
            libraryMakes(probe.before, probe.assignment.first, probe.assignment.second))
            m_oracle.fail(std::string("a set is refused that the library makes: ") +
                          probe.assignment.first.first->label());
    return {m_oracle.problem(), m_machine.operations(), m_oracle.seen};
}

/// The life of one process.
void Player::runDevice() {
    try {
        agent::dev::Worker worker(m_machine.options, m_machine.device());
        worker.run();
        if (!m_machine.killed()) { // it was asked to stop
            m_machineEnds = true;
            if (m_machine.now() > m_stopAsked + kStopped)
                m_oracle.fail("the agent does not stop in time");
        }
    } catch (const agent::BrokenInvariant& broken) {
        if (!m_machine.killed())
            m_oracle.fail(std::string("the agent breaks off: ") + broken.what());
    } catch (const std::exception& error) {
        if (!m_machine.killed())
            m_oracle.fail(std::string("an exception comes out: ") + error.what());
    }
    if (!m_oracle.problem().empty())
        m_phase = Phase::over;
}

/// The life of the other, from one time that it is called to the next.
void Player::runNetwork() {
    if (m_machine.now() < m_networkWaits)
        return;
    if (!m_front) {
        m_front = std::make_unique<Front>(m_machine, m_oracle);
        m_machine.network().send(agent::pack(agent::Hello{}));
    }
    try {
        m_front->work();
    } catch (const std::exception& error) {
        m_oracle.fail(std::string("the network's process breaks off: ") + error.what());
    }
}

void Player::killNetwork() {
    m_oracle.nobodyAsksBack();
    m_front.reset();
    m_networkWaits = m_machine.now() + kRestart;
}

void Player::onStep() {
    if (m_machine.steps() > kMostSteps)
        m_oracle.fail("the agent comes to no end");
    if (!m_oracle.problem().empty())
        return end();
    if (m_phase == Phase::playing && m_machine.steps() == m_diesAt)
        m_machine.kill();
    m_machine.timeOfWait = kLook;
    if (m_comesBetween && m_oracle.returnedMembers() % 2 == 1) {
        m_comesBetween = false;
        others("insertkey BridgeInterface BridgeId integer:99 Interface text:other");
    }
    if (m_phase == Phase::settling)
        return settle();
    if (m_phase == Phase::probing)
        return probe();
    while (m_phase == Phase::playing && !m_machine.killed() && isDue()) {
        const Event& event = m_history.events[m_next++];
        m_lastSteps = m_machine.steps();
        m_fireAt.reset();
        if (m_machine.trace)
            m_machine.trace(m_machine.stamp() + "*** " + nameOf(event.what));
        ++m_oracle.seen[nameOf(event.what)];
        fire(event);
        if (m_next == m_history.events.size()) {
            heal();
            m_phase = Phase::settling;
            m_by = m_machine.now() + kSettled;
            m_quietSince = m_machine.now();
        }
    }
}

bool Player::isDue() {
    const Event& event = m_history.events[m_next];
    if (m_machine.steps() < m_lastSteps + static_cast<std::uint64_t>(event.steps))
        return false;
    if (!m_fireAt)
        m_fireAt = m_machine.now() + milliseconds(event.pause);
    if (m_machine.now() >= *m_fireAt)
        return true;
    m_machine.timeOfWait = *m_fireAt - m_machine.now();
    return false;
}

void Player::fire(const Event& event) {
    if (event.what <= What::read)
        fireManager(event);
    else if (event.what <= What::othersInsert)
        fireOthers(event);
    else
        fireFault(event);
}

Request Player::requestOf(const Event& event) {
    std::mt19937 random(event.number);
    Request request;
    request.manager = static_cast<int>(random() % 3);
    request.number = ++m_number;
    switch (event.what) {
    case What::confirm:
        request.verdict = agent::Verdict::confirm;
        break;
    case What::revert:
        request.verdict = agent::Verdict::revert;
        break;
    case What::extend:
        request.trial = 1 + static_cast<long>(random() % 30);
        break;
    default:
        if (!m_requests.empty() && random() % 4 == 0) // the same once more
            request.values = m_requests[random() % m_requests.size()].values;
        else
            for (auto left = 1 + (random() % 2) * (random() % 5); left > 0; --left)
                request.values.push_back(assignment(random, m_history.spread));
        if (event.what == What::onTrial)
            request.trial = 1 + static_cast<long>(random() % 30);
        request.restFails = event.what == What::setWithRest;
    }
    return request;
}

void Player::fireManager(const Event& event) {
    if (!m_front)
        return; // nobody takes the packet
    if (event.what == What::hangUp)
        return m_front->hangUp();
    if (event.what == What::read) {
        for (const auto& [place, value] : valuesOf(m_machine.database))
            m_front->get(place);
        return;
    }
    constexpr std::size_t kRemembered = 3;
    if (event.what != What::repeat)
        m_requests.push_back(requestOf(event));
    if (m_requests.size() > kRemembered)
        m_requests.erase(m_requests.begin());
    if (event.what != What::repeat)
        m_front->ask(m_requests.back());
    else if (!m_requests.empty())
        m_front->ask(m_requests[event.number % m_requests.size()]);
}

void Player::others(const std::string& command) {
    const auto said = m_machine.database.run(command + ";", kOthers);
    if (m_machine.trace)
        m_machine.trace(m_machine.stamp() + "others: " + command + " -> " +
                        said.value_or("refused\n"));
    m_machine.touchDatabaseFile();
}

/// In the rows of the change under way, or anywhere.
void Player::fireOthers(const Event& event) {
    std::mt19937 random(event.number);
    auto table = static_cast<Table>(random() % agent::kTables);
    const auto touched = m_oracle.touchedRows();
    int id = 0;
    if (random() % 3 == 0) // one row goes, and another comes
        table = m_othersTable;
    if (random() % 4 == 0) // where an Id matters
        table = random() % 2 == 0 ? Table::bridgeInterface : Table::bridge;
    if (!touched.empty() && event.what != What::othersInsert && random() % 3 != 0)
        std::tie(table, id) = touched[random() % touched.size()];
    else if (const Records& rows = m_machine.database[table]; !rows.empty())
        id = rows[random() % rows.size()].id();
    if (!m_requests.empty() && !m_requests.back().values.empty() && random() % 4 == 0) {
        // what the last set is about
        const auto& [object, row] = m_requests.back().values.front().first;
        for (const Table each : agent::kAllTables)
            if (object->tables().has(each) && each != Table::vlanParams)
                table = each;
        id = table != Table::vlan ? std::max(row, 1) : 2 * row - static_cast<int>(random() % 2);
    }
    m_othersTable = table;
    // Rows that the agent's objects stand for stay: a device has these always.
    const bool fixed = table == Table::vlan || table == Table::vlanParams || table == Table::atm;
    const std::string name(agent::shapeOf(table).name);
    // After a kill, a new name that the set was to write would pass for the set's.
    const bool names = event.what != What::othersInsert && !m_machine.disk.has(kJournal);
    const std::string what =
        columnAndValue(m_machine.database, table, static_cast<unsigned>(random()), names);
    const auto removed = m_oracle.removedRows();
    if (event.what == What::othersInsert && random() % 4 == 0) {
        m_comesBetween = true;
    } else if (event.what == What::othersInsert && !removed.empty() && random() % 3 == 0) {
        const auto& [from, row] =
            removed[random() % removed.size()]; // what goes is put there again
        others("insertkey " + std::string(agent::shapeOf(from).name) + columnsOf(from, row));
    } else if (event.what == What::othersInsert) {
        // Without a name it would pass for one that a set is about to give its name.
        if (!fixed)
            others("insertkey " + name + " " + what +
                   (table == Table::bridgeInterface && what.compare(0, 8, "BridgeId") == 0
                        ? " Interface text:other"
                        : ""));
    } else if (event.what == What::othersRemove && !fixed) {
        others("deletekey " + name + " Id " + std::to_string(id));
    } else {
        others("updatekey " + name + " Id " + std::to_string(id) + " " + what);
    }
}

void Player::fireFault(const Event& event) {
    const unsigned number = event.number;
    const auto some = [number](unsigned most) { return milliseconds(1 + number % most); };
    Disk& disk = m_machine.disk;
    switch (event.what) {
    case What::lock:
        m_machine.lockedUntil = m_machine.now() + some(number % 2 == 0 ? 4000 : 40000);
        break;
    case What::clientFails:
        m_machine.nextClient = static_cast<ClientFault>(1 + number % 9);
        break;
    case What::slow:
        m_machine.clientTime = some(400);
        break;
    case What::quick:
        m_machine.clientTime = milliseconds(2);
        break;
    case What::powerCut:
        m_powerFails = true;
        [[fallthrough]];
    case What::killBoth:
        m_machineEnds = true;
        [[fallthrough]];
    case What::killDevice:
        if (event.what == What::killDevice && number % 4 == 0)
            m_machine.killsOnceGone = seconds(number % 8 == 0 ? 20 : 0);
        else
            m_machine.kill();
        if (number % 12 == 0) // and the next one soon after it has begun
            m_nextLives = number / 12 % 700;
        break;
    case What::killNetwork:
        killNetwork();
        break;
    case What::stop:
        m_stopAsked = m_machine.now();
        m_machine.askToStop();
        break;
    case What::freezeDevice:
        m_machine.pass(some(20000));
        m_stopAsked = m_machine.now(); // it can't hear before
        break;
    case What::freezeNetwork:
        m_networkWaits = m_machine.now() + some(20000);
        break;
    case What::jump:
        m_machine.pass(minutes(1 + number % 90));
        m_stopAsked = m_machine.now();
        break;
    case What::diskFull:
        disk.full = disk.wasUnwell = true;
        break;
    case What::diskBroken:
        disk.broken = disk.wasBroken = disk.wasUnwell = true;
        break;
    case What::folderGone:
        disk.folderGone = disk.wasBroken = disk.wasUnwell = true;
        break;
    case What::diskWell:
        disk.full = disk.broken = disk.folderGone = false;
        break;
    case What::lineFails:
        m_machine.lineFails = number % 2 == 0;
        break;
    default:
        m_machine.timeOfWait = some(60000);
    }
}

void Player::heal() {
    m_machine.lockedUntil = {};
    m_machine.clientTime = milliseconds(m_history.clientTime);
    m_machine.nextClient = ClientFault::none;
    m_machine.killsOnceGone.reset();
    m_nextLives.reset();
    m_comesBetween = false;
    m_machine.lineFails = false;
    m_machine.disk.full = m_machine.disk.broken = m_machine.disk.folderGone = false;
    m_networkWaits = std::min(m_networkWaits, m_machine.now() + kRestart);
    if (m_machine.trace)
        m_machine.trace(m_machine.stamp() + "*** all is well from now on");
}

void Player::settle() {
    const bool idle =
        m_oracle.isIdle() && m_front && m_front->isIdle() && !m_machine.disk.has(kJournal);
    if (!idle)
        m_quietSince = m_machine.now();
    if (m_machine.now() >= m_quietSince + kQuiet) {
        m_oracle.checkSettled();
        fireManager({What::read});
        m_phase = Phase::probing;
        m_by = m_machine.now() + kServed;
    } else if (m_machine.now() > m_by) {
        m_oracle.fail("the agent does not settle");
    }
}

/// A set is made by then, whatever has happened before, and then some of any kind.
void Player::probe() {
    constexpr std::size_t kProbes = 4;
    if (!m_front->isIdle())
        return;
    const bool made = m_front->lastAnswer() == agent::net::ErrorStatus::noError;
    if (!m_probes.empty())
        m_probes.back().error = m_front->lastAnswer().value_or(agent::net::ErrorStatus::noError);
    if (m_probes.size() == kProbes) {
        m_oracle.checkSettled();
        return end();
    }
    Request request;
    request.number = ++m_number;
    if (!m_probes.empty() || (m_probed && made)) {
        std::mt19937 random(static_cast<unsigned>(m_history.seed + m_probes.size()));
        m_probes.push_back({m_machine.database, assignment(random, m_history.spread), {}});
        request.values.push_back(m_probes.back().assignment);
        return m_front->ask(request);
    }
    if (m_machine.now() > m_by)
        return m_oracle.fail("no set is made any more");
    request.values.push_back(
        {{&objectCalled("cvCircuitVci"), 4}, {100 + static_cast<long>(m_number), ""}});
    m_front->ask(request);
    m_probed = true;
}

void Player::end() {
    m_phase = Phase::over;
    m_machine.kill();
}

} // namespace simulation
