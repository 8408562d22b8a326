// Value rules shared by the metadata values that hold a whole library object (a Skeleton, a Pose).
//
// The value is written in the object's own archive form (operator<< / operator>>, memSize());
// nothing sizes an empty archive. Such values have no text, no ordering and no weighted blend; a
// value is equal only to itself (no two distinct values compare equal), an array is static only
// with exactly one element, and an element blend is a copy of its first operand. Arrays hash the
// element count, then each element's hashElement sequence. A traits type built on this kind adds
// hash(h, v), hashElement(h, v) and kArrayMinBytes (the least bytes an element can take).
#pragma once

#include <cstdint>
#include <vector>

#include "core/archive/Archive.h"
#include "core/hash/MurmurHash3.h"
#include "core/metadata/ValueTraits.h"

namespace ZeltoCore {

template <class T>
struct ObjectValueKind : VariableLayout<T, ValueTraits<T>> {
    static constexpr bool kResizeEmptyArchive = false;
    static constexpr bool kBlendPicksFirst = true;

    static T defaultValue() { return T(); }

    static size_t size(const T& v) { return v.memSize(); }
    static void write(Archive& a, const T& v) { a << v; }
    static void read(Archive& a, T& v) { a >> v; }

    static bool equal(const T&, const T&, double) { return false; }
    static bool elementsEqual(const T&, const T&) { return false; }

    static void hashArray(MurmurHash3& h, const std::vector<T>& v) {
        h.append(uint64_t(v.size()));
        for (const T& e : v)
            ValueTraits<T>::hashElement(h, e);
    }
};

}  // namespace ZeltoCore
