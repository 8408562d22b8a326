// SampledCurve: a Curve together with points evaluated at evenly spaced parameters.
//
// Contract: resample(count) stores the count and evaluates `count` points from the start to the
// end of the curve's parameter range; later edits of the control points, knots or degree do not
// update the samples until the next resample. Any stored curve is accepted and never read out of
// bounds: when the knots do not fit (count other than cvs + degree + 1, decreasing or non-finite
// values) or the degree is too high for the control points, the curve is evaluated with a clamped
// uniform knot vector instead, of degree min(degree, cvs - 1, kMaxEvalDegree). A curve without
// control points has no samples (the count is still kept).
//
//   ZeltoUtils::SampledCurve curve;
//   curve.cvs() = {{0, 0, 0}, {1, 2, 0}, {3, 2, 0}, {4, 0, 0}};  curve.resample(16);
#pragma once

#include <vector>

#include <Imath/ImathVec.h>

#include "utils/Curve.h"
#include "utils/Export.h"

namespace ZeltoUtils {

class ZELTO_API SampledCurve : public Curve {
public:
    // Highest degree evaluated; bounds the work of a resample for any stored degree.
    static constexpr unsigned kMaxEvalDegree = 16;

    SampledCurve() = default;

    unsigned short sampleCount() const { return m_sampleCount; }
    void resample(unsigned short count);
    const std::vector<Imath::V3f>& samples() const { return m_samples; }

private:
    std::vector<Imath::V3f> m_samples;
    unsigned short m_sampleCount = 0;
};

}  // namespace ZeltoUtils
