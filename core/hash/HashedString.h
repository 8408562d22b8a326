// HashedString: a string that carries a 64-bit hash of its text, computed once when the text is
// set, so equality and ordering decide on the hash before looking at characters.
//
// The hash of a text is h1 ^ h2 of a fresh MurmurHash3 fed the characters; a string made from an
// integer holds the integer itself (sign-extended) as its hash. Ordering is by hash, not by text.
//
//   HashedString key("hip");
//   if (key == other) ...
#pragma once

#include <cstdint>
#include <string>

#include "utils/Export.h"

namespace ZeltoCore {

class ZELTO_API HashedString {
public:
    HashedString() = default;
    HashedString(const HashedString&) = default;
    HashedString(const std::string& text);  // NOLINT(google-explicit-constructor)
    HashedString(const char* text);         // NOLINT(google-explicit-constructor)
    explicit HashedString(long value);
    ~HashedString() = default;

    HashedString& operator=(const HashedString& other);
    HashedString& operator=(const std::string& text);

    uint64_t hash() const { return m_hash; }
    const std::string& string() const { return m_text; }
    operator const std::string&() const { return m_text; }  // NOLINT
    const char* c_str() const { return m_text.c_str(); }
    size_t size() const { return m_text.size(); }
    bool empty() const { return m_text.empty(); }

    bool operator==(const HashedString& o) const {
        return m_hash == o.m_hash && m_text == o.m_text;
    }
    // Text only; the hash plays no part.
    bool operator!=(const std::string& s) const { return m_text != s; }
    bool operator!=(const char* s) const { return m_text != s; }
    bool operator<(const HashedString& o) const {
        return m_hash != o.m_hash ? m_hash < o.m_hash : m_text < o.m_text;
    }

    std::string operator+(const std::string& s) const { return m_text + s; }
    std::string operator+(const char* s) const { return m_text + s; }

    size_t find(const std::string& s, size_t pos = 0) const { return m_text.find(s, pos); }
    size_t rfind(const std::string& s, size_t pos = std::string::npos) const {
        return m_text.rfind(s, pos);
    }
    std::string substr(size_t pos = 0, size_t count = std::string::npos) const;

    // The hash a text gets: h1 ^ h2 of a fresh accumulator fed its characters once.
    static uint64_t hashText(const char* data, size_t length);

private:
    uint64_t m_hash = 0;
    std::string m_text;
};

}  // namespace ZeltoCore
