// le: the bytes of the given values one after another, as this (little-endian) host stores them;
// expected layouts are spelt with it.
//
//   EXPECT_EQ(encoded, ZeltoTest::le(uint64_t(3)) + "abc");
#pragma once

#include <string>

namespace ZeltoTest {

template <class... Ts>
std::string le(const Ts&... values) {
    std::string out;
    (out.append(reinterpret_cast<const char*>(&values), sizeof(values)), ...);
    return out;
}

}  // namespace ZeltoTest
