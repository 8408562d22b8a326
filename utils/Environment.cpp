#include "utils/Environment.h"

#include <cstdlib>

namespace ZeltoUtils {

namespace {

bool isNameStart(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}

bool isNameChar(char c) {
    return isNameStart(c) || (c >= '0' && c <= '9');
}

void appendVariable(const std::string& name, std::string& out) {
    if (const char* value = std::getenv(name.c_str())) out += value;
}

}  // namespace

std::string expandEnvironmentVariables(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        const char c = text[i];
        if (c != '$' || i + 1 == text.size()) {
            out += c;
            ++i;
            continue;
        }
        if (isNameStart(text[i + 1])) {
            size_t end = i + 2;
            while (end < text.size() && isNameChar(text[end]))
                ++end;
            appendVariable(text.substr(i + 1, end - i - 1), out);
            i = end;
            continue;
        }
        if (text[i + 1] == '{' && i + 2 < text.size() && isNameStart(text[i + 2])) {
            size_t end = i + 3;
            while (end < text.size() && isNameChar(text[end]))
                ++end;
            if (end < text.size() && text[end] == '}') {
                appendVariable(text.substr(i + 2, end - i - 2), out);
                i = end + 1;
                continue;
            }
        }
        out += c;
        ++i;
    }
    return out;
}

}  // namespace ZeltoUtils
