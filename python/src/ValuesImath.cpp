// Table entries of the Imath value types and their arrays.
#include "python/src/ValueTable.h"

namespace zelto_py {

void addImathTypes(std::vector<ValueType>& out) {
    using namespace Imath;
    addScalarsAndArrays<V2d, V2i, V2f, V3d, V3i, V3f, V4d, V4i, V4f, M44d, M44f, Quatd, Quatf,
                        Eulerd, Eulerf, Box2d, Box2i, Box2f, Box3d, Box3i, Box3f>(out);
}

}  // namespace zelto_py
