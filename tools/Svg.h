// Svg: a small SVG drawing of lines, circles and text in pixel coordinates (y down), kept in
// memory and written to a file in one go.
//
//   Svg svg(400, 300);
//   svg.line({10, 10}, {100, 50}, "#1f77b4", 2);
//   svg.text({10, 290}, "legend", "#000", 12);
//   svg.write("out.svg");
#pragma once

#include <Imath/ImathVec.h>

#include <sstream>
#include <string>

namespace ZeltoTool {

class Svg {
public:
    Svg(double width, double height);

    void line(const Imath::V2d& a, const Imath::V2d& b, const std::string& colour, double width,
              bool dashed = false);
    // A line ending in an arrow head at `b`.
    void arrow(const Imath::V2d& a, const Imath::V2d& b, const std::string& colour, double width);
    void circle(const Imath::V2d& centre, double radius, const std::string& fill);
    void cross(const Imath::V2d& centre, double size, const std::string& colour);
    void rect(const Imath::V2d& corner, const Imath::V2d& size, const std::string& stroke);
    void text(const Imath::V2d& at, const std::string& text, const std::string& colour,
              double size);

    std::string str() const;
    bool write(const std::string& path) const;

private:
    double m_width;
    double m_height;
    std::ostringstream m_body;
};

}  // namespace ZeltoTool
