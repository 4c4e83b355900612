#include "tests/Platform.h"

#include "frame/Wrapper.h"

#include <locale>

namespace {

using WrapperTest = PlatformTest;

TEST_F(WrapperTest, Texts) {
    Wrapper wrapper;
    EXPECT_EQ((Lines{}), wrapper.Tokenize("|||", "|"));
    EXPECT_EQ((Lines{"a", "b"}), wrapper.Tokenize("|a||b|", "|"));
    EXPECT_EQ((Lines{"a", "b", "c"}), wrapper.Tokenize("a, b;c", ",; "));
    EXPECT_EQ("AZ@[`{1", wrapper.ToUpperCase("az@[`{1"));
    EXPECT_EQ("az@[`{1", wrapper.ToLowerCase("AZ@[`{1"));
    Lines two = {"a", "b"};
    EXPECT_EQ("a,b,", wrapper.VectorToString(two));
    EXPECT_LOG();
    wrapper.m_bVerbose = true;
    wrapper.ToLowerCase("A");
    wrapper.ToUpperCase("Atm");
    EXPECT_LOG("tracedo:Wrapper: ToUpperCase: s2: ATM");
    wrapper.m_bVerbose = false;
}

TEST_F(WrapperTest, NumbersAreTheSameUnderAnyLocale) {
    struct Grouping : std::numpunct<char> {
        char do_thousands_sep() const override { return '.'; }
        std::string do_grouping() const override { return "\3"; }
    };
    const std::locale before = std::locale::global(std::locale(std::locale(), new Grouping));
    const speedInfo_s rates = {2048, 0, 4294967295U, 640};
    EXPECT_EQ("SpeedInfo[dslActualDataRateDown=2048,dslActualDataRateUp=0,"
              "dslAttainableDataRateDown=4294967295,dslAttainableDataRateUp=640]",
              Wrapper().SpeedInfoToString(&rates));
    ASSERT_EQ(1, initialize(0));
    platform.circuits = "VPI\n1234\n";
    platform.script({"1\n", "1\n", "1|1|1234\n"});
    EXPECT_EQ("VC1234=2", taken(getLayer2IfStatus()));
    const std::string range = "1234 is out of range for vpiList, max idx is 19";
    EXPECT_LOG("error:AtmFile: initialize: VPI " + range,
               "warning:AtmFile: contains: a_vpiVal " + range);
    std::locale::global(before);
}

TEST_F(WrapperTest, OneInstanceUntilDestroyed) {
    Wrapper::Destroy();
    Wrapper* const instance = Wrapper::getInstance();
    EXPECT_TRUE(instance == Wrapper::getInstance() && !instance->m_bVerbose);
    EXPECT_TRUE(instance->initialize(true) && instance->m_bVerbose && instance->m_bInitalized);
    Wrapper::Destroy();
    Wrapper::Destroy();
    EXPECT_EQ(nullptr, Wrapper::m_pInstance);
    EXPECT_LOG("tracedo:Wrapper: ~Wrapper: Destruction");
}

} // namespace
