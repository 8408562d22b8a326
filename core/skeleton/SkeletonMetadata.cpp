// The skeleton value's hash, and the instances of the skeleton rows of the value type list.
#include "core/skeleton/SkeletonMetadata.h"

#include <cstdint>
#include <string>
#include <vector>

#include "core/metadata/internal/ValueTypeInstances.h"

namespace ZeltoCore {

void SkeletonTraits::hash(MurmurHash3& h, const Skeleton& s) {
    const unsigned short n = s.numJoints();
    const unsigned short noParent = 65535;
    h.append(n);
    for (unsigned short i = 0; i < n; ++i) {
        const Joint& j = s.joint(i);
        h.append(j.name().empty() ? std::string("noname") : j.name());
        h.append(j.id());
        h.append(j.rotation());
        h.append(j.translation());
        h.append(j.scale());
        h.append(j.parent() ? j.parent()->id() : noParent);
        h.append(j.numChildren());
        for (unsigned short c = 0; c < j.numChildren(); ++c)
            h.append(j.child(c)->id());
    }
    const std::vector<unsigned short> ids = s.jointMetadataIds();
    h.append(uint64_t(ids.size()));
    for (unsigned short id : ids) {
        h.append(id);
        s.jointMetadata(id).hash(h);
    }
    h.append(s.numFeet());
    for (unsigned short f = 0; f < s.numFeet(); ++f) {
        h.append(s.footIK(f)->id());
        h.append(s.footRoot(f)->id());
        h.append(s.footTip(f)->id());
    }
    // A skeleton without joints has no joint 0 to stand in for the pelvis, nor a root: id 0.
    h.append(s.numPelvises());
    for (unsigned short p = 0; p < s.numPelvises(); ++p)
        h.append(n ? s.pelvis(p).id() : static_cast<unsigned short>(0));
    h.append(n ? s.root()->id() : static_cast<unsigned short>(0));
}

}  // namespace ZeltoCore

ZELTO_INSTANTIATE_VALUE_TYPES(skeleton)
