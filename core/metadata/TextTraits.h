// Value rules of std::string and MurmurHash3: compared exactly, never ordered or blended.
//
// A string travels as its 64-bit length and characters; a string array hashes one call per
// element and blends by picking its first operand. A hash value travels as h1 then h2 and prints
// as 32 hex digits; it has no array type.
//
//   ValueTraits<std::string>::size("abc");  // 11
//   ValueTraits<MurmurHash3>::text(os, MurmurHash3());  // 32 zeros
#pragma once

#include <ostream>
#include <string>

#include "core/metadata/ValueTraits.h"

namespace ZeltoCore {

struct StringTraits : VariableLayout<std::string, StringTraits> {
    using S = std::string;

    static S defaultValue() { return S(); }
    static size_t size(const S& s) { return 8 + s.size(); }
    static void write(Archive& a, const S& s) { a << s; }
    static void read(Archive& a, S& s) { a >> s; }

    static void hash(MurmurHash3& h, const S& s) { h.append(s); }
    static bool equal(const S& a, const S& b, double) { return a == b; }

    static constexpr bool kHasText = true;
    static void text(std::ostream& os, const S& s) { os << s; }

    static constexpr size_t kArrayMinBytes = 8;
    static void hashArray(MurmurHash3& h, const std::vector<S>& v) { h.append(v); }
    static bool elementsEqual(const S& a, const S& b) { return a == b; }
    static constexpr bool kBlendPicksFirst = true;
};

struct HashTraits : ValueTraitsDefaults {
    using H = MurmurHash3;

    static H defaultValue() { return H(); }
    static size_t size(const H&) { return 16; }
    static void write(Archive& a, const H& v) { a << v.h1 << v.h2; }
    static void read(Archive& a, H& v) { a >> v.h1 >> v.h2; }

    static void hash(MurmurHash3& h, const H& v) { h.append(v); }
    static bool equal(const H& a, const H& b, double) { return a == b; }

    static constexpr bool kHasText = true;
    static void text(std::ostream& os, const H& v) { os << v; }
};

// clang-format off
template <> struct ValueTraits<std::string> : StringTraits { ZELTO_VALUE_NAMES(10, "StringMetadata", 17, "StringArrayMetadata") };
template <> struct ValueTraits<MurmurHash3> : HashTraits { ZELTO_VALUE_NAMES(106, "HashMetadata", 0, "") };
// clang-format on

}  // namespace ZeltoCore
