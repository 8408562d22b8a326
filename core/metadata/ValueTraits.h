// ValueTraits<T>: the per-type rules behind MetadataImpl<T> and TypedArrayMetadata<T>.
//
// One specialisation per value type, built from a kind template (numbers, Imath values, texts,
// geometry) so that the rules of each kind of type stand in one place; the specialisation itself
// adds only the registered names and ids. A traits type provides:
//
//   names     id, name, arrayId, arrayName (arrayId 0: no array type)
//   value     defaultValue()
//   archive   size(v) (bytes after the type id), write(a, v), read(a, v), kResizeEmptyArchive
//   hash      hash(h, v)
//   compare   equal(a, b, tolerance); kOrdered with greater(a, b) and less(a, b)
//   text      kHasText with text(stream, v)
//   blend     kWeighted with Acc, weightedTerm(v, w), weightedAdd(acc, t), weightedStore(acc, v)
//   arrays    kArrayMinBytes, arrayBytes(vec), writeArray(a, vec), readArray(a, vec) (vec
//             already sized to the stored count; optionally readArray(a, vec, count), which
//             sizes vec itself), hashArray(h, vec), elementsEqual(a, b) (the
//             isStatic rule), and either lerp(a, b, t) (blend of two elements, t in single
//             precision) or kBlendPicksFirst (the blend is a copy of the first element)
//
// Adding a value type:
//   1. its specialisation, usually deriving from a kind (GeometryKind<T>, ...) and naming itself
//      with ZELTO_VALUE_NAMES, in a traits header of the lowest layer that knows T (types of
//      skeleton or pose: a header in that folder, never in core/metadata);
//   2. one row in core/metadata/ValueTypeList.h. Registration, extern templates, short names,
//      explicit instantiation and the typed test lists follow; core/Init.cpp checks at compile
//      time that the traits exist, names match the row and no id repeats.
// The first type of a layer above metadata also needs the pieces that layer expands once (see
// ValueTypeList.h): its declarations, one instantiating source, and its header in
// core/ZeltoCore.h, from which Init.cpp registers.
//
//   static_assert(ValueTraits<double>::id == 4);
//   ValueTraits<Imath::V3d>::text(std::cout, Imath::V3d(1, 2, 3));  // (1, 2, 3)
#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>
#include <vector>

#include "core/archive/ArchiveOperators.h"
#include "core/hash/MurmurHash3.h"

namespace ZeltoCore {

// No rules: a type is a metadata value type only once it has a specialisation.
template <class T>
struct ValueTraits {
    static constexpr bool defined = false;
};

template <class T>
inline constexpr bool hasValueTraits = ValueTraits<T>::defined;

// What every kind starts from: the optional abilities are off until the kind turns them on.
struct ValueTraitsDefaults {
    static constexpr bool defined = true;
    static constexpr bool kResizeEmptyArchive = true;
    static constexpr bool kOrdered = false;
    static constexpr bool kHasText = false;
    static constexpr bool kWeighted = false;
    static constexpr bool kBlendPicksFirst = false;
};

// Archive layout and array handling of values with a fixed-size Encoding: arrays move their whole
// storage in one pass (one copy when the wire bytes are the memory bytes) and hash it in one call.
template <class T>
struct FixedLayout : ValueTraitsDefaults {
    static_assert(isEncodable<T>, "a fixed layout needs an Encoding");
    static constexpr size_t kSize = Encoding<T>::size;

    static size_t size(const T&) { return kSize; }
    static void write(Archive& a, const T& v) { a << v; }
    static void read(Archive& a, T& v) { a >> v; }

    static constexpr size_t kArrayMinBytes = kSize;
    static size_t arrayBytes(const std::vector<T>& v) { return v.size() * kSize; }
    static void writeArray(Archive& a, const std::vector<T>& v) {
        writeElements(a, v.data(), v.size());
    }
    static void readArray(Archive& a, std::vector<T>& v) { readElements(a, v.data(), v.size()); }
    // Sizes v to n itself, without value-initialising what it grows by.
    static void readArray(Archive& a, std::vector<T>& v, size_t n) { readVector(a, v, n); }
    // One call over the storage (Euler elements: angles and order fields, padding zeroed).
    static void hashArray(MurmurHash3& h, const std::vector<T>& v) { h.append(v); }
};

// Whether Traits reads an array of T given only the count (a kind that redefines the sized
// readArray hides this one, and is then handed a vector already sized).
template <class Traits, class T, class = void>
inline constexpr bool readsCountedArray = false;
template <class Traits, class T>
inline constexpr bool
    readsCountedArray<Traits, T,
                      std::void_t<decltype(Traits::readArray(
                          std::declval<Archive&>(), std::declval<std::vector<T>&>(), size_t()))>> =
        true;

// Arrays of variable-size values (texts, curves, meshes): every element in its scalar layout, in
// order; reading stops at the first refused element. Traits is the value type's ValueTraits.
template <class T, class Traits>
struct VariableLayout : ValueTraitsDefaults {
    static size_t arrayBytes(const std::vector<T>& v) {
        size_t n = 0;
        for (const T& e : v)
            n += Traits::size(e);
        return n;
    }
    static void writeArray(Archive& a, const std::vector<T>& v) {
        for (const T& e : v)
            Traits::write(a, e);
    }
    static void readArray(Archive& a, std::vector<T>& v) {
        for (T& e : v) {
            if (a.failed()) return;
            Traits::read(a, e);
        }
    }
};

}  // namespace ZeltoCore

// Registered names and ids of a value type and of its array type (0 and "" when there is none).
#define ZELTO_VALUE_NAMES(scalarId, scalarName, arrId, arrName) \
    static constexpr unsigned id = scalarId;                    \
    static constexpr const char* name = scalarName;             \
    static constexpr unsigned arrayId = arrId;                  \
    static constexpr const char* arrayName = arrName;
