// The stand-in device by itself: its client on a real database, its DSL tool, its circuit list and
// the script that puts programs on it.

#include "tests/device/Device.h"

#include <sqlite3.h>

#include <chrono>
#include <fstream>
#include <utility>

namespace {

class ClientTest : public DeviceTest {
protected:
    Result client(const std::string& command) const {
        return shell("CORVANTA_DEVICE='" + m_device.string() + "' " QUORLET " '" + command + "'");
    }

    std::string ask(const std::string& command) const { return client(command).out; }
    std::string bytes() const { return shell("cat '" + database().string() + "'").out; }
};

TEST_F(ClientTest, AnswersEachCommandToTheByte) {
    const std::pair<const char*, const char*> cases[] = {
        {"  size    Atm   ;  ", "8\n"},
        {"selectrow Atm 7;", "8|1|8|35|atm8|1\n"},
        {"selectrow Atm 0 Vci Id ;", "32|1\n"},
        {"selectkey Atm Id 3 Enabled DeviceName Vpi Vci FcsPreserve  ;", "1|atm3|3|32|0\n"},
        {"selectkey Atm Vci 32 Id;", "1\n"}, // the first of several
        {"selectrow Atm 8  Id  ;", "Unknown row\n"},
        {"insertkey Bridge Name text:wanX Stp integer:0 ;", "1\n"},
        {"insertkey  Bridge  Name text:br3 Stp integer:0   ;", "2\n"},
        {"insertkey Bridge Stp integer:-1;", "3\n"},
        {"selectrow Bridge 2;", "3||-1\n"},
        {"deletekey    Bridge Id 2 ;", "Operation succeeded\n"},
        {"selectrow Bridge 1 Id;", "3\n"},        // counted, not numbered
        {"insertkey Bridge Name text:a;", "4\n"}, // one above the highest
        {"updatekey Atm Vci 32 FcsPreserve integer:1 Vci integer:33;", "Operation succeeded\n"},
        {"selectkey Atm Id 7 Vci FcsPreserve;", "33|1\n"}, // all that match
        {"updatekey Atm Id 9 Vci integer:1;", "Unknown row\n"},
        // A text runs to the next pair or the end.
        {"insertkey BridgeFilter BridgeId integer:1 FilterRule text:  VLANId integer:7 ;", "1\n"},
        {"selectrow BridgeFilter 0;", "1|1||7|0\n"},
        {"updatekey BridgeFilter Id 1 FilterRule text:a  PBit b text PBit  integer:2;",
         "Operation succeeded\n"},
        {"selectkey BridgeFilter Id 1 FilterRule PBit;", "a  PBit b text|2\n"},
        {"updatekey BridgeFilter Id 1 FilterRule text:x a:b integer:3;", "Operation succeeded\n"},
        {"selectkey BridgeFilter Id 1 FilterRule;", "x a:b integer:3\n"},
        {"updatekey VLAN Id 2 ParentIf text:x\" OR 1 -- %s|y ;", "Operation succeeded\n"},
        {"selectkey VLAN Id 2 ParentIf;", "x\" OR 1 -- %s|y\n"},
    };
    for (const auto& [command, answer] : cases)
        EXPECT_EQ(answer, ask(command)) << command;
}

TEST_F(ClientTest, RefusesWhatItDoesNotUnderstandAndChangesNothing) {
    const std::string before = bytes();
    // clang-format off
    const char* const commands[] = {
        "", ";", "size Atm", "size Atm; size Atm;", "size Atm Id;", "SIZE Atm;", "size atm;",
        "size sqlite_schema;", "size Atm\";", "selectrow Atm -1;", "selectrow Atm 0 Nope;",
        "selectkey Atm Id 3;", "selectkey Atm Nope 3 Vpi;", "deletekey Atm Id;",
        "deletekey Atm Id 1 2;", "updatekey Atm Id 1 Vpi 3;", "updatekey Atm Id 1 Vpi integer:3x;",
        "updatekey Atm Id 1 Vpi integer:2147483648;", "updatekey Atm Id 1 Vpi integer: 3;",
        "updatekey Atm Id 1 Vpi text:3;", "updatekey Atm Id 1 DeviceName integer:3;",
        "updatekey Atm Id 1 Vpi integer:3 Vpi integer:4;", "updatekey Atm Id 1 Id integer:9;",
        "updatekey VLAN Id 2 ParentIf text:a\tb;", "updatekey VLAN Id 2 ParentIf text:\x7f;",
        "updatekey BridgeFilter Id 1 FilterRule text: a text:b;", "insertkey Atm;",
    };
    // clang-format on
    for (const char* command : commands) {
        const Result result = client(command);
        EXPECT_EQ(2, result.status) << command;
        EXPECT_EQ("", result.out) << command;
        EXPECT_NE(0U, fs::file_size(error())) << command;
    }
    EXPECT_EQ(2, shell(QUORLET " 'size Atm;' more").status);
    EXPECT_EQ(before, bytes());
}

TEST_F(ClientTest, SaysAtOnceThatAnotherConnectionHoldsTheDatabase) {
    sqlite3* other = nullptr;
    ASSERT_EQ(SQLITE_OK, sqlite3_open(database().c_str(), &other));
    const auto run = [&](const char* sql) {
        EXPECT_EQ(SQLITE_OK, sqlite3_exec(other, sql, nullptr, nullptr, nullptr)) << sql;
    };
    const std::string locked = "Database locked\n";
    const std::pair<const char*, std::string> cases[] = {
        {"BEGIN; SELECT count(*) FROM Atm", "1\n"}, // read by someone else
        {"BEGIN IMMEDIATE", "1\n"},                 // about to be written
        {"BEGIN EXCLUSIVE", locked},
    };
    using Clock = std::chrono::steady_clock;
    for (const auto& [lock, read] : cases) {
        const auto begun = Clock::now();
        EXPECT_EQ("1\n", ask("selectkey Atm Id 1 Vpi;"));
        const auto usual = Clock::now() - begun;
        run(lock);
        const auto start = Clock::now();
        EXPECT_EQ(locked, ask("updatekey Atm Id 1 Vpi integer:9;")) << lock;
        EXPECT_EQ(read, ask("selectkey Atm Id 1 Vpi;")) << lock;
        EXPECT_LT(Clock::now() - start, 50 * usual + std::chrono::seconds(2)) << lock;
        run("COMMIT");
        EXPECT_EQ("1\n", ask("selectkey Atm Id 1 Vpi;")) << lock;
    }
    sqlite3_close(other);
}

TEST_F(ClientTest, ShowsItsCircuitListUnderTheKernelsPathAlone) {
    std::ofstream(m_device / "pvc") << "the device's\n";
    std::ofstream(m_folder / "other") << "its own\n";
    // fopen, open and openat, as these tools happen to use them
    for (const char* reader : {"sed p -n ", "cat ", "grep . ", "awk 1 "}) {
        EXPECT_EQ("the device's\n", on(std::string(reader) + "/proc/net/atm/pvc").out) << reader;
        EXPECT_EQ("its own\n", on(reader + (m_folder / "other").string()).out) << reader;
        for (const char* path : {"/proc/net/atm/pvcs", "net/atm/pvc"})
            EXPECT_EQ("", on(reader + std::string(path)).out) << reader << path;
    }
    const std::string made = (m_folder / "made").string(); // gets its mode
    EXPECT_EQ("666\n", on("sh -c 'umask 0; > " + made + "; stat -c %a " + made + "'").out);
}

TEST_F(ClientTest, KeepsDevicesInTheirFolders) {
    const fs::path first = m_device;
    m_device = m_folder / "with blank" / "second";
    EXPECT_EQ("Operation succeeded\n", on("quorlet 'updatekey Atm Id 1 Vci integer:9;'").out);
    EXPECT_EQ("9\n", ask("selectkey Atm Id 1 Vci;"));
    EXPECT_EQ(7, on("sh -c 'exit 7'").status);
    EXPECT_EQ(2, on("vellstat info now").status);
    m_device = first;
    EXPECT_EQ("32\n", ask("selectkey Atm Id 1 Vci;"));

    fs::create_directory(m_device = m_folder / "empty");
    EXPECT_EQ("8\n", on("quorlet 'size Atm;'").out);
    m_device = m_folder / "with blank"; // no device, and not empty
    EXPECT_EQ(1, on("true").status);
    EXPECT_EQ(4, std::distance(fs::directory_iterator(m_folder), {})); // nothing left behind
    EXPECT_EQ(1, client("size Atm;").status);
    EXPECT_EQ(2, shell(ON_DEVICE " /tmp").status);
    EXPECT_EQ(1, shell("CORVANTA_BUILD=/nowhere " ON_DEVICE " /tmp/x true").status);
}

} // namespace
