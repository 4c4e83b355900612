// A command line that corvantad cannot follow: it says what is wrong, and does nothing.

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include <sys/wait.h>

namespace {

TEST(OptionsTest, MistakesAreNamed) {
    const std::string seconds = " is no number of seconds from 1 to 604800";
    const std::pair<std::string, std::string> cases[] = {
        {"--nowhere", "'--nowhere'"},
        {"-y", "'y'"},
        {"--interval", "'--interval'"},
        {"again", "unexpected argument 'again'"},
        {"--interval 0", "'0'" + seconds},
        {"--set-deadline 5s", "'5s'" + seconds},
        {"--max-age 604801", "'604801'" + seconds},
        {"--interval 60 --max-age 60", "--max-age must be longer than --interval"},
        {"--agentx /nowhere/a --master unix:/nowhere/b", "--agentx and --master exclude"},
        {"--config /nowhere/conf", "cannot read /nowhere/conf"}};
    for (const auto& [options, said] : cases) {
        SCOPED_TRACE(options);
        // In the foreground and not for long, if it goes on.
        FILE* const agent = popen(("timeout 5 " CORVANTAD " -f " + options + " 2>&1").c_str(), "r");
        std::string all;
        for (int c; (c = fgetc(agent)) != EOF;)
            all += static_cast<char>(c);
        EXPECT_EQ(2, WEXITSTATUS(pclose(agent)));
        EXPECT_NE(std::string::npos, all.find(said)) << all;
        EXPECT_NE(std::string::npos, all.find("\nTry 'corvantad --help'.\n")) << all;
    }
}

} // namespace
