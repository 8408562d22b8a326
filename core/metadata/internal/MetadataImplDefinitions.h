// Member definitions of MetadataImpl<T>, included only by the sources that instantiate it.
#pragma once

#include "core/metadata/MetadataImpl.h"
#include "core/metadata/ValueArena.h"

namespace ZeltoCore {

template <class T>
MetadataImpl<T>::~MetadataImpl() = default;

template <class T>
Metadata* MetadataImpl<T>::creator() {
    return new MetadataImpl();
}

template <class T>
std::string MetadataImpl<T>::typeStr() const {
    return Traits::name;
}

template <class T>
unsigned int MetadataImpl<T>::typeId() const {
    return Traits::id;
}

template <class T>
void MetadataImpl<T>::copy(Metadata* other) {
    // A value of another type (or none) changes nothing: the ids are unique per class.
    if (other && other->typeId() == Traits::id)
        m_value = static_cast<MetadataImpl*>(other)->m_value;
}

template <class T>
std::shared_ptr<Metadata> MetadataImpl<T>::clone() const {
    return std::make_shared<MetadataImpl>(*this);
}

template <class T>
std::shared_ptr<Metadata> MetadataImpl<T>::cloneInto(ValueArena& arena) const {
    return arena.make<MetadataImpl>(*this);
}

template <class T>
size_t MetadataImpl<T>::memSize() const {
    return sizeof(uint32_t) + Traits::size(m_value);
}

template <class T>
template <class Ptr>
bool MetadataImpl<T>::blend(const std::vector<Ptr>& values, const std::vector<double>& weights) {
    if constexpr (!Traits::kWeighted) {
        return false;
    } else {
        if (values.empty() || values.size() != weights.size()) return false;
        for (const Ptr& v : values) {
            if (!v || v->typeId() != Traits::id) return false;  // checked before anything changes
        }
        // Each term in order from the first: some types round every term.
        auto valueOf = [&](size_t i) -> const T& {
            return static_cast<const MetadataImpl*>(&*values[i])->m_value;
        };
        typename Traits::Acc acc = Traits::weightedTerm(valueOf(0), weights[0]);
        for (size_t i = 1; i < values.size(); ++i) {
            Traits::weightedAdd(acc, Traits::weightedTerm(valueOf(i), weights[i]));
        }
        Traits::weightedStore(acc, m_value);
        return true;
    }
}

template <class T>
bool MetadataImpl<T>::setWithValuesAndWeights(const std::vector<Metadata*>& values,
                                              const std::vector<double>& weights) {
    return blend(values, weights);
}

template <class T>
bool MetadataImpl<T>::setWithValuesAndWeights(const std::vector<std::shared_ptr<Metadata>>& values,
                                              const std::vector<double>& weights) {
    return blend(values, weights);
}

template <class T>
void MetadataImpl<T>::hash(MurmurHash3& hasher) const {
    Traits::hash(hasher, m_value);
}

template <class T>
const T* MetadataImpl<T>::comparable(Metadata* other) const {
    if (!other || other == this || other->typeId() != Traits::id) return nullptr;
    return &static_cast<const MetadataImpl*>(other)->m_value;
}

template <class T>
bool MetadataImpl<T>::isEqual(Metadata* other, double tolerance) const {
    if (other == this) return true;
    const T* o = comparable(other);
    return o && Traits::equal(m_value, *o, tolerance);
}

template <class T>
bool MetadataImpl<T>::isGreater(Metadata* other) const {
    if constexpr (Traits::kOrdered) {
        const T* o = comparable(other);
        return o && Traits::greater(m_value, *o);
    } else {
        return Metadata::isGreater(other);
    }
}

template <class T>
bool MetadataImpl<T>::isLess(Metadata* other) const {
    if constexpr (Traits::kOrdered) {
        const T* o = comparable(other);
        return o && Traits::less(m_value, *o);
    } else {
        return Metadata::isLess(other);
    }
}

template <class T>
bool MetadataImpl<T>::serialise(Archive& archive) const {
    if constexpr (Traits::kResizeEmptyArchive) {
        if (archive.size == 0) archive.resize(memSize());
    }
    const bool wasFailed = archive.failed();
    archive << static_cast<uint32_t>(Traits::id);
    Traits::write(archive, m_value);
    return wasFailed || !archive.failed();
}

template <class T>
bool MetadataImpl<T>::deserialise(Archive& archive) {
    const bool wasFailed = archive.failed();
    archive.skip(sizeof(uint32_t));  // the type id; the reader chose this type from it
    Traits::read(archive, m_value);
    return wasFailed || !archive.failed();
}

template <class T>
void MetadataImpl<T>::toString(std::stringstream& stream) const {
    if constexpr (Traits::kHasText) Traits::text(stream, m_value);
}

}  // namespace ZeltoCore
