#include "core/hash/HashedString.h"

#include <cstring>
#include <stdexcept>

#include "core/hash/MurmurHash3.h"

namespace ZeltoCore {

uint64_t HashedString::hashText(const char* data, size_t length) {
    MurmurHash3 h;
    h.hash(data, length);
    return h.h1 ^ h.h2;
}

HashedString::HashedString(const std::string& text)
    : m_hash(hashText(text.data(), text.size())), m_text(text) {}

HashedString::HashedString(const char* text) : m_text(text) {
    m_hash = hashText(m_text.data(), m_text.size());
}

HashedString::HashedString(long value)
    : m_hash(static_cast<uint64_t>(static_cast<int64_t>(value))), m_text(std::to_string(value)) {}

HashedString& HashedString::operator=(const HashedString& other) {
    m_hash = other.m_hash;
    if (this != &other) m_text = other.m_text;
    return *this;
}

HashedString& HashedString::operator=(const std::string& text) {
    m_hash = hashText(text.data(), text.size());
    m_text = text;
    return *this;
}

std::string HashedString::substr(size_t pos, size_t count) const {
    if (pos > m_text.size()) throw std::out_of_range("invalid string position");
    return m_text.substr(pos, count);
}

}  // namespace ZeltoCore
