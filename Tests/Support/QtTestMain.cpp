#include <QCoreApplication>

#include <gtest/gtest.h>

// Qt's event loop needs an application, for as long as the tests run.
int main(int argc, char** argv) {
    const QCoreApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
