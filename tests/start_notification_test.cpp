#include "app/start_notification.h"

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>

#include "tests/support/fake_framework.h"

namespace {

using namespace std::string_literals;
using std::chrono::milliseconds, std::chrono::steady_clock;

enum class End { closes, resets, stays };

// What listens on the notification's port: it accepts unless its queue is full, takes the
// call, sends `reply` byte by byte, and ends.
struct Peer {
    std::string says;  // part of the line that the notification logs
    std::string reply;
    milliseconds between_bytes{0};
    End end = End::stays;
    bool is_full = false;
};

class Listener {
public:
    explicit Listener(const Peer& peer) {
        address_.sin_family = AF_INET;
        address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(fd_, sockaddr_of(address_), sizeof address_);
        socklen_t size = sizeof address_;
        getsockname(fd_, sockaddr_of(address_), &size);
        listen(fd_, 0);
        if (peer.is_full) {
            connect(socket(AF_INET, SOCK_STREAM, 0), sockaddr_of(address_), size);
        } else {
            std::thread([fd = fd_, peer] { serve(fd, peer); }).detach();
        }
    }

    [[nodiscard]] int port() const { return ntohs(address_.sin_port); }

private:
    static sockaddr* sockaddr_of(sockaddr_in& address) {
        return reinterpret_cast<sockaddr*>(&address);
    }

    static void serve(int listener, const Peer& peer) {
        const int fd = accept(listener, nullptr, nullptr);
        std::array<char, 256> call{};
        if (peer.end != End::resets) recv(fd, call.data(), call.size(), 0);
        for (const char& byte : peer.reply) {
            if (send(fd, &byte, 1, MSG_NOSIGNAL) != 1) break;
            std::this_thread::sleep_for(peer.between_bytes);
        }
        const linger at_once{1, 0};
        setsockopt(fd, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
        if (peer.end == End::resets) close(fd);
        if (peer.end == End::closes) shutdown(fd, SHUT_WR);
    }

    int fd_ = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address_{};
};

const std::string kReply = "\0\0\0\x20\x80\1\0\2\0\0\0\x13NotifyKestanStarted\0\0\0\0\0"s;
const std::string kRenamed =
    "\0\0\0\x20\x80\1\0\2\0\0\0\x13NotifyKestanStopped\0\0\0\0\0"s;
const std::string kHugeName = "\0\0\0\x0c\x80\1\0\2\x7f\xff\xff\xff\0\0\0\0"s;
const std::string kHugeText =
    "\0\0\0\x26\x80\1\0\3\0\0\0\x13NotifyKestanStarted\0\0\0\0\xb\0\1\x7f\xff\xff\xff"s;
const std::string kHugeList =
    "\0\0\0\x27\x80\1\0\2\0\0\0\x13NotifyKestanStarted\0\0\0\0\xf\0\1\xc\x7f\xff\xff\xff"s;

// All at once, since several of them take the second that they may.
TEST(StartNotification, TakesASecondAtMostWhateverListens) {
    const std::vector<Peer> peers = {
        {"Exceeded size limit", kHugeName},
        {"Exceeded size limit", kHugeText},
        {"Exceeded size limit", kHugeList},
        {"oversized frame", "\0\1\0\1"s, milliseconds(0), End::closes},
        {"imed out", kReply, milliseconds(50)},
        {"imed out", kRenamed},
        {"imed out", ""},
        {"No more data", "", milliseconds(0), End::closes},
        {"", "", milliseconds(0), End::resets},
        {"imed out", "", milliseconds(0), End::stays, /*is_full=*/true},
    };
    static_cast<void>(fake_framework::take_log());
    std::vector<std::thread> callers;
    for (const Peer& peer : peers) {
        callers.emplace_back([port = Listener(peer).port(), &peer] {
            const auto start = steady_clock::now();
            send_start_notification(port);
            EXPECT_LT(steady_clock::now() - start, milliseconds(1500)) << peer.says;
        });
    }
    for (std::thread& caller : callers) caller.join();
    std::vector<testing::Matcher<std::string>> lines;
    for (const Peer& peer : peers) {
        lines.push_back(
            testing::ContainsRegex("^3 MuxNotify client EXCEPTION: .*" + peer.says));
    }
    EXPECT_THAT(fake_framework::take_log(), testing::UnorderedElementsAreArray(lines));

    send_start_notification(Listener({"", kReply}).port());
    EXPECT_THAT(fake_framework::take_log(), testing::IsEmpty());
}

}  // namespace
