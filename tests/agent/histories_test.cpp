#include "History.h"

#include <gtest/gtest.h>

#include <cstdlib>

TEST(HistoriesTest, LeaveToOthersWhatIsTheirs) {
    const char* const wanted = std::getenv("HISTORIES");
    const char* const first = std::getenv("FIRST");
    const unsigned seed = first == nullptr ? 0 : static_cast<unsigned>(std::atoi(first));
    const int count = wanted == nullptr ? 3000 : std::atoi(wanted);
    for (unsigned i = 0; i < static_cast<unsigned>(count) && !HasFailure(); ++i) {
        SCOPED_TRACE("history " + std::to_string(seed + i));
        History(seed + i).play();
    }
}
