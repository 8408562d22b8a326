// Curve: a B-spline curve given by control points, a knot vector and a degree.
//
// Contract: a plain, copyable value. The three parts are stored as given and are not checked
// against each other (a curve read from a file may carry any combination); code that evaluates
// the curve (SampledCurve::resample) copes with inconsistent data. A new curve is empty and cubic
// (degree 3).
//
//   ZeltoUtils::Curve curve;
//   curve.cvs() = {{0, 0, 0}, {1, 1, 0}, {2, 0, 0}, {3, 1, 0}};
#pragma once

#include <vector>

#include <Imath/ImathVec.h>

#include "utils/Export.h"

namespace ZeltoUtils {

class ZELTO_API Curve {
public:
    Curve() = default;

    // Control points.
    std::vector<Imath::V3f>& cvs() { return m_cvs; }
    const std::vector<Imath::V3f>& cvs() const { return m_cvs; }

    // Knot vector; a consistent curve has cvs().size() + degree() + 1 knots.
    std::vector<float>& knots() { return m_knots; }
    const std::vector<float>& knots() const { return m_knots; }

    unsigned degree() const { return m_degree; }
    void setDegree(unsigned degree) { m_degree = degree; }

private:
    std::vector<Imath::V3f> m_cvs;
    std::vector<float> m_knots;
    unsigned m_degree = 3;
};

}  // namespace ZeltoUtils
