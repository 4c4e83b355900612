// The engine's identity on a disk in memory: a kill, a power cut or a failure at each of its calls.
// Whatever happens, the engine keeps its ID and its users, and serves no number twice.

#include "World.h"

#include "agent/net/Identity.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <map>
#include <sstream>
#include <string>

using namespace agent;
using agent::net::Identity;

namespace {

struct Killed {};

/// What happens at one call.
enum class Fault { none, killedBefore, killedAfter, failsBefore, failsAfter };

class Disk : public World {
public:
    int calls = 0; ///< of the process
    int faultAt = 0;
    Fault fault = Fault::none;

    bool load(const std::string& name, std::optional<std::string>& content) override {
        return isDone([&] { World::load(name, content); });
    }
    bool store(const std::string& name, const std::string& content) override {
        return isDone([&] { World::store(name, content); });
    }
    bool remove(const std::string& name) override {
        return isDone([&] { World::remove(name); });
    }

private:
    template <class Do>
    bool isDone(Do action) {
        const Fault now = ++calls == faultAt ? fault : Fault::none;
        if (now == Fault::killedBefore)
            throw Killed();
        if (now != Fault::failsBefore)
            action();
        if (now == Fault::killedAfter)
            throw Killed();
        errno = now == Fault::none ? 0 : EIO;
        return now == Fault::none;
    }
};

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

class IdentityTest : public testing::Test {
protected:
    /// A start of the agent, which may come to serve.
    void start() {
        disk.calls = 0;
        try {
            Identity identity(disk);
            const auto lines = identity.load();
            if (!lines)
                return;
            Engine engine(*lines);
            if (!identity.store(engine.lines()))
                return;
            serves(engine);
            engine.users["visitor"] = "of start " + std::to_string(engine.boots);
            if (identity.store(engine.lines()))
                known = engine; // a manager has been told that it is made
        } catch (const Killed&) {
        }
    }

    void serves(const Engine& engine) {
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

    Disk disk;
    std::optional<Engine> known; ///< to managers
    int served = 0;
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

TEST_F(IdentityTest, OutlivesAFaultAtEachCall) {
    int points = 0;
    for (const auto& history : kHistories)
        for (const int starts : {0, 1}) // before that with the fault
            for (const Fault fault :
                 {Fault::killedBefore, Fault::killedAfter, Fault::failsBefore, Fault::failsAfter})
                for (int call = 1;; ++call, ++points) {
                    SCOPED_TRACE(std::string(history.name) + ", call " + std::to_string(call) +
                                 ", fault " + std::to_string(static_cast<int>(fault)));
                    disk.files = history.files;
                    known.reset();
                    served = 0;
                    if (!history.known.empty())
                        known.emplace(history.known);
                    for (int i = 0; i < starts; ++i)
                        start();
                    disk.faultAt = call;
                    disk.fault = fault;
                    start();
                    const bool last = disk.calls < call;
                    disk.faultAt = 0;
                    served = 0;
                    start();
                    start();
                    EXPECT_EQ(2, served);
                    EXPECT_EQ(1U, disk.files.size());
                    ASSERT_FALSE(HasFailure());
                    if (last)
                        break;
                }
    RecordProperty("points", points);
    EXPECT_LT(500, points);
}

TEST_F(IdentityTest, IsNotReplacedByHalfOfIt) {
    disk.files["corvantad.conf"] = kStored;
    for (const char* half : {"", "engineBoots 8\n", "oldEngineID 0xe1\n"})
        EXPECT_FALSE(Identity(disk).store(half)) << half;
    EXPECT_EQ(kStored, disk.files["corvantad.conf"]);
}

} // namespace
