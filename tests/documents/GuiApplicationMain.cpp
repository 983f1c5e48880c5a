#include <QGuiApplication>

#include <gtest/gtest.h>

// Text layout and PDF writing need a GUI application: fonts come from its
// platform, offscreen in tests.
int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QGuiApplication application(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
