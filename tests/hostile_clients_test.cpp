// Clients of the control service that do what no control process does. Whatever it is,
// the daemon keeps its time and its memory, and serves the next client.

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <functional>

#include "tests/support/recording.h"

using namespace std::chrono_literals;

namespace {

using Clock = std::chrono::steady_clock;

// With room for a busy machine. What blocks the pacing loop does so for as long as a
// client likes, which is a second and more in these tests.
constexpr double kLateS = 0.4;
constexpr long kGrowthKb = 1024;
constexpr long kPeakKb = 64 * 1024;
constexpr std::chrono::milliseconds kHold = 1s;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif

// A connection to the control port, without Thrift.
class RawClient {
public:
    RawClient() : fd_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        const int little = 4096;
        setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &little, sizeof little);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(9501);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(
            connect(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    }
    ~RawClient() { close(fd_); }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    // How many of the bytes the connection takes; 0 when it takes none for a while.
    std::size_t write(const std::string& bytes) const {
        pollfd room{fd_, POLLOUT, 0};
        if (poll(&room, 1, 300) == 0) return 0;
        const ssize_t written =
            send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        return written < 0 ? 0 : static_cast<std::size_t>(written);
    }

    [[nodiscard]] bool is_answered_within(std::chrono::milliseconds time) const {
        pollfd answer{fd_, POLLIN, 0};
        return poll(&answer, 1, static_cast<int>(time.count())) > 0;
    }

    // The connection ends with a reset.
    void break_off() const {
        const linger at_once{1, 0};
        setsockopt(fd_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    }

private:
    int fd_;
};

std::string frame_of(std::uint32_t length, const std::string& content) {
    const std::uint32_t header = htonl(length);
    return std::string(reinterpret_cast<const char*>(&header), sizeof header) + content;
}

const std::string kClearCat(
    "\x80\x01\x00\x01\x00\x00\x00\x08"
    "ClearCAT\x00\x00\x00\x01\x00",
    21);

class HostileClients : public testing::Test {
protected:
    HostileClients() { Recording::push_pat(); }

    // Does `attack` twice, since what the daemon allocates for the first time it keeps.
    void survives(const std::function<void()>& attack) {
        attack();
        expect_service();
        const long before_kb = memory_kb("VmRSS:");
        Recording recording(daemon_);
        attack();
        expect_service();
        const auto packets = recording.stop();
        ASSERT_GT(packets.size(), 50u);
        double late_s = 0;
        for (const auto& packet : packets) late_s = std::max(late_s, packet.late_s);
        const long growth_kb = memory_kb("VmRSS:") - before_kb;
        std::printf("%zu packets, late by %.1f ms at most; %ld KB more\n", packets.size(),
                    late_s * 1000, growth_kb);
        EXPECT_LT(late_s, kLateS);
        if (kSanitized) return;  // keeps what has been freed
        EXPECT_LT(growth_kb, kGrowthKb);
        EXPECT_LT(memory_kb("VmHWM:"), kPeakKb);
    }

    static void expect_service() {
        const RawClient next;
        next.write(frame_of(21, kClearCat));
        EXPECT_TRUE(next.is_answered_within(2s));
    }

    [[nodiscard]] long memory_kb(const std::string& what) {
        std::ifstream status("/proc/" + std::to_string(daemon_.program().pid()) +
                             "/status");
        for (std::string name; status >> name;) {
            long kb = 0;
            if (name == what && status >> kb) return kb;
        }
        ADD_FAILURE() << "no " << what;
        return 0;
    }

    Daemon daemon_;
};

TEST_F(HostileClients, MayLieAboutLengths) {
    survives([] {
        // A name of 1.6 GB in a message of the old form, which begins with its length.
        const std::string huge_name("\x61\x72\x41\x6C", 4);
        for (const std::string& bytes :
             {frame_of(0, ""), frame_of(0, std::string(1000, '\0')),
              frame_of(0x7FFFFFFF, kClearCat), frame_of(0x80000000, kClearCat),
              frame_of(0xFFFFFFFF, kClearCat), frame_of(16384000, kClearCat),
              frame_of(22, kClearCat), frame_of(20, kClearCat),
              frame_of(25, huge_name + kClearCat), std::string("\x00\x00", 2)}) {
            const RawClient client;
            EXPECT_EQ(client.write(bytes), bytes.size());
            static_cast<void>(client.is_answered_within(100ms));
        }
    });
}

// It keeps the others waiting, and no longer than it is there.
TEST_F(HostileClients, MayStopInTheMiddleOfAFrame) {
    survives([] {
        auto first = std::make_unique<RawClient>();
        first->write(frame_of(21, kClearCat.substr(0, 10)));
        const RawClient second;
        second.write(frame_of(21, kClearCat));
        EXPECT_FALSE(second.is_answered_within(kHold));
        first.reset();
        const auto gone = Clock::now();
        EXPECT_TRUE(second.is_answered_within(2s));
        const std::chrono::duration<double, std::milli> waited = Clock::now() - gone;
        std::printf("the next one was served after %.1f ms\n", waited.count());
    });
}

TEST_F(HostileClients, MayNeverReadReplies) {
    survives([] {
        const RawClient client;
        std::string calls;
        for (int i = 0; i < 1000; ++i) calls += frame_of(21, kClearCat);
        std::size_t offset = 0;
        while (const std::size_t written = client.write(calls.substr(offset))) {
            offset = (offset + written) % calls.size();
        }
        std::this_thread::sleep_for(kHold);
    });
}

TEST_F(HostileClients, MayConnectAndCloseTenThousandTimes) {
    survives([] {
        for (int i = 0; i < 10000; ++i) {
            const RawClient client;
            if (i % 2 == 0) client.break_off();
        }
    });
}

}  // namespace
