// Tests the host's implementation of the device framework.

#include <sys/syscall.h>
#include <sys/timex.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <sstream>
#include <thread>

#include <gmock/gmock.h>

#include "framework/clock.h"
#include "framework/log.h"

namespace {

std::time_t civil_time = 0;
int clock_status = 0;

TEST(HostClock, CodesEveryHourOfTheDay) {
    for (civil_time = 951782399; civil_time < 951900000; civil_time += 3599) {
        std::array<char, 16> digits{};
        std::strftime(digits.data(), digits.size(), "%H%M%S", std::gmtime(&civil_time));
        EXPECT_EQ(GetUTCTime(), (40587 + civil_time / 86400) << 24 |
                                    std::stol(digits.data(), nullptr, 16));
    }
    civil_time = -86400;
    EXPECT_LT(GetUTCTime(), 1);
}

TEST(HostClock, IsSetOnceItIsSynchronisedOrShowsTheYearOfTheBuild) {
    for (const auto& [status, time, expected] :
         {std::tuple{STA_UNSYNC, std::time_t{1700000000}, -1},
          {0, 0, 0},
          {STA_UNSYNC, std::time(nullptr), 0}}) {
        clock_status = status;
        civil_time = time;
        EXPECT_EQ(IsSystemTimeSet(), expected) << civil_time;
    }
}

// Several threads log to the console at once: no two lines may mix.
TEST(HostLog, WritesWholeLinesUpToTheLevel) {
    civil_time = 1800000000;
    log_setup(kLogInformation, kLogToConsole);
    testing::internal::CaptureStderr();
    std::array<std::thread, 4> threads;
    for (std::thread& thread : threads) {
        thread = std::thread([] {
            pthread_setname_np(pthread_self(), "Writer");
            for (int i = 0; i < 500; ++i) {
                log_function(kLogInformation, 0, "%s\x1b\n%04x",
                             (std::string(300, 'x') + "Möwe").c_str(), 0x8001);
                log_function(kLogDebug, 0, "too much");
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    std::istringstream log(testing::internal::GetCapturedStderr());
    const char* const expected =
        "20[0-9-]{8} [0-9:]{8}\\.[0-9]{3} INFORMATION Writer: x+Möwe  8001";
    int lines = 0;
    for (std::string line; std::getline(log, line); ++lines) {
        ASSERT_THAT(line, testing::MatchesRegex(expected));
        ASSERT_EQ(std::count(line.begin(), line.end(), 'x'), 300);
    }
    EXPECT_EQ(lines, 2000);
}

}  // namespace

// The program's civil clock, as the tests set it.
extern "C" int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    if (clock == CLOCK_REALTIME) time->tv_sec = civil_time;
    return result;
}

extern "C" int adjtimex(timex* state) noexcept {
    state->status = clock_status;
    return TIME_OK;
}
