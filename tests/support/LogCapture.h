// LogCapture: records every Logger message while it is alive, instead of printing it.
//
// Contract: the constructor installs a capturing handler and the destructor puts back the handler
// it replaced, so captures nest. Messages are kept exactly as emitted, in order. Logger runs
// handlers one at a time, so workers may log concurrently; read the entries once they are done.
//
//   ZeltoTest::LogCapture log;
//   runSolver();  EXPECT_EQ(log.warnings(), std::vector<std::string>{"Joint  1   hip  ... "});
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "utils/Logger.h"

namespace ZeltoTest {

class LogCapture {
public:
    using Level = ZeltoUtils::Logger::Level;
    struct Entry {
        Level level;
        std::string message;
    };

    LogCapture() {
        m_previous =
            ZeltoUtils::Logger::setHandler([this](Level level, const std::string& message) {
                m_entries.push_back({level, message});
            });
    }
    ~LogCapture() { ZeltoUtils::Logger::setHandler(std::move(m_previous)); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    const std::vector<Entry>& entries() const { return m_entries; }
    bool empty() const { return m_entries.empty(); }
    void clear() { m_entries.clear(); }

    std::vector<std::string> messages(Level level) const {
        std::vector<std::string> out;
        for (const Entry& entry : m_entries) {
            if (entry.level == level) out.push_back(entry.message);
        }
        return out;
    }
    std::vector<std::string> warnings() const { return messages(Level::Warning); }
    std::vector<std::string> errors() const { return messages(Level::Error); }

private:
    std::vector<Entry> m_entries;
    ZeltoUtils::Logger::Handler m_previous;
};

}  // namespace ZeltoTest
