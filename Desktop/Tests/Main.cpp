#include <QApplication>

#include <gtest/gtest.h>

int main(int argc, char** argv) {
    // Windows that nobody sees, wherever the tests run.
    qputenv("QT_QPA_PLATFORM", "offscreen");
    testing::InitGoogleTest(&argc, argv);
    QApplication application(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);
    return RUN_ALL_TESTS();
}
