// Table entries of the numbers, strings and the hash value.
#include "python/src/ValueTable.h"

namespace zelto_py {

void addNumberTypes(std::vector<ValueType>& out) {
    addScalarsAndArrays<bool, char, unsigned char, short, unsigned short, int, unsigned int,
                        int64_t, uint64_t, float, double, std::string>(out);
    out.push_back(scalarType<ZeltoCore::MurmurHash3>());
}

}  // namespace zelto_py
