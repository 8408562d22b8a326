// testDataPath: where the golden files of the tests (tests/data) are.
//
// ctest hands every test the folder as ZELTO_TEST_DATA; a test binary started by hand falls back
// to the folder of the source tree it was built from.
//
//   std::ifstream in(ZeltoTest::testDataPath("pose.zelto"), std::ios::binary);
#pragma once

#include <cstdlib>
#include <string>

namespace ZeltoTest {

inline std::string testDataPath(const std::string& name) {
    const char* dir = std::getenv("ZELTO_TEST_DATA");
    return std::string(dir && *dir ? dir : ZELTO_TEST_DATA_DIR) + "/" + name;
}

}  // namespace ZeltoTest
