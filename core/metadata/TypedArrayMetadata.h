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
                                                                double weight, size_t index3,
                                                                size_t index4, double weight2,
                                                                double weight3) const override;
    void getDoubleBlendedBasicTypeMetadataInPlace(size_t index1, size_t index2, double weight,
                                                  size_t index3, size_t index4, double weight2,
                                                  double weight3,
                                                  std::shared_ptr<Metadata>& result) const override;
    size_t size() const override;
    void reverse() override;
    bool isStatic() const override;

    // blend(blend(e[index1], e[index2], weight), blend(e[index3], e[index4], weight2), weight3).
    virtual T getDoubleBlendedBasicTypeMetadataValue(size_t index1, size_t index2, double weight,
                                                     size_t index3, size_t index4, double weight2,
                                                     double weight3) const;

    T getBasicTypeValue(size_t index) const;
    // Element index1 towards element index2; the weight is used in single precision.
    T getBlendedBasicTypeValue(size_t index1, size_t index2, double weight) const;

    // The element comparison of isStatic(): within 1e-5, or exact, depending on the type.
    bool equalWithAbsError(const T& a, const T& b) const;

private:
    std::shared_ptr<Metadata> makeBasic(const T& value) const;

    std::vector<T> m_value;
};

// Instantiated once, in the library.
extern template class TypedArrayMetadata<bool>;
extern template class TypedArrayMetadata<char>;
extern template class TypedArrayMetadata<unsigned char>;
extern template class TypedArrayMetadata<short>;
extern template class TypedArrayMetadata<unsigned short>;
extern template class TypedArrayMetadata<int>;
extern template class TypedArrayMetadata<unsigned int>;
extern template class TypedArrayMetadata<int64_t>;
extern template class TypedArrayMetadata<uint64_t>;
extern template class TypedArrayMetadata<float>;
extern template class TypedArrayMetadata<double>;
extern template class TypedArrayMetadata<std::string>;
extern template class TypedArrayMetadata<Imath::V2d>;
extern template class TypedArrayMetadata<Imath::V2i>;
extern template class TypedArrayMetadata<Imath::V2f>;
extern template class TypedArrayMetadata<Imath::V3d>;
extern template class TypedArrayMetadata<Imath::V3i>;
extern template class TypedArrayMetadata<Imath::V3f>;
extern template class TypedArrayMetadata<Imath::V4d>;
extern template class TypedArrayMetadata<Imath::V4i>;
extern template class TypedArrayMetadata<Imath::V4f>;
extern template class TypedArrayMetadata<Imath::M44d>;
extern template class TypedArrayMetadata<Imath::M44f>;
extern template class TypedArrayMetadata<Imath::Quatd>;
extern template class TypedArrayMetadata<Imath::Quatf>;
extern template class TypedArrayMetadata<Imath::Eulerd>;
extern template class TypedArrayMetadata<Imath::Eulerf>;
extern template class TypedArrayMetadata<Imath::Box2d>;
extern template class TypedArrayMetadata<Imath::Box2i>;
extern template class TypedArrayMetadata<Imath::Box2f>;
extern template class TypedArrayMetadata<Imath::Box3d>;
extern template class TypedArrayMetadata<Imath::Box3i>;
extern template class TypedArrayMetadata<Imath::Box3f>;
extern template class TypedArrayMetadata<ZeltoUtils::Mesh>;
extern template class TypedArrayMetadata<ZeltoUtils::Curve>;
extern template class TypedArrayMetadata<ZeltoUtils::SampledCurve>;

// Short names, as registered.
using BoolArrayMetadata = TypedArrayMetadata<bool>;
using CharArrayMetadata = TypedArrayMetadata<char>;
using UCharArrayMetadata = TypedArrayMetadata<unsigned char>;
using ShortArrayMetadata = TypedArrayMetadata<short>;
using UShortArrayMetadata = TypedArrayMetadata<unsigned short>;
using IntArrayMetadata = TypedArrayMetadata<int>;
using UIntArrayMetadata = TypedArrayMetadata<unsigned int>;
using Int64ArrayMetadata = TypedArrayMetadata<int64_t>;
using UInt64ArrayMetadata = TypedArrayMetadata<uint64_t>;
using FloatArrayMetadata = TypedArrayMetadata<float>;
using DoubleArrayMetadata = TypedArrayMetadata<double>;
using StringArrayMetadata = TypedArrayMetadata<std::string>;
using Vector2ArrayMetadata = TypedArrayMetadata<Imath::V2d>;
using Vector2iArrayMetadata = TypedArrayMetadata<Imath::V2i>;
using Vector2fArrayMetadata = TypedArrayMetadata<Imath::V2f>;
using Vector3ArrayMetadata = TypedArrayMetadata<Imath::V3d>;
using Vector3iArrayMetadata = TypedArrayMetadata<Imath::V3i>;
using Vector3fArrayMetadata = TypedArrayMetadata<Imath::V3f>;
using Vector4ArrayMetadata = TypedArrayMetadata<Imath::V4d>;
using Vector4iArrayMetadata = TypedArrayMetadata<Imath::V4i>;
using Vector4fArrayMetadata = TypedArrayMetadata<Imath::V4f>;
using MatrixArrayMetadata = TypedArrayMetadata<Imath::M44d>;
using MatrixfArrayMetadata = TypedArrayMetadata<Imath::M44f>;
using QuaternionArrayMetadata = TypedArrayMetadata<Imath::Quatd>;
using QuaternionfArrayMetadata = TypedArrayMetadata<Imath::Quatf>;
using EulerArrayMetadata = TypedArrayMetadata<Imath::Eulerd>;
using EulerfArrayMetadata = TypedArrayMetadata<Imath::Eulerf>;
using Box2ArrayMetadata = TypedArrayMetadata<Imath::Box2d>;
using Box2iArrayMetadata = TypedArrayMetadata<Imath::Box2i>;
using Box2fArrayMetadata = TypedArrayMetadata<Imath::Box2f>;
using Box3ArrayMetadata = TypedArrayMetadata<Imath::Box3d>;
using Box3iArrayMetadata = TypedArrayMetadata<Imath::Box3i>;
using Box3fArrayMetadata = TypedArrayMetadata<Imath::Box3f>;
using MeshArrayMetadata = TypedArrayMetadata<ZeltoUtils::Mesh>;
using CurveArrayMetadata = TypedArrayMetadata<ZeltoUtils::Curve>;
using SampledCurveArrayMetadata = TypedArrayMetadata<ZeltoUtils::SampledCurve>;

}  // namespace ZeltoCore
