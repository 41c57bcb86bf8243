// The archive tests run in a mount namespace of their own, so a second volume can be real.

#include <gtest/gtest.h>

#include "PrivateMounts.hpp"

int main(int argc, char** argv) {
    quillstow::testing::enterPrivateMountNamespace();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
