#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/file.h>

#include <cstdio>

#include "tests/support/own_network.h"

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    if (!enter_own_network()) {
        std::puts("no network namespace of our own: using the ports of this machine");
        flock(open("/tmp/kestan-test-ports", O_CREAT | O_RDWR | O_CLOEXEC, 0666),
              LOCK_EX);
    }
    return RUN_ALL_TESTS();
}
