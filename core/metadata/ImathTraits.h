// Value rules of the Imath types: vectors, quaternions, Euler rotations, matrices and boxes.
//
// Vectors and Euler angles compare component by component within the tolerance (inclusive, as
// Imath's equalWithAbsError), int vectors with the tolerance truncated to an integer; matrices and
// boxes compare exactly. Quaternions test the vector part inclusively and the scalar part
// strictly. Element blends work component-wise with the number rules, except quaternions
// (spherical) and matrices (decomposed, interpolated, recomposed).
//
//   ValueTraits<Imath::V2i>::equal({0, 0}, {1, 1}, 1.9);  // true: tolerance 1
//   ValueTraits<Imath::Quatd>::text(os, Imath::Quatd());  // (1, 0, 0, 0)
#pragma once

#include <Imath/ImathBox.h>
#include <Imath/ImathEuler.h>
#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include <cmath>
#include <cstdint>
#include <ostream>

#include "core/metadata/NumberTraits.h"

namespace ZeltoCore {

namespace detail {

// "(a, b, c)" of n components.
template <class S>
void writeComponents(std::ostream& os, const S* c, int n) {
    os << '(';
    for (int i = 0; i < n; ++i) {
        if (i) os << ", ";
        os << c[i];
    }
    os << ')';
}

// Wrapping integer arithmetic for the int vector blends.
inline int wrapMul(int a, int b) {
    return int(uint32_t(a) * uint32_t(b));
}
inline int wrapAdd(int a, int b) {
    return int(uint32_t(a) + uint32_t(b));
}

// Own spherical interpolation of Quat<double> (sign-aligned, unnormalised, linear when the inputs
// are within 1e-4 of parallel), and the matrix blend built on it.
Imath::Quat<double> blendQuat(const Imath::Quat<double>& a, const Imath::Quat<double>& b, float t);
Imath::Matrix44<double> blendMatrix(const Imath::Matrix44<double>& a,
                                    const Imath::Matrix44<double>& b, float t);

}  // namespace detail

template <class V>
struct VecTraits : FixedLayout<V> {
    using S = typename V::BaseType;
    static constexpr int kDim = V::dimensions();
    static constexpr bool kInt = std::is_integral_v<S>;

    static V defaultValue() { return V(S(0)); }
    static void hash(MurmurHash3& h, const V& v) { h.append(v); }

    static bool equal(const V& a, const V& b, double tolerance) {
        if constexpr (kInt) {
            const double t = std::trunc(tolerance);
            for (int i = 0; i < kDim; ++i) {
                if (!(double(std::abs(int64_t(a[i]) - int64_t(b[i]))) <= t)) return false;
            }
            return true;
        } else {
            return a.equalWithAbsError(b, static_cast<S>(tolerance));
        }
    }

    static constexpr bool kOrdered = true;
    static bool greater(const V& a, const V& b) {
        for (int i = 0; i < kDim; ++i) {
            if (!(a[i] >= b[i])) return false;
        }
        return true;
    }
    static bool less(const V& a, const V& b) {
        for (int i = 0; i < kDim; ++i) {
            if (!(a[i] <= b[i])) return false;
        }
        return true;
    }

    static constexpr bool kHasText = true;
    static void text(std::ostream& os, const V& v) { detail::writeComponents(os, &v[0], kDim); }

    // Weighted sum: double weights as given, float weights rounded to float, int weights
    // truncated to int (so |w| < 1 contributes nothing).
    static constexpr bool kWeighted = true;
    using Acc = V;
    static V weightedTerm(const V& v, double w) {
        V r;
        for (int i = 0; i < kDim; ++i) {
            if constexpr (kInt) {
                r[i] = detail::wrapMul(v[i], detail::truncToInt32(w));
            } else {
                r[i] = v[i] * static_cast<S>(w);
            }
        }
        return r;
    }
    static void weightedAdd(V& acc, const V& term) {
        for (int i = 0; i < kDim; ++i) {
            if constexpr (kInt) {
                acc[i] = detail::wrapAdd(acc[i], term[i]);
            } else {
                acc[i] += term[i];
            }
        }
    }
    static void weightedStore(const V& acc, V& v) { v = acc; }

    // isStatic: the tolerance rule at 1e-5 (exact for int vectors).
    static bool elementsEqual(const V& a, const V& b) { return equal(a, b, 1e-5); }
    static V lerp(const V& a, const V& b, float t) {
        V r;
        for (int i = 0; i < kDim; ++i)
            r[i] = detail::lerpNumber(a[i], b[i], t);
        return r;
    }
};

template <class S>
struct QuatTraits : FixedLayout<Imath::Quat<S>> {
    using Q = Imath::Quat<S>;

    static Q defaultValue() { return Q(); }  // identity
    static void hash(MurmurHash3& h, const Q& q) { h.append(q); }

    // The vector part within the tolerance inclusively, the scalar part strictly.
    static bool close(const Q& a, const Q& b, S tolerance) {
        return a.v.equalWithAbsError(b.v, tolerance) && std::abs(a.r - b.r) < tolerance;
    }
    static bool equal(const Q& a, const Q& b, double tolerance) {
        return close(a, b, static_cast<S>(tolerance));
    }

    static constexpr bool kOrdered = true;
    static bool greater(const Q& a, const Q& b) {
        return a.v[0] >= b.v[0] && a.v[1] >= b.v[1] && a.v[2] >= b.v[2] && a.r > b.r;
    }
    static bool less(const Q& a, const Q& b) {
        return a.v[0] <= b.v[0] && a.v[1] <= b.v[1] && a.v[2] <= b.v[2] && a.r < b.r;
    }

    static constexpr bool kHasText = true;
    static void text(std::ostream& os, const Q& q) {
        const S c[4] = {q.r, q.v.x, q.v.y, q.v.z};
        detail::writeComponents(os, c, 4);
    }

    // Component-wise weighted sum, no normalisation and no sign alignment.
    static constexpr bool kWeighted = true;
    using Acc = Q;
    static Q weightedTerm(const Q& q, double w) { return q * static_cast<S>(w); }
    static void weightedAdd(Q& acc, const Q& term) { acc += term; }
    static void weightedStore(const Q& acc, Q& q) { q = acc; }

    static bool elementsEqual(const Q& a, const Q& b) { return close(a, b, static_cast<S>(1e-5)); }
    static Q lerp(const Q& a, const Q& b, float t) {
        if constexpr (std::is_same_v<S, double>) {
            return detail::blendQuat(a, b, t);
        } else {
            return Imath::slerpShortestArc(a, b, t);
        }
    }
};

template <class S>
struct EulerTraits : FixedLayout<Imath::Euler<S>> {
    using E = Imath::Euler<S>;
    using V = Imath::Vec3<S>;

    static E defaultValue() { return E(); }  // angles 0, order XYZ
    static void hash(MurmurHash3& h, const E& e) { h.append(e); }

    // Angles only: the rotation order is not compared.
    static bool equal(const E& a, const E& b, double tolerance) {
        return VecTraits<V>::equal(a, b, tolerance);
    }
    static constexpr bool kOrdered = true;
    static bool greater(const E& a, const E& b) { return VecTraits<V>::greater(a, b); }
    static bool less(const E& a, const E& b) { return VecTraits<V>::less(a, b); }

    // "(x, y, z, IJK)" with "r" appended for a rotating frame.
    static constexpr bool kHasText = true;
    static void text(std::ostream& os, const E& e) {
        static const char axes[] = "XYZ";
        const int i = e.initialAxis();
        const int j = e.parityEven() ? (i + 1) % 3 : (i + 2) % 3;
        const int k = e.initialRepeated() ? i : (e.parityEven() ? (i + 2) % 3 : (i + 1) % 3);
        os << '(' << e.x << ", " << e.y << ", " << e.z << ", " << axes[i] << axes[j] << axes[k];
        if (!e.frameStatic()) os << 'r';
        os << ')';
    }

    // Angles summed; double results take the default order, float results keep the target's.
    static constexpr bool kWeighted = true;
    using Acc = V;
    static V weightedTerm(const E& e, double w) { return V(e) * static_cast<S>(w); }
    static void weightedAdd(V& acc, const V& term) { acc += term; }
    static void weightedStore(const V& acc, E& e) {
        if constexpr (std::is_same_v<S, double>) e = E();
        e.x = acc.x;
        e.y = acc.y;
        e.z = acc.z;
    }

    static bool elementsEqual(const E& a, const E& b) { return equal(a, b, 1e-5); }
    // Angles component-wise; the result has the default order whatever the inputs'.
    static E lerp(const E& a, const E& b, float t) {
        E r;
        r = VecTraits<V>::lerp(a, b, t);  // assigns the angles only
        return r;
    }
};

template <class S>
struct MatrixTraits : FixedLayout<Imath::Matrix44<S>> {
    using M = Imath::Matrix44<S>;

    static M defaultValue() { return M(); }  // identity
    static void hash(MurmurHash3& h, const M& m) { h.append(m); }
    static bool equal(const M& a, const M& b, double) { return a == b; }

    static constexpr bool kHasText = true;
    static void text(std::ostream& os, const M& m) {
        detail::writeComponents(os, m.getValue(), 16);
    }

    static constexpr bool kWeighted = true;
    using Acc = M;
    static M weightedTerm(const M& m, double w) { return m * static_cast<S>(w); }
    static void weightedAdd(M& acc, const M& term) { acc += term; }
    static void weightedStore(const M& acc, M& m) { m = acc; }

    static bool elementsEqual(const M& a, const M& b) {
        return a.equalWithAbsError(b, static_cast<S>(1e-5));
    }
    // Single-precision matrices blend through double.
    static M lerp(const M& a, const M& b, float t) {
        if constexpr (std::is_same_v<S, double>) {
            return detail::blendMatrix(a, b, t);
        } else {
            const Imath::Matrix44<double> r =
                detail::blendMatrix(Imath::Matrix44<double>(a), Imath::Matrix44<double>(b), t);
            return M(r);
        }
    }
};

template <class V>
struct BoxTraits : FixedLayout<Imath::Box<V>> {
    using B = Imath::Box<V>;

    static B defaultValue() { return B(); }  // empty: min at the type's max, max at its lowest
    static void hash(MurmurHash3& h, const B& b) { h.append(b); }
    static bool equal(const B& a, const B& b, double) { return a.min == b.min && a.max == b.max; }

    static constexpr bool kHasText = true;
    static void text(std::ostream& os, const B& b) {
        os << "min: ";
        VecTraits<V>::text(os, b.min);
        os << " max: ";
        VecTraits<V>::text(os, b.max);
    }

    static bool elementsEqual(const B& a, const B& b) {
        return VecTraits<V>::elementsEqual(a.min, b.min) &&
               VecTraits<V>::elementsEqual(a.max, b.max);
    }
    static B lerp(const B& a, const B& b, float t) {
        return B(VecTraits<V>::lerp(a.min, b.min, t), VecTraits<V>::lerp(a.max, b.max, t));
    }
};

// clang-format off
template <> struct ValueTraits<Imath::V2d> : VecTraits<Imath::V2d> { ZELTO_VALUE_NAMES(27, "Vector2Metadata", 28, "Vector2ArrayMetadata") };
template <> struct ValueTraits<Imath::V2i> : VecTraits<Imath::V2i> { ZELTO_VALUE_NAMES(41, "Vector2iMetadata", 62, "Vector2iArrayMetadata") };
template <> struct ValueTraits<Imath::V2f> : VecTraits<Imath::V2f> { ZELTO_VALUE_NAMES(38, "Vector2fMetadata", 59, "Vector2fArrayMetadata") };
template <> struct ValueTraits<Imath::V3d> : VecTraits<Imath::V3d> { ZELTO_VALUE_NAMES(5, "Vector3Metadata", 15, "Vector3ArrayMetadata") };
template <> struct ValueTraits<Imath::V3i> : VecTraits<Imath::V3i> { ZELTO_VALUE_NAMES(42, "Vector3iMetadata", 63, "Vector3iArrayMetadata") };
template <> struct ValueTraits<Imath::V3f> : VecTraits<Imath::V3f> { ZELTO_VALUE_NAMES(39, "Vector3fMetadata", 60, "Vector3fArrayMetadata") };
template <> struct ValueTraits<Imath::V4d> : VecTraits<Imath::V4d> { ZELTO_VALUE_NAMES(6, "Vector4Metadata", 16, "Vector4ArrayMetadata") };
template <> struct ValueTraits<Imath::V4i> : VecTraits<Imath::V4i> { ZELTO_VALUE_NAMES(43, "Vector4iMetadata", 64, "Vector4iArrayMetadata") };
template <> struct ValueTraits<Imath::V4f> : VecTraits<Imath::V4f> { ZELTO_VALUE_NAMES(40, "Vector4fMetadata", 61, "Vector4fArrayMetadata") };
template <> struct ValueTraits<Imath::M44d> : MatrixTraits<double> { ZELTO_VALUE_NAMES(7, "MatrixMetadata", 19, "MatrixArrayMetadata") };
template <> struct ValueTraits<Imath::M44f> : MatrixTraits<float> { ZELTO_VALUE_NAMES(50, "MatrixfMetadata", 67, "MatrixfArrayMetadata") };
template <> struct ValueTraits<Imath::Quatd> : QuatTraits<double> { ZELTO_VALUE_NAMES(8, "QuaternionMetadata", 20, "QuaternionArrayMetadata") };
template <> struct ValueTraits<Imath::Quatf> : QuatTraits<float> { ZELTO_VALUE_NAMES(44, "QuaternionfMetadata", 65, "QuaternionfArrayMetadata") };
template <> struct ValueTraits<Imath::Eulerd> : EulerTraits<double> { ZELTO_VALUE_NAMES(9, "EulerMetadata", 18, "EulerArrayMetadata") };
template <> struct ValueTraits<Imath::Eulerf> : EulerTraits<float> { ZELTO_VALUE_NAMES(45, "EulerfMetadata", 66, "EulerfArrayMetadata") };
template <> struct ValueTraits<Imath::Box2d> : BoxTraits<Imath::V2d> { ZELTO_VALUE_NAMES(29, "Box2Metadata", 68, "Box2ArrayMetadata") };
template <> struct ValueTraits<Imath::Box2i> : BoxTraits<Imath::V2i> { ZELTO_VALUE_NAMES(48, "Box2iMetadata", 72, "Box2iArrayMetadata") };
template <> struct ValueTraits<Imath::Box2f> : BoxTraits<Imath::V2f> { ZELTO_VALUE_NAMES(46, "Box2fMetadata", 70, "Box2fArrayMetadata") };
template <> struct ValueTraits<Imath::Box3d> : BoxTraits<Imath::V3d> { ZELTO_VALUE_NAMES(21, "Box3Metadata", 69, "Box3ArrayMetadata") };
template <> struct ValueTraits<Imath::Box3i> : BoxTraits<Imath::V3i> { ZELTO_VALUE_NAMES(49, "Box3iMetadata", 73, "Box3iArrayMetadata") };
template <> struct ValueTraits<Imath::Box3f> : BoxTraits<Imath::V3f> { ZELTO_VALUE_NAMES(47, "Box3fMetadata", 71, "Box3fArrayMetadata") };
// clang-format on

}  // namespace ZeltoCore
