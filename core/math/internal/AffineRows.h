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

namespace ZeltoCore {
namespace detail {

#if defined(__GNUC__)
// Four lanes of T as a compiler vector: two SSE2 registers per double row on the baseline, one
// AVX register in code built for AVX2.
template <class T>
struct Lanes {
    typedef T Vector __attribute__((vector_size(4 * sizeof(T))));
    Vector v;
    static Lanes splat(T a) { return {Vector{a, a, a, a}}; }
    static Lanes set(T a, T b, T c, T d) { return {Vector{a, b, c, d}}; }
    static Lanes load(const T* p) {
        Lanes l;
        __builtin_memcpy(&l.v, p, sizeof(Vector));
        return l;
    }
    void store(T* p) const { __builtin_memcpy(p, &v, sizeof(Vector)); }
    friend Lanes operator+(const Lanes& a, const Lanes& b) { return {a.v + b.v}; }
    friend Lanes operator*(const Lanes& a, const Lanes& b) { return {a.v * b.v}; }
};
#else
template <class T>
struct Lanes {
    T v[4];
    static Lanes splat(T a) { return {{a, a, a, a}}; }
    static Lanes set(T a, T b, T c, T d) { return {{a, b, c, d}}; }
    static Lanes load(const T* p) { return {{p[0], p[1], p[2], p[3]}}; }
    void store(T* p) const {
        for (int i = 0; i < 4; ++i)
            p[i] = v[i];
    }
    friend Lanes operator+(const Lanes& a, const Lanes& b) {
        return {{a.v[0] + b.v[0], a.v[1] + b.v[1], a.v[2] + b.v[2], a.v[3] + b.v[3]}};
    }
    friend Lanes operator*(const Lanes& a, const Lanes& b) {
        return {{a.v[0] * b.v[0], a.v[1] * b.v[1], a.v[2] * b.v[2], a.v[3] * b.v[3]}};
    }
};
#endif

// A 4x4 matrix as rows.
template <class T>
struct Rows {
    Lanes<T> r[4];

    static Rows load(const Imath::Matrix44<T>& m) {
        return {{Lanes<T>::load(m[0]), Lanes<T>::load(m[1]), Lanes<T>::load(m[2]),
                 Lanes<T>::load(m[3])}};
    }
    void store(Imath::Matrix44<T>& m) const {
        for (int i = 0; i < 4; ++i)
            r[i].store(m[i]);
    }
};

// An affine transform as scalars: the upper 3x3 and the translation row.
template <class T>
struct Affine {
    T a[3][3];
    T t[3];

    Rows<T> rows() const {
        using L = Lanes<T>;
        return {{L::set(a[0][0], a[0][1], a[0][2], 0), L::set(a[1][0], a[1][1], a[1][2], 0),
                 L::set(a[2][0], a[2][1], a[2][2], 0), L::set(t[0], t[1], t[2], 1)}};
    }

    static Affine of(const Imath::Matrix44<T>& m) {
        return {
            {{m[0][0], m[0][1], m[0][2]}, {m[1][0], m[1][1], m[1][2]}, {m[2][0], m[2][1], m[2][2]}},
            {m[3][0], m[3][1], m[3][2]}};
    }
    static Affine of(const Rows<T>& rows) {
        Imath::Matrix44<T> m;
        rows.store(m);
        return of(m);
    }

    // S * R * T of a joint transform (JointPose::matrix) in T: the quaternion is converted first,
    // each rotation row scaled by its scale component.
    static Affine of(const Imath::Quat<double>& q, const Imath::Vec3<double>& t,
                     const Imath::Vec3<double>& s) {
        const Imath::Matrix33<T> r = Imath::Quat<T>(q).toMatrix33();
        const T sx = T(s.x), sy = T(s.y), sz = T(s.z);
        return {{{r[0][0] * sx, r[0][1] * sx, r[0][2] * sx},
                 {r[1][0] * sy, r[1][1] * sy, r[1][2] * sy},
                 {r[2][0] * sz, r[2][1] * sz, r[2][2] * sz}},
                {T(t.x), T(t.y), T(t.z)}};
    }

    // *this * b, b affine.
    Rows<T> operator*(const Rows<T>& b) const {
        using L = Lanes<T>;
        Rows<T> c;
        for (int i = 0; i < 3; ++i) {
            c.r[i] = L::splat(a[i][0]) * b.r[0] + L::splat(a[i][1]) * b.r[1] +
                     L::splat(a[i][2]) * b.r[2];
        }
        c.r[3] =
            L::splat(t[0]) * b.r[0] + L::splat(t[1]) * b.r[1] + L::splat(t[2]) * b.r[2] + b.r[3];
        return c;
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
inline Imath::Vec3<T> multDirInverse(const Imath::Matrix44<T>& m, const Imath::Vec3<T>& v) {
    // Columns of the adjugate are the cross products of the matrix's rows.
    const Imath::Vec3<T> r0(m[0][0], m[0][1], m[0][2]), r1(m[1][0], m[1][1], m[1][2]),
        r2(m[2][0], m[2][1], m[2][2]);
    const Imath::Vec3<T> c0 = r1 % r2, c1 = r2 % r0, c2 = r0 % r1;
    const T det = r0 ^ c0;
    if (det == T(0)) return v;
    return Imath::Vec3<T>(v ^ c0, v ^ c1, v ^ c2) / det;
}

}  // namespace detail
}  // namespace ZeltoCore
