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
#include "core/metadata/ValueTypeList.h"
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
    std::shared_ptr<Metadata> cloneInto(ValueArena& arena) const override;

private:
    // The value of `other` when it is a distinct value of this type, else null.
    const T* comparable(Metadata* other) const;
    template <class Ptr>
    bool blend(const std::vector<Ptr>& values, const std::vector<double>& weights);

    T m_value;
};

// Instantiated once, in the library, for every row of the value type list; short names as
// registered (DoubleMetadata, ...). A layer above metadata declares its own rows the same way.
#define ZELTO_DECLARE_SCALAR_(want, layer, group, T, Name, arrays)       \
    ZELTO_VALUE_WHEN(layer, want, extern template class MetadataImpl<T>; \
                     using Name##Metadata = MetadataImpl<T>;)
#define ZELTO_DECLARE_SCALARS(layer) ZELTO_VALUE_TYPES(ZELTO_DECLARE_SCALAR_, layer)

ZELTO_DECLARE_SCALARS(metadata)

}  // namespace ZeltoCore
