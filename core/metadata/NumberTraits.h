// Value rules of bool, the character and integer types, float and double.
//
// Integers and flags compare exactly; float and double are equal when the tolerance is strictly
// greater than the difference. Weighted blends follow each type's rounding: int and bool sum in
// double and convert once, the small and unsigned integers truncate every term on its own and
// add in their own width, float rounds every term to float. Element blends run in single
// precision for the weight.
//
//   ValueTraits<short>::lerp(0, 10, 0.25f);  // 2
//   ValueTraits<double>::equal(2.0, 2.5, 0.5);  // false: the test is strict
#pragma once

#include <cmath>
#include <cstdint>
#include <ostream>
#include <type_traits>

#include "core/metadata/ValueTraits.h"

namespace ZeltoCore {

namespace detail {

// Truncation toward zero; NaN and out-of-range input give the x86 "integer indefinite" result
// (the lowest value) instead of undefined behaviour.
inline int32_t truncToInt32(double d) {
    if (!(d > -2147483649.0 && d < 2147483648.0)) return INT32_MIN;
    return static_cast<int32_t>(d);
}
inline int64_t truncToInt64(double d) {
    if (!(d >= -9223372036854775808.0 && d < 9223372036854775808.0)) return INT64_MIN;
    return static_cast<int64_t>(d);
}
// Values from 2^63 convert as unsigned; negative ones wrap like the signed conversion.
inline uint64_t truncToUInt64(double d) {
    if (d >= 9223372036854775808.0 && d < 18446744073709551616.0) return static_cast<uint64_t>(d);
    return static_cast<uint64_t>(truncToInt64(d));
}

// Two-element blend of one number: a towards b by t.
template <class S>
S lerpNumber(S a, S b, float t) {
    const float u = 1.0f - t;
    if constexpr (std::is_same_v<S, bool>) {
        return (a ? 1.0f : 0.0f) * u + (b ? 1.0f : 0.0f) * t > 0.5f;
    } else if constexpr (std::is_same_v<S, float>) {
        return u * a + t * b;
    } else if constexpr (std::is_same_v<S, double>) {
        return double(u) * a + double(t) * b;
    } else if constexpr (std::is_same_v<S, int64_t>) {
        const double td = t;
        return truncToInt64(double(a) * (1.0 - td) + double(b) * td);
    } else if constexpr (std::is_same_v<S, uint64_t>) {
        const double td = t;
        return truncToUInt64(double(a) * (1.0 - td) + double(b) * td);
    } else if constexpr (std::is_same_v<S, unsigned int>) {
        return static_cast<unsigned int>(truncToInt64(float(a) * u + float(b) * t));
    } else {
        static_assert(std::is_integral_v<S> && sizeof(S) <= 4, "no element blend for this number");
        return static_cast<S>(truncToInt32(float(a) * u + float(b) * t));
    }
}

// Stored characters order and blend as signed numbers.

}  // namespace detail

static_assert(std::is_signed_v<char>, "char must be signed (build with -fsigned-char)");

template <class S>
struct NumberTraits : FixedLayout<S> {
    static constexpr bool kFloat = std::is_floating_point_v<S>;

    static S defaultValue() { return S(); }
    static void hash(MurmurHash3& h, S v) { h.append(v); }

    static bool equal(S a, S b, double tolerance) {
        if constexpr (kFloat) {
            return static_cast<S>(tolerance) > std::abs(a - b);
        } else {
            return a == b;
        }
    }

    static constexpr bool kOrdered = true;
    static bool greater(S a, S b) { return a > b; }
    static bool less(S a, S b) { return a < b; }

    static constexpr bool kHasText = true;
    static void text(std::ostream& os, S v) {
        if constexpr (std::is_same_v<S, bool>) {
            os << (v ? '1' : '0');
        } else {
            os << v;  // characters print as themselves
        }
    }

    // Weighted sum. int and bool accumulate in double and convert at the end; the other integers
    // truncate each term and add in their own width (wrapping); float rounds each term.
    static constexpr bool kWeighted = true;
    static constexpr bool kSumInDouble =
        std::is_same_v<S, bool> || std::is_same_v<S, int> || std::is_same_v<S, double>;
    using Acc = std::conditional_t<kSumInDouble, double, S>;

    static Acc weightedTerm(S v, double w) {
        if constexpr (std::is_same_v<S, bool>) {
            return w * (v ? 1.0 : 0.0);
        } else if constexpr (kSumInDouble) {
            return w * double(v);
        } else if constexpr (std::is_same_v<S, float>) {
            return static_cast<float>(double(v) * w);
        } else if constexpr (std::is_same_v<S, uint64_t>) {
            return detail::truncToUInt64(double(v) * w);
        } else if constexpr (std::is_same_v<S, int64_t> || std::is_same_v<S, unsigned int>) {
            return static_cast<S>(detail::truncToInt64(double(v) * w));
        } else {
            return static_cast<S>(detail::truncToInt32(double(v) * w));
        }
    }
    static void weightedAdd(Acc& acc, Acc term) {
        if constexpr (std::is_integral_v<Acc>) {
            using U = std::make_unsigned_t<Acc>;
            acc = static_cast<Acc>(static_cast<U>(static_cast<U>(acc) + static_cast<U>(term)));
        } else {
            acc += term;
        }
    }
    static void weightedStore(Acc acc, S& v) {
        if constexpr (std::is_same_v<S, bool>) {
            v = acc >= 0.9;
        } else if constexpr (std::is_same_v<S, int>) {
            v = detail::truncToInt32(acc);
        } else {
            v = acc;
        }
    }

    // isStatic: floats strictly within 1e-5 (difference in the element type, compared in double).
    static bool elementsEqual(S a, S b) {
        if constexpr (kFloat) {
            return 1e-5 > double(std::abs(a - b));
        } else {
            return a == b;
        }
    }
    static S lerp(S a, S b, float t) { return detail::lerpNumber(a, b, t); }
};

// A bool array stores every element as an unsigned 16-bit 1 or 0; only exactly 1 reads as true.
struct BoolTraits : NumberTraits<bool> {
    static constexpr size_t kArrayMinBytes = 2;
    static size_t arrayBytes(const std::vector<bool>& v) { return v.size() * 2; }
    static void writeArray(Archive& a, const std::vector<bool>& v) {
        const size_t n = v.size() * 2;
        if (n > a.remaining()) {
            a.setFailed();  // no room: nothing written
            return;
        }
        unsigned char* out = a.data + a.position;
        for (size_t i = 0; i < v.size(); ++i, out += 2) {
            out[0] = v[i] ? 1 : 0;
            out[1] = 0;
        }
        a.position += n;
    }
    static void readArray(Archive& a, std::vector<bool>& v) {
        const size_t n = v.size() * 2;
        if (n > a.remaining()) {
            a.skip(n);
            return;
        }
        const unsigned char* in = a.data + a.position;
        for (size_t i = 0; i < v.size(); ++i, in += 2)
            v[i] = in[0] == 1 && in[1] == 0;
        a.position += n;
    }
    static void hashArray(MurmurHash3& h, const std::vector<bool>& v) { h.append(v); }
};

// clang-format off
template <> struct ValueTraits<bool> : BoolTraits { ZELTO_VALUE_NAMES(13, "BoolMetadata", 14, "BoolArrayMetadata") };
template <> struct ValueTraits<char> : NumberTraits<char> { ZELTO_VALUE_NAMES(30, "CharMetadata", 51, "CharArrayMetadata") };
template <> struct ValueTraits<unsigned char> : NumberTraits<unsigned char> { ZELTO_VALUE_NAMES(31, "UCharMetadata", 52, "UCharArrayMetadata") };
template <> struct ValueTraits<short> : NumberTraits<short> { ZELTO_VALUE_NAMES(32, "ShortMetadata", 53, "ShortArrayMetadata") };
template <> struct ValueTraits<unsigned short> : NumberTraits<unsigned short> { ZELTO_VALUE_NAMES(33, "UShortMetadata", 54, "UShortArrayMetadata") };
template <> struct ValueTraits<int> : NumberTraits<int> { ZELTO_VALUE_NAMES(3, "IntMetadata", 11, "IntArrayMetadata") };
template <> struct ValueTraits<unsigned int> : NumberTraits<unsigned int> { ZELTO_VALUE_NAMES(34, "UIntMetadata", 55, "UIntArrayMetadata") };
template <> struct ValueTraits<int64_t> : NumberTraits<int64_t> { ZELTO_VALUE_NAMES(35, "Int64Metadata", 56, "Int64ArrayMetadata") };
template <> struct ValueTraits<uint64_t> : NumberTraits<uint64_t> { ZELTO_VALUE_NAMES(36, "UInt64Metadata", 57, "UInt64ArrayMetadata") };
template <> struct ValueTraits<float> : NumberTraits<float> { ZELTO_VALUE_NAMES(37, "FloatMetadata", 58, "FloatArrayMetadata") };
template <> struct ValueTraits<double> : NumberTraits<double> { ZELTO_VALUE_NAMES(4, "DoubleMetadata", 12, "DoubleArrayMetadata") };
// clang-format on
static_assert(!readsCountedArray<ValueTraits<bool>, bool>,
              "bool arrays read two bytes per element");

}  // namespace ZeltoCore
