// Row-vector affine products on rows of four lanes, for world-matrix passes and walks (internal,
// not exported).
//
// A joint transform is taken apart into scalars (rotation rows already scaled, translation) and
// multiplied onto a matrix held as four rows: out_i = sum_k a_ik * b_k for the rotation rows and
// out_3 = sum_k t_k * b_k + b_3. The right operand's last column is (0, 0, 0, 1), so the
// product's is too without being written apart. The sums run in the order of the plain affine
// product, so a double product gives the same bits as the scalar one.
#pragma once

#include <Imath/ImathMatrix.h>
#include <Imath/ImathQuat.h>
#include <Imath/ImathVec.h>

#include <cstring>
#include <utility>

// The world-matrix passes are built for AVX2 as well; whatever they call must be compiled into
// them, so the helpers below are forced inline.
#if defined(__GNUC__)
#define ZELTO_ALWAYS_INLINE __attribute__((always_inline)) inline
#else
#define ZELTO_ALWAYS_INLINE inline
#endif

namespace ZeltoCore {
namespace detail {

#if defined(__GNUC__)
// Four lanes of T as a compiler vector: two SSE2 registers per double row on the baseline, one
// AVX register in code built for AVX2.
template <class T>
struct Lanes {
    typedef T Scalar;
    typedef T Vector __attribute__((vector_size(4 * sizeof(T))));
    typedef double Doubles __attribute__((vector_size(4 * sizeof(double))));
    Vector v;
    static Lanes splat(T a) { return {Vector{a, a, a, a}}; }
    static Lanes set(T a, T b, T c, T d) { return {Vector{a, b, c, d}}; }
    // The n (4 or 2) doubles at p rounded to T, as T(d) would; lanes past n are 0. Two doubles
    // are loaded as such and widened in registers: a wide load from narrower stores would stall.
    template <int n>
    static Lanes convert(const void* p) {
        typedef double Pair __attribute__((vector_size(2 * sizeof(double))));
        Doubles d;
        if (n == 4) {
            __builtin_memcpy(&d, p, sizeof(d));
        } else {
            Pair h;
            __builtin_memcpy(&h, p, sizeof(h));
            d = __builtin_shufflevector(h, Pair{}, 0, 1, 2, 3);
        }
        return {__builtin_convertvector(d, Vector)};
    }
    static Lanes load(const T* p) {
        Lanes l;
        __builtin_memcpy(&l.v, p, sizeof(Vector));
        return l;
    }
    void store(T* p) const { __builtin_memcpy(p, &v, sizeof(Vector)); }
    T operator[](int i) const { return v[i]; }
    // Rows become columns.
    static void transpose(Lanes& a, Lanes& b, Lanes& c, Lanes& d) {
        const Vector ab0 = __builtin_shufflevector(a.v, b.v, 0, 4, 1, 5);
        const Vector ab1 = __builtin_shufflevector(a.v, b.v, 2, 6, 3, 7);
        const Vector cd0 = __builtin_shufflevector(c.v, d.v, 0, 4, 1, 5);
        const Vector cd1 = __builtin_shufflevector(c.v, d.v, 2, 6, 3, 7);
        a.v = __builtin_shufflevector(ab0, cd0, 0, 1, 4, 5);
        b.v = __builtin_shufflevector(ab0, cd0, 2, 3, 6, 7);
        c.v = __builtin_shufflevector(ab1, cd1, 0, 1, 4, 5);
        d.v = __builtin_shufflevector(ab1, cd1, 2, 3, 6, 7);
    }
    friend Lanes operator+(const Lanes& a, const Lanes& b) { return {a.v + b.v}; }
    friend Lanes operator-(const Lanes& a, const Lanes& b) { return {a.v - b.v}; }
    friend Lanes operator*(const Lanes& a, const Lanes& b) { return {a.v * b.v}; }
    friend Lanes operator-(T a, const Lanes& b) { return {a - b.v}; }
    friend Lanes operator*(T a, const Lanes& b) { return {a * b.v}; }
};

// The same four lanes as two halves of two: what 16-byte registers hold. Double lanes in code
// built for the SSE2 baseline stay in registers this way, where a 32-byte vector goes through
// memory.
template <class T>
struct Halves {
    typedef T Scalar;
    typedef T Half __attribute__((vector_size(2 * sizeof(T))));
    typedef double Pair __attribute__((vector_size(2 * sizeof(double))));
    Half lo, hi;
    static Halves splat(T a) { return {Half{a, a}, Half{a, a}}; }
    static Halves set(T a, T b, T c, T d) { return {Half{a, b}, Half{c, d}}; }
    template <int n>
    static Halves convert(const void* p) {
        Pair a, b = {};
        __builtin_memcpy(&a, p, sizeof(a));
        if (n == 4) __builtin_memcpy(&b, static_cast<const char*>(p) + sizeof(a), sizeof(b));
        return {__builtin_convertvector(a, Half), __builtin_convertvector(b, Half)};
    }
    static Halves load(const T* p) {
        Halves l;
        __builtin_memcpy(&l.lo, p, sizeof(Half));
        __builtin_memcpy(&l.hi, p + 2, sizeof(Half));
        return l;
    }
    void store(T* p) const {
        __builtin_memcpy(p, &lo, sizeof(Half));
        __builtin_memcpy(p + 2, &hi, sizeof(Half));
    }
    T operator[](int i) const { return i < 2 ? lo[i] : hi[i - 2]; }
    static void transpose(Halves& a, Halves& b, Halves& c, Halves& d) {
        const Halves ta = {__builtin_shufflevector(a.lo, b.lo, 0, 2),
                           __builtin_shufflevector(c.lo, d.lo, 0, 2)};
        const Halves tb = {__builtin_shufflevector(a.lo, b.lo, 1, 3),
                           __builtin_shufflevector(c.lo, d.lo, 1, 3)};
        const Halves tc = {__builtin_shufflevector(a.hi, b.hi, 0, 2),
                           __builtin_shufflevector(c.hi, d.hi, 0, 2)};
        const Halves td = {__builtin_shufflevector(a.hi, b.hi, 1, 3),
                           __builtin_shufflevector(c.hi, d.hi, 1, 3)};
        a = ta;
        b = tb;
        c = tc;
        d = td;
    }
    friend Halves operator+(const Halves& a, const Halves& b) { return {a.lo + b.lo, a.hi + b.hi}; }
    friend Halves operator-(const Halves& a, const Halves& b) { return {a.lo - b.lo, a.hi - b.hi}; }
    friend Halves operator*(const Halves& a, const Halves& b) { return {a.lo * b.lo, a.hi * b.hi}; }
    friend Halves operator-(T a, const Halves& b) { return {a - b.lo, a - b.hi}; }
    friend Halves operator*(T a, const Halves& b) { return {a * b.lo, a * b.hi}; }
};
#else
template <class T>
struct Lanes {
    typedef T Scalar;
    T v[4];
    static Lanes splat(T a) { return {{a, a, a, a}}; }
    static Lanes set(T a, T b, T c, T d) { return {{a, b, c, d}}; }
    template <int n>
    static Lanes convert(const void* p) {
        double d[4] = {};
        std::memcpy(d, p, n * sizeof(double));
        return {{T(d[0]), T(d[1]), T(d[2]), T(d[3])}};
    }
    static Lanes load(const T* p) { return {{p[0], p[1], p[2], p[3]}}; }
    void store(T* p) const {
        for (int i = 0; i < 4; ++i)
            p[i] = v[i];
    }
    T operator[](int i) const { return v[i]; }
    static void transpose(Lanes& a, Lanes& b, Lanes& c, Lanes& d) {
        Lanes* m[4] = {&a, &b, &c, &d};
        for (int i = 0; i < 4; ++i)
            for (int k = i + 1; k < 4; ++k)
                std::swap(m[i]->v[k], m[k]->v[i]);
    }
    template <class F>
    static Lanes apply(F f) {
        return {{f(0), f(1), f(2), f(3)}};
    }
    friend Lanes operator+(const Lanes& a, const Lanes& b) {
        return apply([&](int i) { return a.v[i] + b.v[i]; });
    }
    friend Lanes operator-(const Lanes& a, const Lanes& b) {
        return apply([&](int i) { return a.v[i] - b.v[i]; });
    }
    friend Lanes operator*(const Lanes& a, const Lanes& b) {
        return apply([&](int i) { return a.v[i] * b.v[i]; });
    }
    friend Lanes operator-(T a, const Lanes& b) { return splat(a) - b; }
    friend Lanes operator*(T a, const Lanes& b) { return splat(a) * b; }
};
template <class T>
using Halves = Lanes<T>;
#endif

// A 4x4 matrix as rows of lanes L (Lanes or Halves).
template <class T, class L = Lanes<T>>
struct Rows {
    L r[4];

    static Rows load(const Imath::Matrix44<T>& m) {
        return {{L::load(m[0]), L::load(m[1]), L::load(m[2]), L::load(m[3])}};
    }
    // Scalar k of row i, as affineTimes() reads its left operand.
    T operator()(int i, int k) const { return r[i][k]; }
    void store(Imath::Matrix44<T>& m) const {
        for (int i = 0; i < 4; ++i)
            r[i].store(m[i]);
    }
};

// c = a * b, a affine, b as rows: c_i = a_i0 * b_0 + a_i1 * b_1 + a_i2 * b_2 for the rotation
// rows, c_3 = a_30 * b_0 + a_31 * b_1 + a_32 * b_2 + b_3. a(i, k) gives a's scalars, row 3 being
// the translation.
template <class T, class L, class A>
ZELTO_ALWAYS_INLINE Rows<T, L> affineTimes(const A& a, const Rows<T, L>& b) {
    Rows<T, L> c;
    for (int i = 0; i < 4; ++i) {
        c.r[i] =
            L::splat(a(i, 0)) * b.r[0] + L::splat(a(i, 1)) * b.r[1] + L::splat(a(i, 2)) * b.r[2];
    }
    c.r[3] = c.r[3] + b.r[3];
    return c;
}

// The rows of affine a, read as for affineTimes().
template <class T, class L = Lanes<T>, class A>
ZELTO_ALWAYS_INLINE Rows<T, L> affineRows(const A& a) {
    return {{L::set(a(0, 0), a(0, 1), a(0, 2), 0), L::set(a(1, 0), a(1, 1), a(1, 2), 0),
             L::set(a(2, 0), a(2, 1), a(2, 2), 0), L::set(a(3, 0), a(3, 1), a(3, 2), 1)}};
}

// An affine transform as scalars, the upper 3x3 and the translation row: V is T, or Lanes<T>
// for four transforms at once (one per lane, each lane doing the scalar operations in the same
// order, so giving the same bits).
template <class V>
struct Affine {
    V a[3][3];
    V t[3];

    // S * R * T of a joint transform (JointPose::matrix): the quaternion converted by Imath,
    // each rotation row scaled by its scale component.
    ZELTO_ALWAYS_INLINE static Affine of(const Imath::Quat<V>& q, const V (&t)[3],
                                         const V (&s)[3]) {
        const Imath::Matrix33<V> r = q.toMatrix33();
        return {{{r[0][0] * s[0], r[0][1] * s[0], r[0][2] * s[0]},
                 {r[1][0] * s[1], r[1][1] * s[1], r[1][2] * s[1]},
                 {r[2][0] * s[2], r[2][1] * s[2], r[2][2] * s[2]}},
                {t[0], t[1], t[2]}};
    }
    // The same from doubles converted to V first (scalar V).
    static Affine of(const Imath::Quat<double>& q, const Imath::Vec3<double>& t,
                     const Imath::Vec3<double>& s) {
        return of(Imath::Quat<V>(q), {V(t.x), V(t.y), V(t.z)}, {V(s.x), V(s.y), V(s.z)});
    }

    static Affine of(const Imath::Matrix44<V>& m) {
        return {
            {{m[0][0], m[0][1], m[0][2]}, {m[1][0], m[1][1], m[1][2]}, {m[2][0], m[2][1], m[2][2]}},
            {m[3][0], m[3][1], m[3][2]}};
    }

    // Scalar i of row k (row 3: the translation).
    const V& operator()(int i, int k) const { return i < 3 ? a[i][k] : t[k]; }

    Rows<V> rows() const { return affineRows<V>(*this); }
    void store(Imath::Matrix44<V>& m) const {
        m = Imath::Matrix44<V>(a[0][0], a[0][1], a[0][2], 0, a[1][0], a[1][1], a[1][2], 0, a[2][0],
                               a[2][1], a[2][2], 0, t[0], t[1], t[2], 1);
    }
    Imath::Vec3<V> translation() const { return Imath::Vec3<V>(t[0], t[1], t[2]); }

    // *this * b, both affine: the sums of the product with b's rows, in the same order.
    ZELTO_ALWAYS_INLINE Affine operator*(const Affine& b) const {
        Affine c;
        for (int k = 0; k < 3; ++k) {
            for (int i = 0; i < 3; ++i)
                c.a[i][k] = a[i][0] * b.a[0][k] + a[i][1] * b.a[1][k] + a[i][2] * b.a[2][k];
            c.t[k] = t[0] * b.a[0][k] + t[1] * b.a[1][k] + t[2] * b.a[2][k] + b.t[k];
        }
        return c;
    }
};

// a * b, b affine as rows.
template <class T>
inline Rows<T> operator*(const Affine<T>& a, const Rows<T>& b) {
    return affineTimes(a, b);
}

// Lane l of four transforms, as the scalars affineTimes() reads.
template <class T, class L = Lanes<T>>
struct AffineLane {
    const Affine<L>& block;
    int l;
    T operator()(int i, int k) const { return block(i, k)[l]; }
};

// An affine matrix held by its first three columns (the last is (0, 0, 0, 1)), for chains of
// products on the right, w * m1 * m2 ...: only the scalars of each m are broadcast, so the
// running product never has to be split into scalars.
template <class T, class L = Lanes<T>>
struct AffineColumns {
    L c[3];

    template <class A>
    ZELTO_ALWAYS_INLINE static AffineColumns of(const A& m) {
        return {{L::set(m(0, 0), m(1, 0), m(2, 0), m(3, 0)),
                 L::set(m(0, 1), m(1, 1), m(2, 1), m(3, 1)),
                 L::set(m(0, 2), m(1, 2), m(2, 2), m(3, 2))}};
    }
    // *this * m, m affine: column k is sum_i c_i * m_ik plus m's translation in the last row.
    template <class A>
    ZELTO_ALWAYS_INLINE AffineColumns operator*(const A& m) const {
        AffineColumns p;
        for (int k = 0; k < 3; ++k) {
            p.c[k] = L::splat(m(0, k)) * c[0] + L::splat(m(1, k)) * c[1] +
                     L::splat(m(2, k)) * c[2] + L::set(0, 0, 0, m(3, k));
        }
        return p;
    }
    ZELTO_ALWAYS_INLINE Rows<T, L> rows() const {
        Rows<T, L> r = {{c[0], c[1], c[2], L::set(0, 0, 0, 1)}};
        L::transpose(r.r[0], r.r[1], r.r[2], r.r[3]);
        return r;
    }
};

// a * b for matrices whose last column is (0, 0, 0, 1): the plain product's sums without the
// terms known to be zero.
template <class T>
inline Imath::Matrix44<T> multiplyAffine(const Imath::Matrix44<T>& a, const Imath::Matrix44<T>& b) {
    Imath::Matrix44<T> c;
    (Affine<T>::of(a) * Rows<T>::load(b)).store(c);
    return c;
}

// multiplyAffine(a, b).translation(), from a's translation row alone (the same sums).
template <class T>
inline Imath::Vec3<T> productTranslation(const Imath::Matrix44<T>& a, const Imath::Matrix44<T>& b) {
    using L = Lanes<T>;
    const Rows<T> rb = Rows<T>::load(b);
    T t[4];
    (L::splat(a[3][0]) * rb.r[0] + L::splat(a[3][1]) * rb.r[1] + L::splat(a[3][2]) * rb.r[2] +
     rb.r[3])
        .store(t);
    return Imath::Vec3<T>(t[0], t[1], t[2]);
}

// v times the inverse of m's upper 3x3, through its adjugate: what m.inverse().multDirMatrix(v)
// gives, without building the inverse. v itself when that part is singular (as the identity
// Imath's inverse() returns then would give).
template <class T>
inline Imath::Vec3<T> multDirInverse(const Affine<T>& m, const Imath::Vec3<T>& v) {
    // Columns of the adjugate are the cross products of the matrix's rows.
    const Imath::Vec3<T> r0(m.a[0][0], m.a[0][1], m.a[0][2]), r1(m.a[1][0], m.a[1][1], m.a[1][2]),
        r2(m.a[2][0], m.a[2][1], m.a[2][2]);
    const Imath::Vec3<T> c0 = r1 % r2, c1 = r2 % r0, c2 = r0 % r1;
    const T det = r0 ^ c0;
    if (det == T(0)) return v;
    return Imath::Vec3<T>(v ^ c0, v ^ c1, v ^ c2) / det;
}
template <class T>
inline Imath::Vec3<T> multDirInverse(const Imath::Matrix44<T>& m, const Imath::Vec3<T>& v) {
    return multDirInverse(Affine<T>::of(m), v);
}

}  // namespace detail
}  // namespace ZeltoCore
