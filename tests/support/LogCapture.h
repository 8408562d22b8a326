// LogCapture: records every Logger message while it is alive, instead of printing it.
//
// Contract: the constructor installs a capturing handler and the destructor puts back the handler
// it replaced, so captures nest. Messages are kept exactly as emitted, in order, per level.
// Logger runs handlers one at a time, so workers may log concurrently; read once they are done.
//
//   ZeltoTest::LogCapture log;
//   runSolver();  EXPECT_EQ(log.warnings, std::vector<std::string>{"Joint  1   hip  ... "});
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "utils/Logger.h"

namespace ZeltoTest {

struct LogCapture {
    using Level = ZeltoUtils::Logger::Level;
    LogCapture() {
        previous = ZeltoUtils::Logger::setHandler([this](Level level, const std::string& message) {
            (level == Level::Warning ? warnings : errors).push_back(message);
        });
    }
    ~LogCapture() { ZeltoUtils::Logger::setHandler(std::move(previous)); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> warnings, errors;
    ZeltoUtils::Logger::Handler previous;
};

}  // namespace ZeltoTest
