// SkeletonLod: a level-of-detail record supplied by the caller.
//
// The library only stores, copies and assigns these with their skeleton; it does not interpret,
// serialise or hash them. The field meanings belong to the caller.
//
//   skeleton.lods().push_back(SkeletonLod{{0, 1, 2}, 0, true, false});
//   size_t n = skeleton.lods().size();
#pragma once

#include <cstdint>
#include <vector>

namespace ZeltoCore {

struct SkeletonLod {
    std::vector<unsigned short> jointIds;
    uint64_t value = 0;
    bool flag0 = false;
    bool flag1 = false;
};

}  // namespace ZeltoCore
