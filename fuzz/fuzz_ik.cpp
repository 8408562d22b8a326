// The IK solvers on the demo character, fed random poses, targets, pole vectors, chains and
// settings. Whatever they are given, no joint pose may come out with a NaN or infinite value
// that it did not have before.
#include <cmath>

#include "fuzz/FuzzCommon.h"
#include "tools/DemoSkeleton.h"

namespace {

// Reads values off the fuzzer's bytes; zeros once they run out.
struct Input {
    const uint8_t* data;
    size_t size;
    template <class T>
    T take() {
        T v{};
        const size_t n = size < sizeof(T) ? size : sizeof(T);
        if (n) std::memcpy(&v, data, n);
        data += n;
        size -= n;
        return v;
    }
    Imath::V3d vec() {
        const double x = take<double>(), y = take<double>(), z = take<double>();
        return Imath::V3d(x, y, z);
    }
    std::vector<unsigned short> ids(unsigned short limit) {
        std::vector<unsigned short> out(take<uint8_t>() % 8);
        for (unsigned short& id : out)
            id = take<uint8_t>() % limit;
        return out;
    }
};

bool finite(const ZeltoCore::JointPose& p) {
    const double values[] = {p.rotation.r,    p.rotation.v.x,  p.rotation.v.y,  p.rotation.v.z,
                             p.translation.x, p.translation.y, p.translation.z, p.scale.x,
                             p.scale.y,       p.scale.z};
    for (double v : values)
        if (!std::isfinite(v)) return false;
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace ZeltoCore;
    zelto_fuzz::init();
    static const Skeleton skeleton = ZeltoTool::buildCharacter();
    Input in{data, size};
    const uint8_t solver = in.take<uint8_t>();
    // Ids may run past the skeleton (limit 20 of 16 joints) and poses may be short.
    const unsigned short limit = 20;
    Pose pose(&skeleton, true);
    pose.setInParentSpace((solver & 0x80) != 0);
    if (in.take<uint8_t>() == 0xff) pose.setNumberJoints(3);
    for (int n = in.take<uint8_t>() % 4; n > 0; --n) {
        const unsigned short id = in.take<uint8_t>() % skeleton.numJoints();
        if (id >= pose.numJoints()) continue;
        JointPose& p = pose.jointPose(id);
        const Imath::V3d axis = in.vec();
        p.rotation.setAxisAngle(axis, in.take<double>());
        if (in.take<uint8_t>() & 1) p.translation = in.vec();
    }
    Imath::V3d target = in.vec();
    Imath::V3d pole = in.vec();
    Imath::V3d* polePtr = (in.take<uint8_t>() & 1) ? &pole : nullptr;
    const unsigned short a = in.take<uint8_t>() % limit, b = in.take<uint8_t>() % limit,
                         c = in.take<uint8_t>() % limit;
    const double stretch = in.take<double>(), soft = in.take<double>();
    const double tolerance = in.take<double>();
    const unsigned iterations = in.take<uint8_t>(), steps = in.take<uint8_t>() % 16;
    std::vector<unsigned short> mids = in.ids(limit);
    std::vector<unsigned short> stretchJoints = in.ids(limit);

    // A pose given with values that are not finite stays as it was given; the solvers must not
    // make any other joint so.
    std::vector<bool> wasFinite(pose.numJoints());
    for (unsigned short j = 0; j < pose.numJoints(); ++j)
        wasFinite[j] = finite(pose.jointPose(j));

    switch (solver % 6) {
        case 0:
            solveTwoJointsIK(pose, skeleton, target, a, b, c, stretch, soft > 0, soft, polePtr);
            break;
        case 1:
            solveTwoJointsIKNoPoleVector(pose, skeleton, target, a, b, c, stretch, soft > 0, soft);
            break;
        case 2:
            fabrikIKSolver(pose, skeleton, target, a, mids, c, tolerance, iterations, steps,
                           polePtr);
            break;
        case 3:
            mids.insert(mids.begin(), a);
            mids.push_back(c);
            fabrikIKSolver2(pose, skeleton, target, mids, stretch, tolerance, iterations, steps,
                            polePtr);
            break;
        case 4:
            fabrikIK3DSolver(pose, skeleton, target, a, mids, stretchJoints, c, tolerance,
                             iterations, steps, polePtr);
            break;
        default:
            sphereIKSolver(pose, skeleton, target, a, mids, c, polePtr);
            break;
    }
    for (unsigned short j = 0; j < pose.numJoints(); ++j)
        ZELTO_FUZZ_CHECK(!wasFinite[j] || finite(pose.jointPose(j)));
    return 0;
}
