#include <Imath/ImathBox.h>
#include <Imath/ImathEuler.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>
#include <gtest/gtest.h>

#include <cstring>
#include <iomanip>
#include <sstream>
#include <string>
#include <vector>

#include "core/hash/MurmurHash3.h"
#include "tests/support/Bytes.h"

using ZeltoCore::MurmurHash3;
using ZeltoTest::le;

namespace {

MurmurHash3 fresh(const std::string& bytes) {
    MurmurHash3 h;
    h.hash(bytes.data(), bytes.size());
    return h;
}

// The state after feeding exactly these calls, one hash() per entry.
MurmurHash3 calls(std::initializer_list<std::string> parts) {
    MurmurHash3 h;
    for (const std::string& p : parts)
        h.hash(p.data(), p.size());
    return h;
}

template <class T>
MurmurHash3 appended(const T& v) {
    MurmurHash3 h;
    h.append(v);
    return h;
}

}  // namespace

TEST(MurmurHash3, MatchesPublishedX64_128WithSeedZero) {
    struct Golden {
        std::string input;
        uint64_t h1, h2;
    };
    const Golden golden[] = {
        {"", 0, 0},
        {"hello", 0xcbd8a7b341bd9b02ULL, 0x5b1e906a48ae1d19ULL},
        {"The quick brown fox jumps over the lazy dog", 0xe34bbc7bbc071b6cULL,
         0x7a433ca9c49a9347ULL},
    };
    for (const Golden& g : golden) {
        MurmurHash3 h = fresh(g.input);
        EXPECT_EQ(h.h1, g.h1) << g.input;
        EXPECT_EQ(h.h2, g.h2) << g.input;
    }
}

TEST(MurmurHash3, EveryTailLengthAndBlockBoundaryIsDistinct) {
    // 0..33 bytes cover every tail length with zero, one and two whole blocks.
    std::string data;
    std::vector<MurmurHash3> seen;
    for (int n = 0; n <= 33; ++n) {
        MurmurHash3 h = fresh(data);
        for (const MurmurHash3& other : seen)
            EXPECT_NE(h, other) << n;
        seen.push_back(h);
        data.push_back(static_cast<char>('a' + n % 26));
    }
}

TEST(MurmurHash3, StateIsTheSeedSoTheCutMatters) {
    EXPECT_NE(calls({"ab", "c"}), calls({"abc"}));
    MurmurHash3 h = fresh("x");
    MurmurHash3 before = h;
    h.hash(nullptr, 0);  // finalisation still runs
    EXPECT_NE(h, before);
    MurmurHash3 zero;
    zero.hash(nullptr, 0);
    EXPECT_EQ(zero, MurmurHash3());
}

TEST(MurmurHash3, AppendsFollowTheirCutRules) {
    // Scalars: their own width in one call.
    EXPECT_EQ(appended(true), calls({std::string(1, '\1')}));
    EXPECT_EQ(appended(short(-2)), calls({le(short(-2))}));
    EXPECT_EQ(appended(int64_t{7}), calls({le(int64_t{7})}));
    EXPECT_EQ(appended(2.5f), calls({le(2.5f)}));
    EXPECT_EQ(appended(std::string("abc")), appended("abc"));
    EXPECT_EQ(appended(std::string("abc")), fresh("abc"));
    const MurmurHash3 inner = fresh("inner");
    EXPECT_EQ(appended(inner), calls({le(inner.h1, inner.h2)}));

    // Imath: Vec4 per component, Quat r then v, Box min then max, the rest in one call.
    EXPECT_EQ(appended(Imath::V4d(1, 2, 3, 4)), calls({le(1.0), le(2.0), le(3.0), le(4.0)}));
    const Imath::Quatf q(0.5f, 1.f, 2.f, 3.f);
    EXPECT_EQ(appended(q), calls({le(q.r), le(q.v)}));
    const Imath::Box3i box(Imath::V3i(1, 2, 3), Imath::V3i(4, 5, 6));
    EXPECT_EQ(appended(box), calls({le(box.min), le(box.max)}));
    EXPECT_EQ(appended(Imath::V3d(1, 2, 3)), calls({le(Imath::V3d(1, 2, 3))}));
    EXPECT_NE(appended(Imath::V3d(1, 2, 3)), appended(Imath::V3d(1, 2, 4)));
    EXPECT_NE(appended(Imath::Quatd(1, 0, 0, 0.25)), appended(Imath::Quatd(1, 0, 0, 0.5)));
}

// The canonical bytes of an Euler: angles, a flag byte (static frame 1, repeated axis 2, even
// parity 4), three zero bytes, the initial axis as int32.
template <class T>
std::string eulerBytes(const Imath::Euler<T>& e) {
    std::string b = le(e.x, e.y, e.z);
    b += static_cast<char>((e.frameStatic() ? 1 : 0) | (e.initialRepeated() ? 2 : 0) |
                           (e.parityEven() ? 4 : 0));
    return b + std::string(3, '\0') + le(static_cast<int32_t>(e.initialAxis()));
}

// A single Euler hashes its canonical bytes. Arrays are fed through a small window rather than one
// buffer: every length, across and at the window's edges, for both widths and from a seeded
// state, equals one call over the bytes.
template <class T>
void checkEulers() {
    for (size_t count : {0, 1, 3, 15, 16, 17, 32, 33, 100}) {
        std::vector<Imath::Euler<T>> v;
        std::string bytes;
        for (size_t i = 0; i < count; ++i) {
            const auto order = i % 2 ? Imath::Euler<T>::XYZ : Imath::Euler<T>::ZXZr;
            v.emplace_back(T(0.1) * T(i), T(0.2), T(-0.3), order);
            ASSERT_EQ(appended(v.back()), calls({eulerBytes(v.back())}));
            bytes += eulerBytes(v.back());
        }
        MurmurHash3 seeded = fresh("seed");
        MurmurHash3 expected = seeded;
        expected.hash(bytes.data(), bytes.size());
        seeded.append(v);
        EXPECT_EQ(seeded, expected) << count;
    }
}

TEST(MurmurHash3, EulersAndEulerArraysEqualOneCallOverTheirBytes) {
    checkEulers<float>();
    checkEulers<double>();
    EXPECT_EQ(eulerBytes(Imath::Eulerf(0, 0, 0)).size(), 20u);
}

TEST(MurmurHash3, VectorsAreOneCallExceptBoolsAndStrings) {
    EXPECT_EQ(appended(std::vector<int>{1, 2, 3}), calls({le(1, 2, 3)}));
    EXPECT_EQ(appended(std::vector<bool>{true, false}),
              calls({std::string(1, '\1'), std::string(1, '\0')}));
    EXPECT_EQ(appended(std::vector<std::string>{"ab", "", "c"}), calls({"ab", "", "c"}));
    // An empty int vector or string still feeds one empty call; empty bool and string vectors none.
    const MurmurHash3 seed = fresh("seed");
    const auto after = [&seed](const auto& v) {
        MurmurHash3 h = seed;
        h.append(v);
        return h;
    };
    EXPECT_NE(after(std::vector<int>{}), seed);
    EXPECT_NE(after(std::string()), seed);
    EXPECT_EQ(after(std::vector<bool>{}), seed);
    EXPECT_EQ(after(std::vector<std::string>{}), seed);
}

TEST(MurmurHash3, OrderingIsUnsignedLexicographic) {
    auto make = [](uint64_t a, uint64_t b) {
        MurmurHash3 h;
        h.h1 = a;
        h.h2 = b;
        return h;
    };
    EXPECT_LT(make(1, 5), make(2, 0));
    EXPECT_LT(make(2, 0), make(2, 1));
    EXPECT_LT(make(1, 0), make(~0ULL, 0));
}

TEST(MurmurHash3, TextIsThirtyTwoHexDigitsAndLeavesStreamStateAlone) {
    std::ostringstream os;
    os << MurmurHash3();
    EXPECT_EQ(os.str(), std::string(32, '0'));

    MurmurHash3 h;
    h.h1 = 0xABC;
    h.h2 = 0x1234567890abcdefULL;
    std::ostringstream s2;
    s2 << h << ' ' << 255;
    EXPECT_EQ(s2.str(), "0000000000000abc1234567890abcdef 255");

    std::ostringstream s3;
    s3 << std::setw(34) << std::setfill('*') << MurmurHash3() << 7;
    EXPECT_EQ(s3.str(), "**" + std::string(32, '0') + "7");
}
