#include <QCoreApplication>

#include <gtest/gtest.h>

// The session bus needs Qt's event loop, and the loop needs an application.
int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
