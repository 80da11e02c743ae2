#include <gtest/gtest.h>

// A failed assertion ends the input as a crash, which is what libFuzzer keeps.
extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
    GTEST_FLAG_SET(throw_on_failure, true);
    return 0;
}
