// Value rules of the utility-library geometry: Curve, SampledCurve, Mesh and Image.
//
// These values have no text, no ordering and no blend; an element blend picks its first operand
// and no two elements count as equal for isStatic. They write into an archive as given (they do
// not size an empty one). Curves and meshes compare their arrays exactly, an image compares by
// identity of its shared pixel storage. Arrays of them hash the element count and then every
// element's own sequence.
//
//   ZeltoUtils::Curve c;  c.cvs() = {{0, 0, 0}};
//   ValueTraits<ZeltoUtils::Curve>::size(c);  // 8 + 12 + 8 + 0 + 4
#pragma once

#include <cstdint>
#include <vector>

#include "core/metadata/ValueTraits.h"
#include "utils/Curve.h"
#include "utils/Export.h"
#include "utils/Image.h"
#include "utils/Mesh.h"
#include "utils/SampledCurve.h"

namespace ZeltoCore {

template <class G>
struct GeometryKind : VariableLayout<G, ValueTraits<G>> {
    static constexpr bool kResizeEmptyArchive = false;

    static G defaultValue() { return G(); }

    static void hashArray(MurmurHash3& h, const std::vector<G>& v) {
        h.append(uint64_t(v.size()));
        for (const G& g : v)
            ValueTraits<G>::hash(h, g);
    }
    static bool elementsEqual(const G&, const G&) { return false; }
    static constexpr bool kBlendPicksFirst = true;
};

struct ZELTO_API CurveTraits : GeometryKind<ZeltoUtils::Curve> {
    using C = ZeltoUtils::Curve;
    static constexpr size_t kArrayMinBytes = 20;
    static size_t size(const C& c);
    static void write(Archive& a, const C& c);
    static void read(Archive& a, C& c);
    static void hash(MurmurHash3& h, const C& c);
    static bool equal(const C& a, const C& b, double tolerance);
};

// A curve plus its 16-bit sample count; reading resamples with the stored count.
struct ZELTO_API SampledCurveTraits : GeometryKind<ZeltoUtils::SampledCurve> {
    using C = ZeltoUtils::SampledCurve;
    static constexpr size_t kArrayMinBytes = 22;
    static size_t size(const C& c);
    static void write(Archive& a, const C& c);
    static void read(Archive& a, C& c);
    static void hash(MurmurHash3& h, const C& c);
    static bool equal(const C& a, const C& b, double tolerance);
};

// Seven arrays always; the UV-set records only in archives of version 3 and later.
struct ZELTO_API MeshTraits : GeometryKind<ZeltoUtils::Mesh> {
    using M = ZeltoUtils::Mesh;
    static constexpr uint64_t kRecordsVersion = 3;
    // The seven array counts; older archives have no record count.
    static constexpr size_t kArrayMinBytes = 56;
    static size_t size(const M& m);
    static void write(Archive& a, const M& m);
    static void read(Archive& a, M& m);
    static void hash(MurmurHash3& h, const M& m);
    // The seven arrays element by element; the records are not compared.
    static bool equal(const M& a, const M& b, double tolerance);
};

struct ZELTO_API ImageTraits : ValueTraitsDefaults {
    using I = ZeltoUtils::Image;
    static constexpr bool kResizeEmptyArchive = false;
    static I defaultValue() { return I(); }
    static size_t size(const I& i);
    static void write(Archive& a, const I& i);
    // Builds a new image from the stored samples (nothing when they do not fit in the archive).
    static void read(Archive& a, I& i);
    static void hash(MurmurHash3& h, const I& i);
    static bool equal(const I& a, const I& b, double) { return a.samples() == b.samples(); }
};

// clang-format off
template <> struct ValueTraits<ZeltoUtils::Mesh> : MeshTraits { ZELTO_VALUE_NAMES(101, "MeshMetadata", 105, "MeshArrayMetadata") };
template <> struct ValueTraits<ZeltoUtils::Image> : ImageTraits { ZELTO_VALUE_NAMES(102, "ImageMetadata", 0, "") };
template <> struct ValueTraits<ZeltoUtils::Curve> : CurveTraits { ZELTO_VALUE_NAMES(103, "CurveMetadata", 104, "CurveArrayMetadata") };
template <> struct ValueTraits<ZeltoUtils::SampledCurve> : SampledCurveTraits { ZELTO_VALUE_NAMES(107, "SampledCurveMetadata", 108, "SampledCurveArrayMetadata") };
// clang-format on

}  // namespace ZeltoCore
