// The host's implementation of the device framework.

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <regex>
#include <thread>

#include "framework/clock.h"
#include "framework/log.h"
#include "framework/network.h"
#include "framework/watchdog.h"

namespace {

TEST(HostClock, CodesTheTimeAsAReceiverDecodesIt) {
    EXPECT_EQ(IsSystemTimeSet(), 0);
    const auto now = [] {
        timespec time{};  // std::time is behind by up to a tick
        clock_gettime(CLOCK_REALTIME, &time);
        return time.tv_sec;
    };
    const std::time_t before = now();
    const std::int64_t utc = GetUTCTime();
    const std::time_t after = now();
    const auto bcd = [&](int shift) {
        const auto digits = utc >> shift & 0xFF;
        return digits / 16 * 10 + digits % 16;
    };
    const std::time_t decoded =
        ((utc >> 24) - 40587) * 86400 + bcd(16) * 3600 + bcd(8) * 60 + bcd(0);
    EXPECT_GE(decoded, before);
    EXPECT_LE(decoded, after);
}

TEST(HostNetwork, KnowsTheFpgasAddress) {
    std::string address = "unset";
    orvel::network::NICIP_VLAN_Int_getFPGA_IPAddress(address);
    EXPECT_EQ(address, KESTAN_FPGA_ADDRESS);
}

// What several threads log at once to the console, line by line.
TEST(HostLog, WritesWholeLinesUpToTheLevel) {
    std::array<char, 32> path{"/tmp/kestan-log-XXXXXX"};
    const int file = mkstemp(path.data());
    const int standard_error = dup(STDERR_FILENO);
    dup2(file, STDERR_FILENO);
    log_setup(kLogInformation, kLogToConsole);
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
    dup2(standard_error, STDERR_FILENO);
    close(standard_error);
    close(file);

    std::ifstream log(path.data());
    const std::regex expected(
        "20\\d\\d-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} INFORMATION Writer: x{300} "
        "8001");
    int lines = 0;
    for (std::string line; std::getline(log, line); ++lines) {
        ASSERT_TRUE(std::regex_match(line, expected)) << line;
    }
    EXPECT_EQ(lines, 2000);
    unlink(path.data());
}

TEST(HostServiceManager, RegistersUnlessItsSettingCannotBeRead) {
    const std::pair<const char*, bool> settings[] = {{"20000000", true}, {"soon", false}};
    unsetenv("WATCHDOG_USEC");
    EXPECT_NE(watchdog_register_task(), 0);
    for (const auto& [setting, is_registered] : settings) {
        setenv("WATCHDOG_USEC", setting, 1);
        EXPECT_EQ(watchdog_register_task() != 0, is_registered) << setting;
    }
}

}  // namespace
