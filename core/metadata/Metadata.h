// Metadata: the polymorphic value every property of joints, poses and callers is made of.
//
// Each concrete class knows its registered type name and id, copies and clones itself, hashes,
// compares, prints, blends and serialises. The virtual order below is fixed. Values are held
// through std::shared_ptr<Metadata>; readers create them from a stored type id through
// MetadataFactory and call deserialise (container readers clone one new value per type into a
// ValueArena instead).
//
//   std::shared_ptr<Metadata> v = MetadataFactory::instance().createMetadata("DoubleMetadata");
//   Archive a(v->memSize(), 0); v->serialise(a);
#pragma once

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "core/archive/Archive.h"
#include "core/hash/MurmurHash3.h"
#include "utils/Export.h"

namespace ZeltoCore {

class ValueArena;

class ZELTO_API Metadata {
public:
    Metadata() = default;

    virtual std::string typeStr() const = 0;
    virtual unsigned int typeId() const = 0;
    virtual ~Metadata();
    // Takes over the value of `other`, which must be of the same class; null does nothing.
    virtual void copy(Metadata* other) = 0;
    virtual std::shared_ptr<Metadata> clone() const = 0;
    // Exact number of bytes serialise() writes, type id included.
    virtual size_t memSize() const = 0;
    // Weighted blend of several values into this one; false when the type cannot blend.
    virtual bool setWithValuesAndWeights(const std::vector<Metadata*>& values,
                                         const std::vector<double>& weights);
    virtual bool setWithValuesAndWeights(const std::vector<std::shared_ptr<Metadata>>& values,
                                         const std::vector<double>& weights);
    // Appends the value (not the type id) to the accumulator.
    virtual void hash(MurmurHash3& hasher) const = 0;
    // Base rule: equal only to this very object.
    virtual bool isEqual(Metadata* other, double tolerance) const;
    virtual bool isGreater(Metadata* other) const;
    virtual bool isLess(Metadata* other) const;
    virtual bool isArray() const;
    virtual bool serialise(Archive& archive) const = 0;
    virtual bool deserialise(Archive& archive) = 0;
    virtual void toString(std::stringstream& stream) const = 0;
    // A clone placed in `arena`, for readers that make many values at once; the base returns
    // clone(). Added last so that the order above stays.
    virtual std::shared_ptr<Metadata> cloneInto(ValueArena& arena) const;

protected:
    Metadata(const Metadata&) = default;
    Metadata& operator=(const Metadata&) = default;
};

}  // namespace ZeltoCore
