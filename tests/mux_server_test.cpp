#include "control/mux_server.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <thread>

#include <gtest/gtest.h>

#include "mux/muxer.h"
#include "thrift/cm_MuxControlSrv.h"
#include "thrift/simple_client.h"

namespace {

int option(int fd, int level, int name) {
    int value = -1;
    socklen_t size = sizeof value;
    return getsockopt(fd, level, name, &value, &size) == 0 ? value : -1;
}

int port_of(int fd) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    return ntohs(address.sin_port);
}

// Waits for a socket of this process.
template <typename Condition>
int find_socket(Condition is_it) {
    for (int fd = 3;; fd = fd % 100 + 1) {
        if (is_it(fd)) return fd;
        std::this_thread::yield();
    }
}

bool listens(int fd) {
    return option(fd, SOL_SOCKET, SO_ACCEPTCONN) == 1;
}

TEST(MuxServer, NoticesWithin90SecondsThatItsClientHasVanished) {
    using orvel::thrift::ci_module::cm_MuxControlSrvClient;
    muxer_create(1000, [](const std::uint8_t*, std::uint32_t) { return 0; });
    ASSERT_EQ(StartMuxServer(0), 0);
    const int port = port_of(find_socket(listens));
    orvel::thrift::utils::SimpleClient<cm_MuxControlSrvClient> client("127.0.0.1", port);
    client.ClearCAT();

    const int accepted =
        find_socket([port](int fd) { return port_of(fd) == port && !listens(fd); });
    EXPECT_EQ(option(accepted, SOL_SOCKET, SO_KEEPALIVE), 1);
    EXPECT_EQ(option(accepted, IPPROTO_TCP, TCP_KEEPIDLE), 60);
    EXPECT_EQ(option(accepted, IPPROTO_TCP, TCP_KEEPINTVL), 10);
    EXPECT_EQ(option(accepted, IPPROTO_TCP, TCP_KEEPCNT), 3);
    EXPECT_EQ(option(accepted, IPPROTO_TCP, TCP_USER_TIMEOUT), 90000);
}

}  // namespace
