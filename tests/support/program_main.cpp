#include <gmock/gmock.h>

#include <cstdio>

#include "tests/support/own_network.h"

int main(int argc, char** argv) {
    testing::InitGoogleMock(&argc, argv);
    if (!enter_own_network()) {
        std::puts("no network namespace of our own: using the ports of this machine");
    }
    return RUN_ALL_TESTS();
}
