// How tables are read while others change them.

#include "RowsDatabase.h"

#include "agent/dev/DatabaseReader.h"

#include <corvanta.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <functional>
#include <string>

using namespace agent;
using agent::dev::readTable;

namespace {

/// The database that the library reads, through popen() below.
struct Device {
    Image database;
    std::function<void(int)> others; ///< what they do before the command with that number
    int commands = 0;
    std::string answer;
};
Device device;

TEST(ReadingTest, ComesToAnEndWhileOthersAddAndRemoveRows) {
    constexpr int kRows = 40;
    constexpr int kEvery = 6; ///< commands, far fewer than a table takes
    for (int when = 0; when < 2 * kEvery; ++when) {
        device = {};
        for (int id = 1; id <= kRows + 1; ++id) // others can remove the last one
            run(device.database, "insertkey Bridge Name text:br" + std::to_string(id));
        device.others = [&](int command) {
            if (command % (2 * kEvery) == when)
                run(device.database, "insertkey Bridge Name text:new");
            else if (command % kEvery == when % kEvery)
                run(device.database,
                    "deletekey Bridge Id " + device.database[Table::bridge].back().columns[0]);
            else if (command % kEvery == (when + 1) % kEvery)
                run(device.database, "insertkey Bridge Name text:more");
        };
        Image image;
        EXPECT_EQ(CORVANTA_OK, readTable(image, Table::bridge)) << when;
        for (int id = 1; id <= kRows; ++id)
            EXPECT_NE(image[Table::bridge].end(), image.find(Table::bridge, id)) << when;
    }
    device.others = [](int) { run(device.database, "insertkey Bridge Name text:more"); };
    Image image;
    EXPECT_EQ(CORVANTA_FAILED, readTable(image, Table::bridge));
    EXPECT_TRUE(image[Table::bridge].empty());
}

} // namespace

/// Takes the place of the system library's for the library.
extern "C" FILE* popen(const char* command, const char*) {
    if (device.others)
        device.others(device.commands++);
    device.answer = *Stage(device.database).answer(command);
    return fmemopen(device.answer.data(), device.answer.size(), "r");
}

extern "C" int pclose(FILE* stream) {
    return fclose(stream);
}
