// Logger: process-wide warning and error messages, routed to one replaceable handler.
//
// Contract: warning() and error() return a LogProxy; everything streamed into it forms one
// message, handed to the current handler unchanged (trailing spaces and newlines included) when
// the proxy is destroyed. Handlers run one at a time, under a lock that setHandler also takes, so
// once setHandler has returned the previous handler is no longer running and is not called again.
// The default handler writes "Warning: <message>" or "Error: <message>" and a newline to stderr;
// setting an empty handler restores it.
//
//   ZeltoUtils::Logger::warning() << "Joint " << id << " has no parent ";
//   auto previous = ZeltoUtils::Logger::setHandler([](auto level, const std::string& m) { ... });
#pragma once

#include <functional>
#include <ostream>
#include <sstream>
#include <string>

#include "utils/Export.h"

namespace ZeltoUtils {

class LogProxy;

class ZELTO_API Logger {
public:
    enum class Level { Warning, Error };
    using Handler = std::function<void(Level, const std::string&)>;

    static LogProxy warning();
    static LogProxy error();

    // Installs `handler` (empty: the default handler) and returns the one it replaces.
    static Handler setHandler(Handler handler);

    // Hands one finished message to the current handler.
    static void emit(Level level, const std::string& message);
};

// One message being streamed; emitted when the proxy goes out of scope.
class ZELTO_API LogProxy {
public:
    explicit LogProxy(Logger::Level level) : m_level(level) {}
    LogProxy(const LogProxy&) = delete;
    LogProxy& operator=(const LogProxy&) = delete;
    ~LogProxy();

    template <typename T>
    LogProxy& operator<<(const T& value) {
        m_stream << value;
        return *this;
    }
    // Manipulators such as std::endl.
    LogProxy& operator<<(std::ostream& (*manipulator)(std::ostream&)) {
        m_stream << manipulator;
        return *this;
    }

private:
    Logger::Level m_level;
    std::ostringstream m_stream;
};

inline LogProxy Logger::warning() {
    return LogProxy(Level::Warning);
}
inline LogProxy Logger::error() {
    return LogProxy(Level::Error);
}

}  // namespace ZeltoUtils
