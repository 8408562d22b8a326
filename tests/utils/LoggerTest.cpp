#include "utils/Logger.h"

#include <iomanip>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/LogCapture.h"

namespace {

using ZeltoTest::LogCapture;
using ZeltoUtils::Logger;

TEST(Logger, MessageIsEmittedExactlyAsStreamedWhenTheProxyDies) {
    LogCapture log;
    {
        auto proxy = Logger::warning();
        proxy << "Joint "
              << " " << 1 << " "
              << " "
              << " "
              << "hip"
              << " "
              << " has an invalid pole vector"
              << " ";
        EXPECT_TRUE(log.empty());
    }
    Logger::error() << std::fixed << std::setprecision(2) << 0.5 << " then" << std::endl;
    Logger::warning();
    ASSERT_EQ(log.entries().size(), 3u);
    EXPECT_EQ(log.entries()[0].level, Logger::Level::Warning);
    EXPECT_EQ(log.entries()[0].message, "Joint  1   hip  has an invalid pole vector ");
    EXPECT_EQ(log.errors(), std::vector<std::string>{"0.50 then\n"});
    EXPECT_EQ(log.entries()[2].message, "");
}

TEST(Logger, SetHandlerReturnsThePreviousAndCapturesNest) {
    LogCapture outer;
    {
        LogCapture inner;
        Logger::warning() << "inner";
        EXPECT_EQ(inner.warnings(), std::vector<std::string>{"inner"});
    }
    Logger::warning() << "outer";
    EXPECT_EQ(outer.warnings(), std::vector<std::string>{"outer"});

    // An empty handler brings back the default one; restoring the returned handler routes back.
    Logger::Handler previous = Logger::setHandler(nullptr);
    ASSERT_TRUE(previous);
    testing::internal::CaptureStderr();
    Logger::warning() << "to stderr ";
    Logger::error() << "bad";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Warning: to stderr \nError: bad\n");
    Logger::Handler defaultHandler = Logger::setHandler(previous);
    ASSERT_TRUE(defaultHandler);
    Logger::warning() << "back";
    EXPECT_EQ(outer.warnings(), (std::vector<std::string>{"outer", "back"}));
}

TEST(Logger, ConcurrentLoggingDeliversEveryMessageWhole) {
    LogCapture log;
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 500; ++i)
                Logger::warning() << "thread " << t << " message " << i;
        });
    }
    for (auto& thread : threads)
        thread.join();
    ASSERT_EQ(log.entries().size(), 2000u);
    for (const auto& entry : log.entries())
        EXPECT_EQ(entry.message.rfind("thread ", 0), 0u);
}

}  // namespace
