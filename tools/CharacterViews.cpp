#include "tools/CharacterViews.h"

#include <algorithm>
#include <limits>

namespace ZeltoTool {

namespace {

constexpr double kPanelWidth = 380;
constexpr double kPanelHeight = 440;
constexpr double kMargin = 28;
constexpr double kTitle = 22;
constexpr double kLegendLine = 18;

// Horizontal screen axis of each view; y is up in both.
double horizontal(const Imath::V3d& p, int view) {
    return view == 0 ? p.x : p.z;
}

struct Range {
    double low = std::numeric_limits<double>::max();
    double high = std::numeric_limits<double>::lowest();
    void add(double v) {
        low = std::min(low, v);
        high = std::max(high, v);
    }
    double size() const { return high > low ? high - low : 1.0; }
};

template <class Visit>
void forEachPoint(const std::vector<Scene>& rows, Visit visit) {
    for (const Scene& scene : rows) {
        for (const Scene::Segment& s : scene.segments) {
            visit(s.a);
            visit(s.b);
        }
        for (const Scene::Mark& m : scene.marks)
            visit(m.at);
    }
}

}  // namespace

void Scene::addBones(const ZeltoCore::Skeleton& skeleton, const std::vector<Imath::M44d>& world,
                     const std::function<std::string(unsigned short)>& colourOf, double width,
                     bool dashed) {
    const unsigned short n =
        static_cast<unsigned short>(std::min<size_t>(skeleton.numJoints(), world.size()));
    for (unsigned short j = 0; j < n; ++j) {
        const std::string colour = colourOf(j);
        if (colour.empty()) continue;
        const ZeltoCore::Joint* parent = skeleton[j].parent();
        if (parent && parent->id() < n)
            segments.push_back({world[parent->id()].translation(), world[j].translation(), colour,
                                width, dashed, false});
        if (!dashed) marks.push_back({world[j].translation(), colour, false});
    }
}

Svg drawViews(const std::vector<Scene>& rows, const std::vector<LegendEntry>& legend) {
    Range across[2], up;
    forEachPoint(rows, [&](const Imath::V3d& p) {
        across[0].add(horizontal(p, 0));
        across[1].add(horizontal(p, 1));
        up.add(p.y);
    });
    const double scale = std::min({(kPanelWidth - 2 * kMargin) / across[0].size(),
                                   (kPanelWidth - 2 * kMargin) / across[1].size(),
                                   (kPanelHeight - 2 * kMargin - kTitle) / up.size()});

    const double height = kPanelHeight * rows.size() + kLegendLine * (legend.size() + 1);
    Svg svg(2 * kPanelWidth, height);
    const char* viewNames[] = {"front", "side, from its right"};
    for (size_t r = 0; r < rows.size(); ++r) {
        for (int view = 0; view < 2; ++view) {
            const Imath::V2d corner(view * kPanelWidth, r * kPanelHeight);
            // Centred across, top-aligned below the title.
            const double left = corner.x + (kPanelWidth - across[view].size() * scale) / 2 -
                                across[view].low * scale;
            const double top = corner.y + kTitle + kMargin + up.high * scale;
            const auto at = [&](const Imath::V3d& p) {
                return Imath::V2d(left + horizontal(p, view) * scale, top - p.y * scale);
            };
            svg.rect(corner + Imath::V2d(2, 2), Imath::V2d(kPanelWidth - 4, kPanelHeight - 4),
                     "#bbbbbb");
            svg.text(corner + Imath::V2d(10, 20), rows[r].title + " (" + viewNames[view] + ")",
                     "#000000", 14);
            for (const Scene::Segment& s : rows[r].segments) {
                if (s.arrow)
                    svg.arrow(at(s.a), at(s.b), s.colour, s.width);
                else
                    svg.line(at(s.a), at(s.b), s.colour, s.width, s.dashed);
            }
            for (const Scene::Mark& m : rows[r].marks) {
                if (m.cross)
                    svg.cross(at(m.at), 6, m.colour);
                else
                    svg.circle(at(m.at), 3, m.colour);
            }
        }
    }
    double y = kPanelHeight * rows.size() + kLegendLine;
    for (const LegendEntry& entry : legend) {
        svg.line(Imath::V2d(12, y - 4), Imath::V2d(36, y - 4), entry.colour, 3);
        svg.text(Imath::V2d(44, y), entry.text, "#000000", 12);
        y += kLegendLine;
    }
    return svg;
}

}  // namespace ZeltoTool
