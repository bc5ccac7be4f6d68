#include "support/Cli.h"

#include <gtest/gtest.h>

namespace {

// There is no command-line mode: "--headless" anywhere is refused at once,
// before any window system is needed.
TEST(AppStart, HeadlessIsRefusedWherever)
{
    for (const QStringList &arguments : {QStringList{"--headless"}, QStringList{"-psn_0", "--headless", "file.mov"}}) {
        const auto result = velum::test::runBuiltProgram("velum", arguments, 20000);
        EXPECT_EQ(result.exitCode, 2);
        EXPECT_EQ(result.standardError, "headless commands are not available in this build\n");
        EXPECT_TRUE(result.standardOutput.isEmpty());
    }
}

} // namespace
