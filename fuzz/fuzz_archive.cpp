// Archive primitives: the input is a program of one-byte opcodes, each reading one encodable
// value at the cursor. Every value that reads is written again into the bytes it took, in a
// stable form.
#include <Imath/ImathBox.h>
#include <Imath/ImathEuler.h>
#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>

#include "fuzz/FuzzCommon.h"

namespace {

template <class T>
std::vector<uint8_t> encode(const T& value, size_t n) {
    ZeltoCore::Archive out(n, 0);
    out << value;
    ZELTO_FUZZ_CHECK(!out.failed());
    ZELTO_FUZZ_CHECK(out.position == n);
    return {out.data, out.data + n};
}

// A value that reads writes back into as many bytes as it took, and its written form is
// canonical: reading and writing it again changes nothing (a flag byte of 3 is written as 1).
template <class T>
void roundTrip(ZeltoCore::Archive& in) {
    const uint64_t start = in.position;
    T value{};
    in >> value;
    if (in.failed()) return;
    const uint64_t n = in.position - start;
    const std::vector<uint8_t> first = encode(value, n);
    ZeltoCore::Archive again;
    zelto_fuzz::viewOf(again, first.data(), first.size(), ZeltoCore::Archive::kCurrentVersion, 0);
    T copy{};
    again >> copy;
    ZELTO_FUZZ_CHECK(!again.failed());
    ZELTO_FUZZ_CHECK(encode(copy, n) == first);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    zelto_fuzz::init();
    ZeltoCore::Archive in;
    zelto_fuzz::viewOf(in, data, size, ZeltoCore::Archive::kCurrentVersion, 0);
    uint8_t op = 0;
    while (!in.failed() && in.read(&op, 1)) {
        switch (op % 16) {
            case 0:
                roundTrip<bool>(in);
                break;
            case 1:
                roundTrip<int32_t>(in);
                break;
            case 2:
                roundTrip<uint64_t>(in);
                break;
            case 3:
                roundTrip<double>(in);
                break;
            case 4:
                roundTrip<std::string>(in);
                break;
            case 5:
                roundTrip<std::vector<double>>(in);
                break;
            case 6:
                roundTrip<std::vector<std::string>>(in);
                break;
            case 7:
                roundTrip<Imath::Matrix44<double>>(in);
                break;
            case 8:
                roundTrip<Imath::Quat<float>>(in);
                break;
            case 9:
                roundTrip<Imath::Box<Imath::V3d>>(in);
                break;
            case 10:
                roundTrip<Imath::V2i>(in);
                break;
            case 11:
                roundTrip<Imath::Euler<double>>(in);
                break;
            case 12:
                roundTrip<std::vector<Imath::V3f>>(in);
                break;
            case 13:
                roundTrip<uint8_t>(in);
                break;
            case 14:
                roundTrip<std::vector<Imath::M44f>>(in);
                break;
            default:
                roundTrip<int16_t>(in);
                break;
        }
    }
    return 0;
}
