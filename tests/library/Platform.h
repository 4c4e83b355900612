#pragma once

#include <corvanta.h>
#include <gtest/gtest.h>

#include <climits>
#include <ctime>
#include <deque>
#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

using Lines = std::vector<std::string>;

/// What a program prints or a file holds, and what goes wrong with it.
struct Answer {
    enum class Fault { none, start, read, close };

    Answer(const char* what = "") : text(what) {}
    Answer(std::string what, Fault how = Fault::none) : text(std::move(what)), fault(how) {}

    std::string text;
    Fault fault = Fault::none; ///< a read fails after the text; start also is a missing file
};

inline const Answer notStarted("", Answer::Fault::start);

/// The platform under the library: this program defines popen(), fopen(), sleep(), syslog() and
/// their like, so that the library's calls end here.
struct Platform {
    std::function<Answer(const std::string& command)> client; ///< what each program run answers
    Answer circuits = notStarted;                             ///< /proc/net/atm/pvc
    std::time_t clock = 0;                                    ///< what time() gives

    Lines commands;
    Lines log;                ///< "level:tag: text"
    std::set<int> logNumbers; ///< the source lines that it came from
    std::vector<unsigned> sleeps;
    std::string openedLog; ///< "ident option facility"
    int openStreams = 0;
    std::deque<Answer> answers; ///< those of script() that were not asked yet

    /// Answers the program runs to come in this order; a run too many is a failure. Those so far
    /// are forgotten.
    void script(std::deque<Answer> inOrder);
    Lines takeLog();
};

extern Platform platform;

/// The log lines, or the commands, since the last look.
#define EXPECT_LOG(...) EXPECT_EQ((Lines{__VA_ARGS__}), platform.takeLog())
#define EXPECT_RUN(...) EXPECT_EQ((Lines{__VA_ARGS__}), std::exchange(platform.commands, {}))

/// A test on a fresh platform, at whose end all streams are closed and all answers were asked.
class PlatformTest : public testing::Test {
protected:
    PlatformTest();
    ~PlatformTest() override;
};

/// What the library allocates in a counted() call, and the plan which of it fails.
struct Allocations {
    static inline long failFrom = 0, failUntil = 0, made = 0;
    static inline bool counting = false;
};

/// The result of a call of the library's, its allocations counted.
template <typename Call>
auto counted(Call call) {
    Allocations::made = 0;
    Allocations::counting = true;
    const auto result = call();
    Allocations::counting = false;
    return result;
}

/// Calls time and again, each time with one more allocation failing, or all from that one on.
template <typename Call>
void withEachAllocationFailing(Call call) {
    bool reached = true;
    for (long from = 0; reached; ++from)
        for (const long until : {from + 1, LONG_MAX}) {
            SCOPED_TRACE(testing::Message() << "allocations " << from << " to " << until);
            Allocations::failFrom = from;
            Allocations::failUntil = until;
            call();
            reached = Allocations::made > from;
            Allocations::failFrom = Allocations::failUntil = 0;
            ASSERT_EQ(0, platform.openStreams);
        }
}

/// Takes over a text of the library's; "(null)" for none.
std::string taken(char* text);

/// A client command with blanks around.
inline std::string quorlet(const std::string& text) {
    return " quorlet \"" + text + "\" ";
}
