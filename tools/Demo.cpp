#include "tools/Demo.h"

#include <string>
#include <vector>

#include "core/ZeltoCore.h"

namespace ZeltoTool {

using namespace ZeltoCore;

bool demoArchive(std::ostream& out) {
    const double weight = 0.75;
    const std::string name = "left_knee";
    const Imath::V3d offset(0.0, 42.5, -3.25);
    const Imath::Quatd turn(0.5, 0.5, 0.5, 0.5);
    const std::vector<float> curve{0.f, 0.25f, 1.f};

    const size_t bytes = 8 + (8 + name.size()) + 24 + 32 + (8 + curve.size() * 4);
    Archive archive(bytes, 0);
    archive << weight << name << offset << turn << curve;
    out << "wrote " << archive.position << " bytes (buffer " << archive.size << ")\n";

    archive.reset();
    double w = 0;
    std::string n;
    Imath::V3d o;
    Imath::Quatd q;
    std::vector<float> c;
    archive >> w >> n >> o >> q >> c;
    const bool ok = !archive.failed() && w == weight && n == name && o == offset && q == turn &&
                    c == curve && archive.position == archive.size;
    out << "read back double, string, Vec3d, Quatd and float vector: "
        << (ok ? "equal" : "DIFFERENT") << "\n";

    MurmurHash3 h;
    h.append(name);
    h.append(offset);
    out << "fingerprint of name and offset: " << h << "\n";
    return ok;
}

}  // namespace ZeltoTool
