#include <gtest/gtest.h>
#include <windows.h>

int main(int argc, char** argv) {
    // A crash must fail the test, not wait for a dialog nobody will see.
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
