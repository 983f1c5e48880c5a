#pragma once

#include <QCoreApplication>

#include <gtest/gtest.h>

#include <memory>

namespace kestil::test {

// One QCoreApplication for a whole test program, for tests of code that
// needs an event loop or Qt's network machinery but no display. Include it
// once in a test program: it registers itself.
class CoreApplicationEnvironment : public ::testing::Environment {
public:
    void SetUp() override { app_ = std::make_unique<QCoreApplication>(argc_, argv_); }
    void TearDown() override { app_.reset(); }

private:
    int argc_ = 1;
    char name_[16] = "kestil_test";
    char *argv_[2] = {name_, nullptr};
    std::unique_ptr<QCoreApplication> app_;
};

inline const auto *const coreApplication =
    ::testing::AddGlobalTestEnvironment(new CoreApplicationEnvironment);

} // namespace kestil::test
