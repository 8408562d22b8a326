#include "core/metadata/Metadata.h"

#include "core/metadata/BaseTypedArrayMetadata.h"

namespace ZeltoCore {

Metadata::~Metadata() = default;

bool Metadata::setWithValuesAndWeights(const std::vector<Metadata*>&, const std::vector<double>&) {
    return false;
}

bool Metadata::setWithValuesAndWeights(const std::vector<std::shared_ptr<Metadata>>&,
                                       const std::vector<double>&) {
    return false;
}

bool Metadata::isEqual(Metadata* other, double) const {
    return other == this;
}
bool Metadata::isGreater(Metadata*) const {
    return false;
}
bool Metadata::isLess(Metadata*) const {
    return false;
}
bool Metadata::isArray() const {
    return false;
}
std::shared_ptr<Metadata> Metadata::cloneInto(ValueArena&) const {
    return clone();
}

BaseTypedArrayMetadata::~BaseTypedArrayMetadata() = default;
bool BaseTypedArrayMetadata::isArray() const {
    return true;
}

}  // namespace ZeltoCore
