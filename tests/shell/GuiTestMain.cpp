#include <QApplication>

#include <gtest/gtest.h>

int main(int argc, char **argv)
{
    // Widgets need a platform even when tests are only being listed.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
