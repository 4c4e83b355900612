// The engine's identity on the simulated disk: a kill, a power cut or a failure at each of its
// calls. Whatever happens, the engine keeps its ID and its users, and serves no number twice.

#include "Machine.h"

#include "agent/net/Identity.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <optional>
#include <random>
#include <sstream>
#include <string>
#include <vector>

using namespace agent;
using agent::net::Identity;
using simulation::Disk;
using simulation::Machine;

namespace {

/// What the toolkit makes of its lines, and which it tells.
struct Engine {
    explicit Engine(const std::string& text) {
        std::istringstream file(text);
        std::map<std::string, std::string> passphrases;
        for (std::string line; std::getline(file, line);) {
            std::istringstream words(line);
            std::string what, name, key;
            words >> what >> name >> key;
            if (what == "oldEngineID")
                id = name;
            else if (what == "engineBoots")
                boots = std::stoi(name) + 1;
            else if (what == "usmUser")
                users[name] = key;
            else if (what == "createUser")
                passphrases[name] = key;
        }
        static int made = 0;
        if (id.empty()) {
            id = "0x" + std::to_string(++made);
            boots = 1;
        }
        for (const auto& [name, passphrase] : passphrases)
            users[name] = passphrase + id;
    }

    std::string lines() const {
        std::string text;
        for (const auto& [name, key] : users)
            text.append("usmUser ").append(name).append(" ").append(key).append("\n");
        return text + "engineBoots " + std::to_string(boots) + "\noldEngineID " + id + '\n';
    }

    std::string id;
    int boots = 0;
    std::map<std::string, std::string> users;
};

/// A state folder, and what managers know of the engine.
class Site {
public:
    Site() {
        machine.onNetwork = [] {};
        machine.onStep = [this] {
            if (++calls == faultAt)
                fault(*this);
            else if (calls == faultAt + 1 && !lasts)
                machine.disk.broken = false;
        };
    }

    /// A start of the agent, which may come to serve.
    void start() {
        calls = 0;
        live();
        faultAt = -1;
        if (machine.killed() && losesPower)
            machine.disk.cutPower(random);
        machine.restart();
        machine.disk.full = machine.disk.broken = false;
    }

    Machine machine{false};
    std::optional<Engine> known;
    int served = 0;
    int calls = 0;    ///< of this start on the disk
    int faultAt = -1; ///< the call before which it happens
    std::function<void(Site&)> fault;
    bool losesPower = false; ///< a start that is killed
    bool lasts = false;      ///< the fault, for longer than a call
    std::mt19937 random;

private:
    void live() {
        Identity identity(machine.network());
        const auto lines = identity.load();
        if (!lines || machine.killed())
            return;
        Engine engine(*lines);
        if (!identity.store(engine.lines()) || machine.killed())
            return;
        serve(engine);
        engine.users["visitor"] = "of start " + std::to_string(engine.boots);
        if (identity.store(engine.lines()))
            known = engine; // a manager has been told that it is made
    }

    void serve(const Engine& engine) {
        ++served;
        EXPECT_EQ(1U, engine.users.count("operator"));
        if (known) {
            EXPECT_EQ(known->id, engine.id);
            EXPECT_LT(known->boots, engine.boots);
            for (const auto& [name, key] : known->users) {
                const auto user = engine.users.find(name);
                ASSERT_NE(engine.users.end(), user) << name;
                EXPECT_TRUE(user->second == key || name == "visitor") << name; // whose key changes
            }
        }
        known = engine;
    }
};

const struct {
    const char* name;
    void (*happens)(Site&);
    bool losesPower;
    bool lasts;
    unsigned times; ///< each with other things left of what was not flushed
} kFaults[] = {
    {"killed", [](Site& site) { site.machine.kill(); }, false, false, 1},
    {"power cut", [](Site& site) { site.machine.kill(); }, true, false, 6},
    {"disk full", [](Site& site) { site.machine.disk.full = true; }, false, true, 1},
    {"disk broken", [](Site& site) { site.machine.disk.broken = true; }, false, true, 1},
    {"one call fails", [](Site& site) { site.machine.disk.broken = true; }, false, false, 1},
};

using Files = std::map<std::string, std::string>;

const std::string kStored = "usmUser operator key\nengineBoots 7\noldEngineID 0xe1\n";
const std::string kOld = "#\n# persistent data file\n" + kStored;
const std::string kCut = "usmUser operator key\nengineBoots 8\ncreateUser other secret\n";

/// What a start may find, and what managers know of the engine then, as the toolkit would read it:
/// 1.0 served with the next number before it stored it.
const struct {
    const char* name;
    Files files;
    std::string known;
} kHistories[] = {
    {"the first start", {{"corvantad.conf", "createUser operator secret"}}, ""},
    {"1.1.1",
     {{"corvantad.conf", kOld}, {"new/corvantad.conf", "#\n# pers"}, {"new", ""}},
     kStored},
    {"1.0 while it wrote", {{"corvantad.conf", "#\n"}, {"corvantad.0.conf", kOld}}, kStored},
    {"1.0 before it wrote", {{"corvantad.0.conf", kOld}}, kStored},
    {"1.0 at the end of writing",
     {{"corvantad.conf", kOld.substr(0, kOld.size() - 2)}, {"corvantad.0.conf", kOld}},
     kStored},
    {"1.0, twice, and a line from the operator",
     {{"corvantad.conf", kCut}, {"corvantad.0.conf", "#\n"}, {"corvantad.1.conf", kOld}},
     kCut + "oldEngineID 0xe1\n"},
    {"1.0 once it had written",
     {{"corvantad.conf", kOld}, {"corvantad.0.conf", "usmUser operator old\n" + kStored}},
     kStored},
};

TEST(IdentityTest, OutlivesAFaultAtEachCall) {
    int points = 0;
    for (const auto& history : kHistories)
        for (const int starts : {0, 1}) // before that with the fault
            for (const auto& fault : kFaults) {
                bool last = false;
                for (int call = 1; !last; ++call)
                    for (unsigned time = 0; time < fault.times; ++time, ++points) {
                        SCOPED_TRACE(std::string(history.name) + ", call " + std::to_string(call) +
                                     ": " + fault.name + ' ' + std::to_string(time));
                        Site site;
                        for (const auto& [name, text] : history.files)
                            ASSERT_TRUE(site.machine.network().store(name, text));
                        if (!history.known.empty())
                            site.known.emplace(history.known);
                        for (int i = 0; i < starts; ++i)
                            site.start();
                        site.random.seed(time);
                        site.faultAt = call;
                        site.fault = fault.happens;
                        site.losesPower = fault.losesPower;
                        site.lasts = fault.lasts;
                        site.start();
                        last = site.calls < call;
                        site.served = 0;
                        site.start();
                        site.start();
                        EXPECT_EQ(2, site.served);
                        EXPECT_EQ(1U, site.machine.disk.size());
                        ASSERT_FALSE(testing::Test::HasFailure());
                    }
            }
    std::cout << points << " points\n";
    EXPECT_LT(2000, points);
}

TEST(IdentityTest, ConfiguresNothing) {
    Site site;
    ASSERT_TRUE(site.machine.network().store("corvantad.conf", "[snmp] logOption f log\nperl 1;\n" +
                                                                   kStored + " rwcommunity a\n"));
    EXPECT_EQ("usmUser operator key\nengineBoots 8\noldEngineID 0xe1\n",
              Identity(site.machine.network()).load());
}

TEST(IdentityTest, IsNotReplacedByHalfOfIt) {
    Site site;
    ASSERT_TRUE(site.machine.network().store("corvantad.conf", kStored));
    for (const char* half : {"", "engineBoots 8\n", "oldEngineID 0xe1\n"})
        EXPECT_FALSE(Identity(site.machine.network()).store(half)) << half;
    std::optional<std::string> text;
    EXPECT_TRUE(site.machine.network().load("corvantad.conf", text));
    EXPECT_EQ(kStored, text);
}

} // namespace
