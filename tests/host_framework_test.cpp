// The host's implementation of the device framework.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include "framework/clock.h"
#include "framework/log.h"
#include "framework/network.h"
#include "framework/service_state.h"
#include "framework/watchdog.h"

namespace {

using testing::ElementsAre;

TEST(HostClock, CodesTheTimeAsAReceiverDecodesIt) {
    EXPECT_EQ(IsSystemTimeSet(), 0);
    const std::time_t before = std::time(nullptr);
    const std::int64_t utc = GetUTCTime();
    const std::time_t after = std::time(nullptr);
    const auto bcd = [&](int shift) {
        const auto digits = utc >> shift & 0xFF;
        return digits / 16 * 10 + digits % 16;
    };
    // The day by the formulae of ETSI EN 300 468, annex C, the other way round.
    const auto mjd = static_cast<double>(utc >> 24);
    const int y = static_cast<int>((mjd - 15078.2) / 365.25);
    const int m =
        static_cast<int>((mjd - 14956.1 - static_cast<int>(y * 365.25)) / 30.6001);
    std::tm tm{};
    tm.tm_mday = static_cast<int>(mjd) - 14956 - static_cast<int>(y * 365.25) -
                 static_cast<int>(m * 30.6001);
    const int k = m == 14 || m == 15 ? 1 : 0;
    tm.tm_year = y + k;
    tm.tm_mon = m - 1 - k * 12 - 1;
    tm.tm_hour = static_cast<int>(bcd(16));
    tm.tm_min = static_cast<int>(bcd(8));
    tm.tm_sec = static_cast<int>(bcd(0));
    const std::time_t decoded = timegm(&tm);
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

TEST(HostServiceManager, IsToldOfStartAndLifeWhereThereIsOne) {
    unsetenv("NOTIFY_SOCKET");
    unsetenv("WATCHDOG_USEC");
    SignalServiceIsStarted(0);
    EXPECT_NE(watchdog_register_task(), 0);
    watchdog_kick(1);

    const int manager = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string name = "kestan-test-" + std::to_string(getpid());  // abstract
    name.copy(address.sun_path + 1, name.size());
    const auto size =
        static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    ASSERT_EQ(bind(manager, reinterpret_cast<sockaddr*>(&address), size), 0);
    setenv("NOTIFY_SOCKET", ("@" + name).c_str(), 1);
    SignalServiceIsStarted(0);
    watchdog_kick(1);
    std::vector<std::string> told;
    for (std::array<char, 256> text{}; told.size() < 2;) {
        const ssize_t length = recv(manager, text.data(), text.size(), MSG_DONTWAIT);
        ASSERT_GT(length, 0);
        told.emplace_back(text.data(), static_cast<std::size_t>(length));
    }
    EXPECT_THAT(told, ElementsAre("READY=1", "WATCHDOG=1"));
    close(manager);

    setenv("WATCHDOG_USEC", "20000000", 1);
    EXPECT_NE(watchdog_register_task(), 0);
    setenv("WATCHDOG_USEC", "soon", 1);
    EXPECT_EQ(watchdog_register_task(), 0);
}

}  // namespace
