// TypedArrayMetadata<T>: the metadata value holding a std::vector<T>, one type id and one
// contiguous run of elements in the archive.
//
// One generic class for every element type, driven by ValueTraits<T> like MetadataImpl<T>, whose
// type (the basic type) hands out single elements and blends of elements. Fixed-size elements
// move and hash as one block. Reading trusts no stored count: a count that cannot fit in the
// bytes left is refused before anything is allocated (deserialise false, archive failed()).
// Arrays keep the base comparisons: a distinct array is never equal, greater or less.
//
//   TypedArrayMetadata<double> weights({0.0, 10.0});
//   double w = weights.getBlendedBasicTypeValue(0, 1, 0.25);  // 2.5
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/metadata/BaseTypedArrayMetadata.h"
#include "core/metadata/MetadataImpl.h"
#include "utils/Export.h"

namespace ZeltoCore {

template <class T>
class ZELTO_API TypedArrayMetadata : public BaseTypedArrayMetadata {
    static_assert(hasValueTraits<T>, "no ValueTraits<T>: T is not a metadata value type");
    static_assert(ValueTraits<T>::arrayId != 0, "this value type has no array type");

public:
    using ValueType = T;
    using Traits = ValueTraits<T>;
    // The scalar metadata type of the elements.
    using BasicType = MetadataImpl<T>;

    TypedArrayMetadata() = default;
    explicit TypedArrayMetadata(const std::vector<T>& value) : m_value(value) {}
    TypedArrayMetadata(const TypedArrayMetadata& other) = default;
    TypedArrayMetadata& operator=(const TypedArrayMetadata& other) = default;
    ~TypedArrayMetadata() override;

    std::vector<T>& get() { return m_value; }
    const std::vector<T>& get() const { return m_value; }
    std::vector<T> value() const { return m_value; }
    void set(const std::vector<T>& value) { m_value = value; }

    static unsigned int staticTypeId() { return Traits::arrayId; }
    static std::string staticTypeStr() { return Traits::arrayName; }
    static std::string staticBasicTypeStr() { return Traits::name; }
    static Metadata* creator();

    std::string typeStr() const override;
    unsigned int typeId() const override;
    void copy(Metadata* other) override;
    std::shared_ptr<Metadata> clone() const override;
    size_t memSize() const override;
    void hash(MurmurHash3& hasher) const override;
    bool serialise(Archive& archive) const override;
    bool deserialise(Archive& archive) override;
    void toString(std::stringstream& stream) const override;
    std::shared_ptr<Metadata> cloneInto(ValueArena& arena) const override;

    std::string basicTypeStr() const override;
    // Element access and blends delivered as a new value of the basic type (made through the
    // factory) or into `result`, which must hold a value of the basic type. Indices are not
    // checked.
    std::shared_ptr<Metadata> getBasicTypeMetadata(size_t index) const override;
    void getBasicTypeMetadataInPlace(size_t index,
                                     std::shared_ptr<Metadata>& result) const override;
    std::shared_ptr<Metadata> getBlendedBasicTypeMetadata(size_t index1, size_t index2,
                                                          double weight) const override;
    void getBlendedBasicTypeMetadataInPlace(size_t index1, size_t index2, double weight,
                                            std::shared_ptr<Metadata>& result) const override;
    std::shared_ptr<Metadata> getDoubleBlendedBasicTypeMetadata(size_t index1, size_t index2,
                                                                double weight1, size_t index3,
                                                                size_t index4, double weight2,
                                                                double weight) const override;
    void getDoubleBlendedBasicTypeMetadataInPlace(size_t index1, size_t index2, double weight1,
                                                  size_t index3, size_t index4, double weight2,
                                                  double weight,
                                                  std::shared_ptr<Metadata>& result) const override;
    size_t size() const override;
    void reverse() override;
    bool isStatic() const override;

    // blend(blend(e[index1], e[index2], weight1), blend(e[index3], e[index4], weight2), weight).
    virtual T getDoubleBlendedBasicTypeMetadataValue(size_t index1, size_t index2, double weight1,
                                                     size_t index3, size_t index4, double weight2,
                                                     double weight) const;

    T getBasicTypeValue(size_t index) const;
    // Element index1 towards element index2; the weight is used in single precision.
    T getBlendedBasicTypeValue(size_t index1, size_t index2, double weight) const;

    // The element comparison of isStatic(): within 1e-5, or exact, depending on the type.
    bool equalWithAbsError(const T& a, const T& b) const;

private:
    std::shared_ptr<Metadata> makeBasic(const T& value) const;

    std::vector<T> m_value;
};

// Instantiated once, in the library, for every row of the value type list that has an array
// type; short names as registered (DoubleArrayMetadata, ...).
#define ZELTO_DECLARE_ARRAY_(want, layer, group, T, Name, arrays)                        \
    ZELTO_VALUE_WHEN(                                                                    \
        layer, want,                                                                     \
        ZELTO_VALUE_WHEN(arrays, withArray, extern template class TypedArrayMetadata<T>; \
                         using Name##ArrayMetadata = TypedArrayMetadata<T>;))
#define ZELTO_DECLARE_ARRAYS(layer) ZELTO_VALUE_TYPES(ZELTO_DECLARE_ARRAY_, layer)

ZELTO_DECLARE_ARRAYS(metadata)

}  // namespace ZeltoCore
