// SampledCurve: a Curve together with points evaluated at evenly spaced parameters.
//
// Contract: resample(count) stores the count and the curve as it is now; samples() returns
// `count` points evaluated from that curve, from the start to the end of its parameter range.
// Later edits of the control points, knots or degree do not change the samples until the next
// resample. The points are evaluated on the first call of samples() and shared by copies, so
// reading a stored curve costs what its bytes cost, whatever count it asks for (a 16-bit count
// could otherwise make a few bytes of a file cost 768 KiB each). samples() is safe to call from
// several threads at once. Any stored curve is accepted and never read out of bounds: when the
// knots do not fit (count other than cvs + degree + 1, decreasing or non-finite values) or the
// degree is too high for the control points, the curve is evaluated with a clamped uniform knot
// vector instead, of degree min(degree, cvs - 1, kMaxEvalDegree). A curve without control points
// has no samples (the count is still kept).
//
//   ZeltoUtils::SampledCurve curve;
//   curve.cvs() = {{0, 0, 0}, {1, 2, 0}, {3, 2, 0}, {4, 0, 0}};  curve.resample(16);
#pragma once

#include <memory>
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
    const std::vector<Imath::V3f>& samples() const;

private:
    struct Samples;
    std::shared_ptr<Samples> m_samples;  // null: no samples
    unsigned short m_sampleCount = 0;
};

}  // namespace ZeltoUtils
