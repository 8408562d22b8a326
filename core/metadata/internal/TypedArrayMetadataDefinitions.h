// Member definitions of TypedArrayMetadata<T>, included only by the sources that instantiate it.
#pragma once

#include <algorithm>
#include <cassert>

#include "core/metadata/MetadataFactory.h"
#include "core/metadata/TypedArrayMetadata.h"
#include "core/metadata/internal/MetadataImplDefinitions.h"

namespace ZeltoCore {

template <class T>
TypedArrayMetadata<T>::~TypedArrayMetadata() = default;

template <class T>
Metadata* TypedArrayMetadata<T>::creator() {
    return new TypedArrayMetadata();
}

template <class T>
std::string TypedArrayMetadata<T>::typeStr() const {
    return Traits::arrayName;
}

template <class T>
unsigned int TypedArrayMetadata<T>::typeId() const {
    return Traits::arrayId;
}

template <class T>
void TypedArrayMetadata<T>::copy(Metadata* other) {
    if (other && other->typeId() == Traits::arrayId)
        m_value = static_cast<TypedArrayMetadata*>(other)->m_value;
}

template <class T>
std::shared_ptr<Metadata> TypedArrayMetadata<T>::clone() const {
    return std::make_shared<TypedArrayMetadata>(*this);
}

template <class T>
std::shared_ptr<Metadata> TypedArrayMetadata<T>::cloneInto(ValueArena& arena) const {
    return arena.make<TypedArrayMetadata>(*this);
}

template <class T>
size_t TypedArrayMetadata<T>::memSize() const {
    return sizeof(uint32_t) + sizeof(uint64_t) + Traits::arrayBytes(m_value);
}

template <class T>
void TypedArrayMetadata<T>::hash(MurmurHash3& hasher) const {
    Traits::hashArray(hasher, m_value);
}

template <class T>
bool TypedArrayMetadata<T>::serialise(Archive& archive) const {
    const bool wasFailed = archive.failed();
    archive << static_cast<uint32_t>(Traits::arrayId) << static_cast<uint64_t>(m_value.size());
    Traits::writeArray(archive, m_value);
    return wasFailed || !archive.failed();
}

template <class T>
bool TypedArrayMetadata<T>::deserialise(Archive& archive) {
    const bool wasFailed = archive.failed();
    archive.skip(sizeof(uint32_t));  // the type id; the reader chose this type from it
    uint64_t count = 0;
    if (archive.readCount(count, Traits::kArrayMinBytes)) {
        if constexpr (readsCountedArray<Traits, T>) {
            Traits::readArray(archive, m_value, count);
        } else {
            m_value.resize(count);
            Traits::readArray(archive, m_value);
        }
    }
    return wasFailed || !archive.failed();
}

template <class T>
void TypedArrayMetadata<T>::toString(std::stringstream& stream) const {
    if constexpr (Traits::kHasText) {
        stream << '(';
        for (size_t i = 0; i < m_value.size(); ++i) {
            if (i) stream << ", ";
            Traits::text(stream, m_value[i]);
        }
        stream << ')';
    }
}

template <class T>
std::string TypedArrayMetadata<T>::basicTypeStr() const {
    return Traits::name;
}

template <class T>
T TypedArrayMetadata<T>::getBasicTypeValue(size_t index) const {
    return m_value[index];
}

template <class T>
T TypedArrayMetadata<T>::getBlendedBasicTypeValue(size_t index1, size_t index2,
                                                  double weight) const {
    if constexpr (Traits::kBlendPicksFirst) {
        return m_value[index1];
    } else {
        return Traits::lerp(m_value[index1], m_value[index2], static_cast<float>(weight));
    }
}

template <class T>
T TypedArrayMetadata<T>::getDoubleBlendedBasicTypeMetadataValue(size_t index1, size_t index2,
                                                                double weight1, size_t index3,
                                                                size_t index4, double weight2,
                                                                double weight) const {
    if constexpr (Traits::kBlendPicksFirst) {
        return m_value[index1];
    } else {
        return Traits::lerp(getBlendedBasicTypeValue(index1, index2, weight1),
                            getBlendedBasicTypeValue(index3, index4, weight2),
                            static_cast<float>(weight));
    }
}

template <class T>
std::shared_ptr<Metadata> TypedArrayMetadata<T>::makeBasic(const T& value) const {
    std::shared_ptr<Metadata> result = MetadataFactory::instance().createMetadata(Traits::name);
    auto* basic = dynamic_cast<BasicType*>(result.get());
    if (!basic) return nullptr;  // the basic type is not registered (or replaced)
    basic->get() = value;
    return result;
}

// The held value of the caller's metadata of the basic type: the InPlace forms assign into it
// (reusing its storage) instead of creating a value.
template <class T>
T& basicValueOf(std::shared_ptr<Metadata>& result) {
    assert(dynamic_cast<MetadataImpl<T>*>(result.get()));
    return static_cast<MetadataImpl<T>*>(result.get())->get();
}

template <class T>
std::shared_ptr<Metadata> TypedArrayMetadata<T>::getBasicTypeMetadata(size_t index) const {
    return makeBasic(m_value[index]);
}

template <class T>
void TypedArrayMetadata<T>::getBasicTypeMetadataInPlace(size_t index,
                                                        std::shared_ptr<Metadata>& result) const {
    basicValueOf<T>(result) = m_value[index];
}

template <class T>
std::shared_ptr<Metadata> TypedArrayMetadata<T>::getBlendedBasicTypeMetadata(size_t index1,
                                                                             size_t index2,
                                                                             double weight) const {
    return makeBasic(getBlendedBasicTypeValue(index1, index2, weight));
}

template <class T>
void TypedArrayMetadata<T>::getBlendedBasicTypeMetadataInPlace(
    size_t index1, size_t index2, double weight, std::shared_ptr<Metadata>& result) const {
    if constexpr (Traits::kBlendPicksFirst) {
        basicValueOf<T>(result) = m_value[index1];
    } else {
        basicValueOf<T>(result) = getBlendedBasicTypeValue(index1, index2, weight);
    }
}

template <class T>
std::shared_ptr<Metadata> TypedArrayMetadata<T>::getDoubleBlendedBasicTypeMetadata(
    size_t index1, size_t index2, double weight1, size_t index3, size_t index4, double weight2,
    double weight) const {
    return makeBasic(getDoubleBlendedBasicTypeMetadataValue(index1, index2, weight1, index3, index4,
                                                            weight2, weight));
}

template <class T>
void TypedArrayMetadata<T>::getDoubleBlendedBasicTypeMetadataInPlace(
    size_t index1, size_t index2, double weight1, size_t index3, size_t index4, double weight2,
    double weight, std::shared_ptr<Metadata>& result) const {
    if constexpr (Traits::kBlendPicksFirst) {
        basicValueOf<T>(result) = m_value[index1];
    } else {
        basicValueOf<T>(result) = getDoubleBlendedBasicTypeMetadataValue(
            index1, index2, weight1, index3, index4, weight2, weight);
    }
}

template <class T>
size_t TypedArrayMetadata<T>::size() const {
    return m_value.size();
}

template <class T>
void TypedArrayMetadata<T>::reverse() {
    std::reverse(m_value.begin(), m_value.end());
}

template <class T>
bool TypedArrayMetadata<T>::equalWithAbsError(const T& a, const T& b) const {
    return Traits::elementsEqual(a, b);
}

template <class T>
bool TypedArrayMetadata<T>::isStatic() const {
    if (m_value.empty()) return false;
    for (size_t i = 1; i < m_value.size(); ++i) {
        if (!Traits::elementsEqual(m_value[i], m_value[0])) return false;
    }
    return true;
}

}  // namespace ZeltoCore
