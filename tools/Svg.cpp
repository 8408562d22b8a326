#include "tools/Svg.h"

#include <fstream>

namespace ZeltoTool {

namespace {

std::string escaped(const std::string& text) {
    std::string out;
    for (char c : text) {
        switch (c) {
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '&':
                out += "&amp;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

}  // namespace

Svg::Svg(double width, double height) : m_width(width), m_height(height) {
    // Two decimals are finer than a pixel and keep the file readable.
    m_body.setf(std::ios::fixed);
    m_body.precision(2);
}

void Svg::line(const Imath::V2d& a, const Imath::V2d& b, const std::string& colour, double width,
               bool dashed) {
    m_body << "<line x1=\"" << a.x << "\" y1=\"" << a.y << "\" x2=\"" << b.x << "\" y2=\"" << b.y
           << "\" stroke=\"" << colour << "\" stroke-width=\"" << width
           << "\" stroke-linecap=\"round\"" << (dashed ? " stroke-dasharray=\"4 3\"" : "")
           << "/>\n";
}

void Svg::arrow(const Imath::V2d& a, const Imath::V2d& b, const std::string& colour, double width) {
    line(a, b, colour, width);
    const Imath::V2d along = (b - a).normalized();
    if (along.length() == 0) return;
    const Imath::V2d side(-along.y, along.x);
    const double head = 4 + 2 * width;
    m_body << "<polygon points=\"" << b.x << "," << b.y;
    for (double s : {1.0, -1.0}) {
        const Imath::V2d p = b - along * head + side * (s * head * 0.5);
        m_body << " " << p.x << "," << p.y;
    }
    m_body << "\" fill=\"" << colour << "\"/>\n";
}

void Svg::circle(const Imath::V2d& centre, double radius, const std::string& fill) {
    m_body << "<circle cx=\"" << centre.x << "\" cy=\"" << centre.y << "\" r=\"" << radius
           << "\" fill=\"" << fill << "\"/>\n";
}

void Svg::cross(const Imath::V2d& centre, double size, const std::string& colour) {
    line(centre - Imath::V2d(size, size), centre + Imath::V2d(size, size), colour, 2);
    line(centre - Imath::V2d(size, -size), centre + Imath::V2d(size, -size), colour, 2);
}

void Svg::rect(const Imath::V2d& corner, const Imath::V2d& size, const std::string& stroke) {
    m_body << "<rect x=\"" << corner.x << "\" y=\"" << corner.y << "\" width=\"" << size.x
           << "\" height=\"" << size.y << "\" fill=\"none\" stroke=\"" << stroke << "\"/>\n";
}

void Svg::text(const Imath::V2d& at, const std::string& text, const std::string& colour,
               double size) {
    m_body << "<text x=\"" << at.x << "\" y=\"" << at.y << "\" fill=\"" << colour
           << "\" font-family=\"sans-serif\" font-size=\"" << size << "\">" << escaped(text)
           << "</text>\n";
}

std::string Svg::str() const {
    std::ostringstream out;
    out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << m_width << "\" height=\""
        << m_height << "\" viewBox=\"0 0 " << m_width << " " << m_height << "\">\n"
        << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n"
        << m_body.str() << "</svg>\n";
    return out.str();
}

bool Svg::write(const std::string& path) const {
    std::ofstream file(path, std::ios::binary);
    file << str();
    return static_cast<bool>(file.flush());
}

}  // namespace ZeltoTool
