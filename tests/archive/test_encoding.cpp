#include <Imath/ImathBox.h>
#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>
#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "core/archive/ArchiveOperators.h"
#include "tests/support/Bytes.h"

using ZeltoCore::Archive;
using ZeltoTest::le;

namespace {

// Writes v into an exactly-sized archive and returns the bytes.
template <class T>
std::string encode(const T& v, size_t size) {
    Archive a(size, 0);
    a << v;
    EXPECT_EQ(a.position, size);
    EXPECT_FALSE(a.failed());
    return std::string(reinterpret_cast<const char*>(a.data), a.size);
}

template <class T>
T decode(const std::string& bytes) {
    Archive a(bytes.size(), 0);
    std::memcpy(a.data, bytes.data(), bytes.size());
    T v{};
    a >> v;
    EXPECT_EQ(a.position, bytes.size());
    EXPECT_FALSE(a.failed());
    return v;
}

template <class T>
void expectLayout(const T& v, const std::string& bytes) {
    EXPECT_EQ(encode(v, bytes.size()), bytes);
    EXPECT_TRUE(decode<T>(bytes) == v);
}

}  // namespace

TEST(Encoding, IntegersAndFloatsInOwnWidthLittleEndian) {
    expectLayout<char>('A', "A");
    expectLayout<unsigned char>(0xFE, "\xFE");
    expectLayout<short>(-2, std::string("\xFE\xFF", 2));
    expectLayout<unsigned short>(0x1234, "\x34\x12");
    expectLayout<int>(0x01020304, "\x04\x03\x02\x01");
    expectLayout<unsigned int>(0xA0B0C0D0u, "\xD0\xC0\xB0\xA0");
    expectLayout<int64_t>(-1, std::string(8, '\xFF'));
    expectLayout<uint64_t>(0x0102030405060708ULL, "\x08\x07\x06\x05\x04\x03\x02\x01");
    expectLayout<float>(1.0f, std::string("\x00\x00\x80\x3F", 4));
    expectLayout<double>(-2.0, std::string("\x00\x00\x00\x00\x00\x00\x00\xC0", 8));
    expectLayout<bool>(true, "\x01");
    expectLayout<bool>(false, std::string(1, '\0'));
}

TEST(Encoding, StringsAndVectorsCarryA64BitCount) {
    expectLayout<std::string>("", std::string(8, '\0'));
    expectLayout<std::string>("abc", le<uint64_t>(3) + "abc");
    expectLayout<std::vector<int>>({}, std::string(8, '\0'));
    expectLayout<std::vector<short>>({1, -1}, le(uint64_t(2), short(1), short(-1)));
    expectLayout<std::vector<std::string>>({"a", ""},
                                           le(uint64_t(2), uint64_t(1)) + "a" + le(uint64_t(0)));
    expectLayout<std::vector<bool>>({true, false}, le<uint64_t>(2) + "\x01" + std::string(1, '\0'));
    expectLayout<std::vector<Imath::V2f>>({Imath::V2f(1, 2)}, le(uint64_t(1), 1.f, 2.f));
}

TEST(Encoding, ImathValuesComponentByComponent) {
    expectLayout(Imath::V2i(1, -1), le(1, -1));
    expectLayout(Imath::V3d(1, 2, 3), le(1.0, 2.0, 3.0));
    expectLayout(Imath::V4f(1, 2, 3, 4), le(1.f, 2.f, 3.f, 4.f));
    // Quaternions put the scalar part last (also pinned with the metadata values, with boxes).
    expectLayout(Imath::Quatf(4, 1, 2, 3), le(1.f, 2.f, 3.f, 4.f));

    Imath::M44d m;
    std::string rows;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) {
            m[r][c] = r * 10 + c;
            rows += le(double(r * 10 + c));
        }
    expectLayout(m, rows);
    Imath::M44f mf(m);
    EXPECT_EQ(encode(mf, 64).substr(4 * 7, 4), le(13.f));  // row 1, column 3
}

TEST(Encoding, EveryTruncationOfAStreamFailsCleanly) {
    const size_t size = 8 + 3 + 8 + 2 * 32 + 24;
    Archive full(size, 0);
    full << std::string("abc")
         << std::vector<Imath::Quatd>{Imath::Quatd(), Imath::Quatd(0, 1, 0, 0)}
         << Imath::V3d(1, 2, 3);
    for (size_t cut = 0; cut < size; ++cut) {
        Archive a(cut, 0);
        if (cut) std::memcpy(a.data, full.data, cut);
        std::string s;
        std::vector<Imath::Quatd> q;
        Imath::V3d v;
        a >> s >> q >> v;
        EXPECT_TRUE(a.failed()) << cut;
        EXPECT_LE(a.position, a.size) << cut;
    }
}
