#include "utils/Logger.h"

#include <cstdio>
#include <memory>
#include <mutex>
#include <utility>

namespace ZeltoUtils {

namespace {

void defaultHandler(Logger::Level level, const std::string& message) {
    // One write per line keeps lines from concurrent processes sharing stderr whole.
    std::string line = level == Logger::Level::Error ? "Error: " : "Warning: ";
    line += message;
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
}

// Recursive so that a handler may itself log.
std::recursive_mutex& handlerMutex() {
    static std::recursive_mutex mutex;
    return mutex;
}

// Shared so that a handler replaced from inside itself stays alive until it returns.
std::shared_ptr<Logger::Handler>& currentHandler() {
    static auto handler = std::make_shared<Logger::Handler>(defaultHandler);
    return handler;
}

}  // namespace

Logger::Handler Logger::setHandler(Handler handler) {
    std::lock_guard<std::recursive_mutex> lock(handlerMutex());
    if (!handler) handler = defaultHandler;
    auto previous = std::exchange(currentHandler(), std::make_shared<Handler>(std::move(handler)));
    return *previous;
}

void Logger::emit(Level level, const std::string& message) {
    std::lock_guard<std::recursive_mutex> lock(handlerMutex());
    const std::shared_ptr<Handler> handler = currentHandler();
    (*handler)(level, message);
}

LogProxy::~LogProxy() {
    try {
        Logger::emit(m_level, m_stream.str());
    } catch (...) {
        // A failing handler must not take the caller down from a destructor.
    }
}

}  // namespace ZeltoUtils
