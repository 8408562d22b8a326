// Base64: the standard base64 alphabet with '=' padding (RFC 4648, section 4).
//
// Contract: encode appends the padded encoding. The decoders accept exactly what encode can
// produce, apart from the unused low bits of a final padded group, which are ignored: no
// whitespace, no line breaks, a length that is a multiple of 4, and padding only as the last one
// or two characters. Any other text decodes to nothing (decodeLength 0, decode 0 bytes).
//
//   std::string text;
//   ZeltoUtils::Base64().encode(bytes, byteCount, text);
#pragma once

#include <cstddef>
#include <string>

#include "utils/Export.h"

namespace ZeltoUtils {

class ZELTO_API Base64 {
public:
    // Appends the encoding of `size` bytes to `out`.
    void encode(const unsigned char* data, size_t size, std::string& out);
    // The number of bytes `text` decodes to; 0 for invalid text.
    size_t decodeLength(const std::string& text);
    // Decodes into `out` (room for decodeLength(text) bytes); `outSize` is the bytes written.
    void decode(const std::string& text, unsigned char* out, size_t& outSize);
};

}  // namespace ZeltoUtils
