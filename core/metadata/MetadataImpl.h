// MetadataImpl<T>: the metadata value holding one T (a number, flag, string, Imath value, hash,
// curve, mesh or image).
//
// One generic class for every value type; what differs between types (default value, archive
// layout, hash, comparison, text and weighted blend) comes from ValueTraits<T>. serialise writes
// the 32-bit type id and then the value; deserialise steps over the id without checking it and
// returns false only when the archive ran out (the archive's failed() flag is then set).
// Comparisons with null or another type answer false.
//
//   auto v = std::make_shared<MetadataImpl<Imath::V3d>>(Imath::V3d(1, 2, 3));
//   std::stringstream s; v->toString(s);  // (1, 2, 3)
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/metadata/GeometryTraits.h"
#include "core/metadata/ImathTraits.h"
#include "core/metadata/Metadata.h"
#include "core/metadata/NumberTraits.h"
#include "core/metadata/TextTraits.h"
#include "utils/Export.h"

namespace ZeltoCore {

template <class T>
class ZELTO_API MetadataImpl : public Metadata {
    static_assert(hasValueTraits<T>, "no ValueTraits<T>: T is not a metadata value type");

public:
    using ValueType = T;
    using Traits = ValueTraits<T>;

    MetadataImpl() : m_value(Traits::defaultValue()) {}
    explicit MetadataImpl(const T& value) : m_value(value) {}
    MetadataImpl(const MetadataImpl& other) = default;
    MetadataImpl& operator=(const MetadataImpl& other) = default;
    ~MetadataImpl() override;

    T& get() { return m_value; }
    const T& get() const { return m_value; }
    T value() const { return m_value; }
    void set(const T& value) { m_value = value; }

    static unsigned int staticTypeId() { return Traits::id; }
    static std::string staticTypeStr() { return Traits::name; }
    static Metadata* creator();

    std::string typeStr() const override;
    unsigned int typeId() const override;
    void copy(Metadata* other) override;
    std::shared_ptr<Metadata> clone() const override;
    size_t memSize() const override;
    bool setWithValuesAndWeights(const std::vector<Metadata*>& values,
                                 const std::vector<double>& weights) override;
    bool setWithValuesAndWeights(const std::vector<std::shared_ptr<Metadata>>& values,
                                 const std::vector<double>& weights) override;
    void hash(MurmurHash3& hasher) const override;
    bool isEqual(Metadata* other, double tolerance) const override;
    bool isGreater(Metadata* other) const override;
    bool isLess(Metadata* other) const override;
    bool serialise(Archive& archive) const override;
    bool deserialise(Archive& archive) override;
    void toString(std::stringstream& stream) const override;

private:
    // The value of `other` when it is a distinct value of this type, else null.
    const T* comparable(Metadata* other) const;
    template <class Ptr>
    bool blend(const std::vector<Ptr>& values, const std::vector<double>& weights);

    T m_value;
};

// Instantiated once, in the library.
extern template class MetadataImpl<bool>;
extern template class MetadataImpl<char>;
extern template class MetadataImpl<unsigned char>;
extern template class MetadataImpl<short>;
extern template class MetadataImpl<unsigned short>;
extern template class MetadataImpl<int>;
extern template class MetadataImpl<unsigned int>;
extern template class MetadataImpl<int64_t>;
extern template class MetadataImpl<uint64_t>;
extern template class MetadataImpl<float>;
extern template class MetadataImpl<double>;
extern template class MetadataImpl<std::string>;
extern template class MetadataImpl<MurmurHash3>;
extern template class MetadataImpl<Imath::V2d>;
extern template class MetadataImpl<Imath::V2i>;
extern template class MetadataImpl<Imath::V2f>;
extern template class MetadataImpl<Imath::V3d>;
extern template class MetadataImpl<Imath::V3i>;
extern template class MetadataImpl<Imath::V3f>;
extern template class MetadataImpl<Imath::V4d>;
extern template class MetadataImpl<Imath::V4i>;
extern template class MetadataImpl<Imath::V4f>;
extern template class MetadataImpl<Imath::M44d>;
extern template class MetadataImpl<Imath::M44f>;
extern template class MetadataImpl<Imath::Quatd>;
extern template class MetadataImpl<Imath::Quatf>;
extern template class MetadataImpl<Imath::Eulerd>;
extern template class MetadataImpl<Imath::Eulerf>;
extern template class MetadataImpl<Imath::Box2d>;
extern template class MetadataImpl<Imath::Box2i>;
extern template class MetadataImpl<Imath::Box2f>;
extern template class MetadataImpl<Imath::Box3d>;
extern template class MetadataImpl<Imath::Box3i>;
extern template class MetadataImpl<Imath::Box3f>;
extern template class MetadataImpl<ZeltoUtils::Mesh>;
extern template class MetadataImpl<ZeltoUtils::Image>;
extern template class MetadataImpl<ZeltoUtils::Curve>;
extern template class MetadataImpl<ZeltoUtils::SampledCurve>;

// Short names, as registered.
using BoolMetadata = MetadataImpl<bool>;
using CharMetadata = MetadataImpl<char>;
using UCharMetadata = MetadataImpl<unsigned char>;
using ShortMetadata = MetadataImpl<short>;
using UShortMetadata = MetadataImpl<unsigned short>;
using IntMetadata = MetadataImpl<int>;
using UIntMetadata = MetadataImpl<unsigned int>;
using Int64Metadata = MetadataImpl<int64_t>;
using UInt64Metadata = MetadataImpl<uint64_t>;
using FloatMetadata = MetadataImpl<float>;
using DoubleMetadata = MetadataImpl<double>;
using StringMetadata = MetadataImpl<std::string>;
using HashMetadata = MetadataImpl<MurmurHash3>;
using Vector2Metadata = MetadataImpl<Imath::V2d>;
using Vector2iMetadata = MetadataImpl<Imath::V2i>;
using Vector2fMetadata = MetadataImpl<Imath::V2f>;
using Vector3Metadata = MetadataImpl<Imath::V3d>;
using Vector3iMetadata = MetadataImpl<Imath::V3i>;
using Vector3fMetadata = MetadataImpl<Imath::V3f>;
using Vector4Metadata = MetadataImpl<Imath::V4d>;
using Vector4iMetadata = MetadataImpl<Imath::V4i>;
using Vector4fMetadata = MetadataImpl<Imath::V4f>;
using MatrixMetadata = MetadataImpl<Imath::M44d>;
using MatrixfMetadata = MetadataImpl<Imath::M44f>;
using QuaternionMetadata = MetadataImpl<Imath::Quatd>;
using QuaternionfMetadata = MetadataImpl<Imath::Quatf>;
using EulerMetadata = MetadataImpl<Imath::Eulerd>;
using EulerfMetadata = MetadataImpl<Imath::Eulerf>;
using Box2Metadata = MetadataImpl<Imath::Box2d>;
using Box2iMetadata = MetadataImpl<Imath::Box2i>;
using Box2fMetadata = MetadataImpl<Imath::Box2f>;
using Box3Metadata = MetadataImpl<Imath::Box3d>;
using Box3iMetadata = MetadataImpl<Imath::Box3i>;
using Box3fMetadata = MetadataImpl<Imath::Box3f>;
using MeshMetadata = MetadataImpl<ZeltoUtils::Mesh>;
using ImageMetadata = MetadataImpl<ZeltoUtils::Image>;
using CurveMetadata = MetadataImpl<ZeltoUtils::Curve>;
using SampledCurveMetadata = MetadataImpl<ZeltoUtils::SampledCurve>;

}  // namespace ZeltoCore
