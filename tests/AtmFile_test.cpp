#include "tests/Platform.h"

#include "readers/AtmFile.h"

#include <algorithm>

using kavo::snmp::AtmFile;

namespace {

using AtmFileTest = PlatformTest;

std::string openVpis(AtmFile& file) {
    std::string open;
    for (int vpi = 0; vpi < AtmFile::vpiCount; ++vpi)
        if (file.contains(vpi))
            open += std::to_string(vpi) + " ";
    return open;
}

TEST_F(AtmFileTest, FindsTheVpisOfAnyFile) {
    const std::string path = " file /proc/net/atm/pvc using defaults";
    const std::string unread = "warning:AtmFile: initialize: could not read" + path;
    const std::string unclosed = "warning:AtmFile: initialize: could not close" + path;
    const std::string to1020 = "VCI VPI\n" + std::string(1011, 'x') + "\n"; // of 1023 that are read
    const std::string noNumber = "warning:AtmFile: initialize: no VPI in row 2: ";
    const std::string vpi = "error:AtmFile: initialize: VPI ",
                      outOfRange = " is out of range for vpiList, max idx is 19";
    const struct {
        const char* name;
        Answer file;
        std::string open;
        Lines log = {};
    } cases[] = {{"two circuits", "Itf VPI VCI\n  0   0 32 UBR\n  0   8 35\n  0   8 36\n", "0 8 "},
                 {"empty", "", "", {unread}},
                 {"newlines only", "\n\n\n", ""},
                 {"runs of newlines", "\n\nItf VPI\n\n\n0 4\n\n0 5", "4 5 "},
                 {"a later header is none", "0 1\nItf VPI\n0 8\n", ""},
                 {"no VPI in the header", "Itf vpi V PI\n0 8 8\n", ""},
                 {"the first field with VPI", "x(VPI)y VPI\n3 4\n", "3 "},
                 {"only blanks separate", "Itf\tVPI VCI\n2\t3 4\n", "2 "},
                 {"limits",
                  "VPI\n19\n20\n-1\n0",
                  "0 19 ",
                  {vpi + "20" + outOfRange, vpi + "-1" + outOfRange}},
                 {"numbers that fit no int",
                  "VPI\n99999999999\n-2147483649x\n",
                  "",
                  {vpi + "2147483647" + outOfRange, vpi + "-2147483648" + outOfRange}},
                 {"decimal, as a stream reads it", "VPI\n+7\n010\n0x9\n6y\n\t9", "0 6 7 9 10 "},
                 {"no number",
                  "VPI\n-\n+-5\n7",
                  "7 ",
                  {noNumber + "-", "warning:AtmFile: initialize: no VPI in row 3: +-5"}},
                 {"no number but text", "Itf VPI\n0 (7) 2\n0 3", "3 ", {noNumber + "(7)"}},
                 {"short lines", "Itf VPI\n8\n \n1 9\n", "9 "},
                 {"the last bytes that are read", to1020 + "0 8\n0 9\n", "8 "},
                 {"a number cut by the limit", to1020 + "0 18\n", "1 "},
                 {"closing fails", Answer("VPI\n5\n", Answer::Fault::close), "5 ", {unclosed}},
                 {"nothing but a read error", Answer("", Answer::Fault::read), "", {unread}},
                 {"a late read error", Answer("VPI\n5\n", Answer::Fault::read), "5 "}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        AtmFile file;
        platform.circuits = "VPI\n17\n"; // an older list must go
        file.initialize(false);
        platform.circuits = c.file;
        file.initialize(false);
        EXPECT_TRUE(file.m_bInitalized);
        EXPECT_EQ(c.log, platform.takeLog());
        EXPECT_EQ(c.open, openVpis(file));
    }
}

TEST_F(AtmFileTest, LogLinesOfAnyLengthAreWhole) {
    AtmFile file;
    for (std::size_t size = 400; size <= 1030; ++size) { // the first 1023 bytes are read
        platform.circuits = std::string(size, 'x');
        file.initialize(true);
        EXPECT_EQ("tracedo:AtmFile: initialize: file read in:\n" +
                      std::string(std::min<std::size_t>(size, 1023), 'x'),
                  platform.takeLog().at(1));
    }
    file.m_bVerbose = false;
}

TEST_F(AtmFileTest, AMissingFileLeavesTheList) {
    {
        AtmFile file;
        file.initialize(false);
        EXPECT_FALSE(file.m_bInitalized);
        platform.circuits = "VPI\n8\n";
        file.initialize(false);
        platform.circuits = notStarted;
        file.initialize(false);
        EXPECT_TRUE(file.m_bInitalized);
        EXPECT_EQ("8 ", openVpis(file));
        EXPECT_EQ(1, file.size());
        file.initialize(true);
    }
    EXPECT_LOG("tracedo:AtmFile: initialize: trying to open file /proc/net/atm/pvc",
               "tracedo:AtmFile: initialize: unable to open file /proc/net/atm/pvc using defaults",
               "tracedo:AtmFile: ~AtmFile: destruction");
}

} // namespace
