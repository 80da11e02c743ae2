// The host's implementation of the device framework.

#include <array>
#include <cstdlib>
#include <ctime>
#include <regex>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "framework/clock.h"
#include "framework/log.h"

namespace {

TEST(HostClock, CodesTheTimeAsAReceiverDecodesIt) {
    EXPECT_EQ(IsSystemTimeSet(), 0);
    const std::int64_t utc = GetUTCTime();
    const auto bcd = [&](int shift) {
        const auto digits = utc >> shift & 0xFF;
        return digits / 16 * 10 + digits % 16;
    };
    const auto decoded =
        ((utc >> 24) - 40587) * 86400 + bcd(16) * 3600 + bcd(8) * 60 + bcd(0);
    EXPECT_NEAR(static_cast<double>(decoded), static_cast<double>(std::time(nullptr)), 1);
}

// What several threads log at once to the console, line by line.
TEST(HostLog, WritesWholeLinesUpToTheLevel) {
    log_setup(kLogInformation, kLogToConsole);
    testing::internal::CaptureStderr();
    std::array<std::thread, 4> threads;
    for (std::thread& thread : threads) {
        thread = std::thread([] {
            pthread_setname_np(pthread_self(), "Writer");
            for (int i = 0; i < 500; ++i) {
                log_function(kLogInformation, 0, "%s\n%04x",
                             std::string(300, 'x').c_str(), 0x8001);
                log_function(kLogDebug, 0, "too much");
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    std::istringstream log(testing::internal::GetCapturedStderr());
    const std::regex expected(
        R"(20\d\d-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} INFORMATION Writer: x{300} 8001)");
    int lines = 0;
    for (std::string line; std::getline(log, line); ++lines) {
        ASSERT_TRUE(std::regex_match(line, expected)) << line;
    }
    EXPECT_EQ(lines, 2000);
}

}  // namespace
