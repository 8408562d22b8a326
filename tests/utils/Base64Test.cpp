#include "utils/Base64.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

using ZeltoUtils::Base64;

std::string decodeToString(const std::string& text) {
    Base64 base64;
    std::vector<unsigned char> out(base64.decodeLength(text) + 8, 0xAA);
    size_t outSize = 12345;
    base64.decode(text, out.data(), outSize);
    // Nothing is written past the decoded length.
    for (size_t i = outSize; i < out.size(); ++i)
        EXPECT_EQ(out[i], 0xAA) << text;
    return std::string(out.begin(), out.begin() + outSize);
}

TEST(Base64, Rfc4648Vectors) {
    const std::pair<std::string, std::string> vectors[] = {{"", ""},
                                                           {"f", "Zg=="},
                                                           {"fo", "Zm8="},
                                                           {"foo", "Zm9v"},
                                                           {"foob", "Zm9vYg=="},
                                                           {"fooba", "Zm9vYmE="},
                                                           {"foobar", "Zm9vYmFy"}};
    for (const auto& [plain, encoded] : vectors) {
        std::string text = "prefix:";
        Base64().encode(reinterpret_cast<const unsigned char*>(plain.data()), plain.size(), text);
        EXPECT_EQ(text, "prefix:" + encoded);  // appends
        EXPECT_EQ(Base64().decodeLength(encoded), plain.size());
        EXPECT_EQ(decodeToString(encoded), plain);
    }
}

TEST(Base64, AllByteValuesRoundTrip) {
    std::vector<unsigned char> bytes(256 * 3 + 1);
    for (size_t i = 0; i < bytes.size(); ++i)
        bytes[i] = static_cast<unsigned char>(i * 7 + 1);
    std::string text;
    Base64().encode(bytes.data(), bytes.size(), text);
    EXPECT_NE(text.find('+'), std::string::npos);
    EXPECT_NE(text.find('/'), std::string::npos);
    const std::string decoded = decodeToString(text);
    EXPECT_EQ(std::vector<unsigned char>(decoded.begin(), decoded.end()), bytes);
}

TEST(Base64, InvalidTextDecodesToNothing) {
    for (const std::string& text : std::vector<std::string>{
             "Zg=", "Zm9", "Zm9vY", "Zm 9v", "Zm9v\n", "Zm-v", "Zm_v", "=Zm9", "Z=m9", "Zm=v",
             "Z===", "====", "Zg==Zm9v", "Zm9v====", std::string("Zm\0v", 4)}) {
        EXPECT_EQ(Base64().decodeLength(text), 0u) << text;
        EXPECT_EQ(decodeToString(text), "") << text;
    }
}

}  // namespace
