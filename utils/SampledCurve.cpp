#include "utils/SampledCurve.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <mutex>

namespace ZeltoUtils {

namespace {

// Stored knots are used only when they form a valid vector for (n, degree).
bool usableKnots(const std::vector<float>& knots, size_t n, unsigned degree) {
    if (knots.size() != n + degree + 1) return false;
    for (size_t i = 0; i < knots.size(); ++i) {
        if (!std::isfinite(knots[i])) return false;
        if (i > 0 && knots[i] < knots[i - 1]) return false;
    }
    return true;
}

// Clamped uniform knots: degree + 1 zeros, 1 .. n - degree - 1, degree + 1 times n - degree.
std::vector<float> clampedUniformKnots(size_t n, unsigned degree) {
    std::vector<float> knots(n + degree + 1);
    for (size_t i = 0; i < knots.size(); ++i) {
        const size_t k = i < degree ? 0 : i - degree;
        knots[i] = float(std::min(k, n - degree));
    }
    return knots;
}

// Index k of the knot span [knots[k], knots[k + 1]) holding t, with degree <= k < n; at the end
// of the range the last non-empty span is taken so the curve's end point is reached.
size_t findSpan(const std::vector<float>& knots, size_t n, unsigned degree, float t) {
    if (t >= knots[n]) {
        size_t k = n - 1;
        while (k > degree && !(knots[k] < knots[n]))
            --k;
        return k;
    }
    const auto first = knots.begin() + degree;
    const auto last = knots.begin() + n;
    const size_t k = size_t(std::upper_bound(first, last, t) - knots.begin());
    return std::clamp(k == 0 ? size_t(0) : k - 1, size_t(degree), n - 1);
}

// de Boor's algorithm (de Boor, 1972) on the span k.
Imath::V3f deBoor(const std::vector<Imath::V3f>& cvs, const std::vector<float>& knots,
                  unsigned degree, size_t k, float t) {
    std::array<Imath::V3f, SampledCurve::kMaxEvalDegree + 1> d;
    for (unsigned j = 0; j <= degree; ++j)
        d[j] = cvs[j + k - degree];
    for (unsigned r = 1; r <= degree; ++r) {
        for (unsigned j = degree; j >= r; --j) {
            const float lo = knots[j + k - degree];
            const float hi = knots[j + 1 + k - r];
            const float alpha = hi > lo ? (t - lo) / (hi - lo) : 0.0f;
            d[j] = d[j - 1] * (1.0f - alpha) + d[j] * alpha;
        }
    }
    return d[degree];
}

}  // namespace

// The curve as resample() saw it, and its points once evaluated.
struct SampledCurve::Samples {
    Curve curve;
    unsigned short count;
    std::once_flag once;
    std::vector<Imath::V3f> points;

    void evaluate() {
        const std::vector<Imath::V3f>& cvs = curve.cvs();
        const size_t n = cvs.size();
        unsigned degree = curve.degree();
        std::vector<float> fallback;
        const std::vector<float>* knotVector = &curve.knots();
        if (degree > kMaxEvalDegree || degree >= n || !usableKnots(curve.knots(), n, degree)) {
            degree = unsigned(std::min<size_t>({degree, n - 1, kMaxEvalDegree}));
            fallback = clampedUniformKnots(n, degree);
            knotVector = &fallback;
        }
        const float start = (*knotVector)[degree];
        const float end = (*knotVector)[n];
        points.reserve(count);
        for (unsigned i = 0; i < count; ++i) {
            const float u = count == 1 ? 0.0f : float(i) / float(count - 1);
            const float t = i + 1 == count && count > 1 ? end : start + (end - start) * u;
            const size_t k = findSpan(*knotVector, n, degree, t);
            points.push_back(deBoor(cvs, *knotVector, degree, k, t));
        }
    }
};

void SampledCurve::resample(unsigned short count) {
    m_sampleCount = count;
    m_samples.reset();
    if (cvs().empty() || count == 0) return;
    m_samples = std::make_shared<Samples>();
    m_samples->curve = *this;
    m_samples->count = count;
}

const std::vector<Imath::V3f>& SampledCurve::samples() const {
    static const std::vector<Imath::V3f> none;
    if (!m_samples) return none;
    Samples& s = *m_samples;
    std::call_once(s.once, [&s] { s.evaluate(); });
    return s.points;
}

}  // namespace ZeltoUtils
