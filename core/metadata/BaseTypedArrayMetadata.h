// BaseTypedArrayMetadata: the common base of every typed array, adding element access, blending
// of elements into scalar values, and array queries after the Metadata operations.
//
//   auto* arr = dynamic_cast<BaseTypedArrayMetadata*>(value.get());
//   if (arr) std::shared_ptr<Metadata> first = arr->getBasicTypeMetadata(0);
#pragma once

#include "core/metadata/Metadata.h"

namespace ZeltoCore {

class ZELTO_API BaseTypedArrayMetadata : public Metadata {
public:
    BaseTypedArrayMetadata() = default;
    ~BaseTypedArrayMetadata() override;

    bool isArray() const override;

    // Type name of the element's scalar metadata type.
    virtual std::string basicTypeStr() const = 0;
    virtual std::shared_ptr<Metadata> getBasicTypeMetadata(size_t index) const = 0;
    virtual void getBasicTypeMetadataInPlace(size_t index,
                                             std::shared_ptr<Metadata>& result) const = 0;
    virtual std::shared_ptr<Metadata> getBlendedBasicTypeMetadata(size_t index1, size_t index2,
                                                                  double weight) const = 0;
    virtual void getBlendedBasicTypeMetadataInPlace(size_t index1, size_t index2, double weight,
                                                    std::shared_ptr<Metadata>& result) const = 0;
    // blend(blend(e[index1], e[index2], weight1), blend(e[index3], e[index4], weight2), weight).
    virtual std::shared_ptr<Metadata> getDoubleBlendedBasicTypeMetadata(
        size_t index1, size_t index2, double weight1, size_t index3, size_t index4, double weight2,
        double weight) const = 0;
    virtual void getDoubleBlendedBasicTypeMetadataInPlace(
        size_t index1, size_t index2, double weight1, size_t index3, size_t index4, double weight2,
        double weight, std::shared_ptr<Metadata>& result) const = 0;
    virtual size_t size() const = 0;
    virtual void reverse() = 0;
    // All elements equal within a fixed tolerance.
    virtual bool isStatic() const = 0;

protected:
    BaseTypedArrayMetadata(const BaseTypedArrayMetadata&) = default;
    BaseTypedArrayMetadata& operator=(const BaseTypedArrayMetadata&) = default;
};

}  // namespace ZeltoCore
