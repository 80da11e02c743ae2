#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/support/program.h"

namespace {

using namespace std::chrono_literals;
using Milliseconds = std::chrono::milliseconds;
using testing::HasSubstr;
using testing::Not;

// A service manager's end of the notify protocol: sd_notify(3).
class NotifySocket {
public:
    NotifySocket() : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        EXPECT_EQ(
            bind(fd_, reinterpret_cast<const sockaddr*>(&address), sizeof(sa_family_t)),
            0);
        socklen_t size = sizeof address;  // the kernel has chosen an abstract name
        getsockname(fd_, reinterpret_cast<sockaddr*>(&address), &size);
        const std::size_t length = size - offsetof(sockaddr_un, sun_path) - 1;
        variable_ = "NOTIFY_SOCKET=@" + std::string(address.sun_path + 1, length);
    }
    ~NotifySocket() { close(fd_); }
    NotifySocket(const NotifySocket&) = delete;
    NotifySocket& operator=(const NotifySocket&) = delete;

    [[nodiscard]] const std::string& variable() const { return variable_; }

    // The next message, "" when none comes in time.
    [[nodiscard]] std::string receive(Milliseconds timeout) const {
        timeval time{};
        time.tv_sec = timeout / 1s;
        time.tv_usec = timeout % 1s / 1us;
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &time, sizeof time);
        char text[256];
        const ssize_t length = recv(fd_, text, sizeof text, 0);
        return {text, length < 0 ? 0 : static_cast<std::size_t>(length)};
    }

private:
    int fd_;
    std::string variable_;
};

TEST(Service, TellsTheServiceManagerThatItIsUpAndAliveUnlessItIsStopped) {
    const NotifySocket manager;
    const Program kestan({KESTAN_BIN "/kestan", "-O", "127.0.0.1/9999"},
                         {manager.variable()});
    EXPECT_EQ(manager.receive(10s), "READY=1");
    EXPECT_EQ(manager.receive(4500ms), "");
    EXPECT_EQ(manager.receive(1500ms), "WATCHDOG=1");
    kestan.signal(SIGSTOP);
    EXPECT_EQ(manager.receive(5500ms), "");
    kestan.signal(SIGCONT);
    EXPECT_EQ(manager.receive(1s), "WATCHDOG=1");
    EXPECT_EQ(manager.receive(500ms), "");
}

// The unit as it is installed, with the program that has just been built.
class Unit : public testing::Test {
protected:
    void SetUp() override {
        if (::run({"sh", "-c", "command -v systemd-analyze"}).status != 0) {
            GTEST_SKIP() << "systemd-analyze is not installed";
        }
        std::ifstream installed(KESTAN_UNIT);
        std::string text{std::istreambuf_iterator<char>(installed), {}};
        const std::string command = "ExecStart=kestan ";
        const std::size_t at = text.find(command);
        ASSERT_NE(at, std::string::npos);
        text.replace(at, command.size(), "ExecStart=" KESTAN_BIN "/kestan ");
        std::filesystem::create_directories(folder_);
        std::ofstream(unit_) << text;
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    const std::filesystem::path folder_ = std::filesystem::temp_directory_path() /
                                          ("kestan-unit-" + std::to_string(getpid()));
    const std::string unit_ = folder_ / "kestan@.service";
};

TEST_F(Unit, IsUnderstoodBySystemd) {
    const Ended verify = run({"systemd-analyze", "verify", "--man=no", unit_});
    EXPECT_EQ(verify.status, 0);
    EXPECT_THAT(verify.error, Not(HasSubstr("kestan@")));
}

TEST_F(Unit, IsExposedLessThanTwoAndAHalf) {
    const Ended security =
        run({"systemd-analyze", "security", "--offline=yes", "--threshold=24", unit_});
    EXPECT_EQ(security.status, 0) << security.output << security.error;
}

}  // namespace
