#include "core/metadata/GeometryTraits.h"

#include <limits>

namespace ZeltoCore {
namespace {

using ZeltoUtils::Curve;
using ZeltoUtils::Image;
using ZeltoUtils::Mesh;
using ZeltoUtils::SampledCurve;

size_t curveBytes(const Curve& c) {
    return 8 + 12 * c.cvs().size() + 8 + 4 * c.knots().size() + 4;
}

void writeCurve(Archive& a, const Curve& c) {
    a << c.cvs() << c.knots() << static_cast<uint32_t>(c.degree());
}

void readCurve(Archive& a, Curve& c) {
    uint32_t degree = 0;
    a >> c.cvs() >> c.knots() >> degree;
    c.setDegree(degree);
}

void hashCurve(MurmurHash3& h, const Curve& c) {
    h.append(c.cvs());
    h.append(c.knots());
    h.append(static_cast<unsigned int>(c.degree()));
}

bool equalCurves(const Curve& a, const Curve& b) {
    return a.cvs() == b.cvs() && a.knots() == b.knots() && a.degree() == b.degree();
}

size_t imageSampleBytes(const Image& i) {
    return i.sampleType() == 1 ? 4 : 1;
}

// Bytes of w * h * c samples of `each` bytes, or max() when they exceed `limit`.
uint64_t sampleBytesWithin(uint32_t w, uint32_t h, uint32_t c, uint64_t each, uint64_t limit) {
    const uint64_t tooMany = std::numeric_limits<uint64_t>::max();
    if (!w || !h || !c || !each) return 0;  // an empty image fits anywhere
    uint64_t n = w;
    for (uint64_t f : {uint64_t(h), uint64_t(c), each}) {
        if (f && n > limit / f) return tooMany;
        n *= f;
    }
    return n <= limit ? n : tooMany;
}

}  // namespace

size_t CurveTraits::size(const C& c) {
    return curveBytes(c);
}
void CurveTraits::write(Archive& a, const C& c) {
    writeCurve(a, c);
}
void CurveTraits::read(Archive& a, C& c) {
    readCurve(a, c);
}
void CurveTraits::hash(MurmurHash3& h, const C& c) {
    hashCurve(h, c);
}
bool CurveTraits::equal(const C& a, const C& b, double) {
    return equalCurves(a, b);
}

size_t SampledCurveTraits::size(const C& c) {
    return curveBytes(c) + 2;
}

void SampledCurveTraits::write(Archive& a, const C& c) {
    writeCurve(a, c);
    a << c.sampleCount();
}

void SampledCurveTraits::read(Archive& a, C& c) {
    readCurve(a, c);
    uint16_t count = 0;
    a >> count;
    if (!a.failed()) c.resample(count);
}

void SampledCurveTraits::hash(MurmurHash3& h, const C& c) {
    hashCurve(h, c);
    h.append(c.sampleCount());
}

bool SampledCurveTraits::equal(const C& a, const C& b, double) {
    return equalCurves(a, b) && a.sampleCount() == b.sampleCount();
}

size_t MeshTraits::size(const M& m) {
    size_t n = 7 * 8 +
               12 * (m.points.size() + m.normals.size() + m.colors.size() + m.triangles.size()) +
               4 * (m.faceCounts.size() + m.faceIndices.size()) + 8 * m.uvs.size() + 8;
    for (const ZeltoUtils::MeshUvSet& set : m.uvSets) {
        n += 24 + set.name.size() + 8 * set.uvs.size() + 4 * set.indices.size();
    }
    return n;
}

void MeshTraits::write(Archive& a, const M& m) {
    a << m.points << m.normals << m.faceCounts << m.faceIndices << m.uvs << m.colors << m.triangles
      << uint64_t(m.uvSets.size());
    for (const ZeltoUtils::MeshUvSet& set : m.uvSets)
        a << set.name << set.uvs << set.indices;
}

void MeshTraits::read(Archive& a, M& m) {
    a >> m.points >> m.normals >> m.faceCounts >> m.faceIndices >> m.uvs >> m.colors >> m.triangles;
    if (a.version < kRecordsVersion) return;
    uint64_t count = 0;
    if (!a.readCount(count, 24)) return;
    m.uvSets.resize(count);
    for (ZeltoUtils::MeshUvSet& set : m.uvSets) {
        if (a.failed()) return;
        a >> set.name >> set.uvs >> set.indices;
    }
}

void MeshTraits::hash(MurmurHash3& h, const M& m) {
    h.append(m.points);
    h.append(m.normals);
    h.append(m.faceCounts);
    h.append(m.faceIndices);
    h.append(m.uvs);
    h.append(m.colors);
    h.append(m.triangles);
    h.append(uint64_t(m.uvSets.size()));
    for (const ZeltoUtils::MeshUvSet& set : m.uvSets) {
        h.append(set.name);
        h.append(set.uvs);
        h.append(set.indices);
    }
}

bool MeshTraits::equal(const M& a, const M& b, double) {
    return a.points == b.points && a.normals == b.normals && a.faceCounts == b.faceCounts &&
           a.faceIndices == b.faceIndices && a.uvs == b.uvs && a.colors == b.colors &&
           a.triangles == b.triangles;
}

size_t ImageTraits::size(const I& i) {
    return 14 + i.numSamples() * imageSampleBytes(i);
}

void ImageTraits::write(Archive& a, const I& i) {
    a << uint32_t(i.width()) << uint32_t(i.height()) << uint32_t(i.channels()) << i.sampleType();
    const size_t bytes = i.numSamples() * imageSampleBytes(i);
    if (i.samples()) {
        a.write(i.samples(), bytes);
    } else {
        a.skip(bytes);  // an image without storage has no samples to write
    }
}

void ImageTraits::read(Archive& a, I& i) {
    uint32_t w = 0, h = 0, c = 0;
    uint16_t type = 0;
    a >> w >> h >> c >> type;
    if (a.failed()) return;
    const uint64_t each = type == 1 ? 4 : 1;
    const uint64_t bytes = sampleBytesWithin(w, h, c, each, a.remaining());
    if (bytes > a.remaining()) {
        a.skip(bytes);  // refused: flags the archive
        return;
    }
    if (type == 1) {
        std::vector<float> samples(bytes / 4);
        a.read(samples.data(), bytes);
        i = Image(samples.data(), w, h, c);
    } else {
        i = Image(a.data + a.position, w, h, c);
        a.skip(bytes);
    }
}

void ImageTraits::hash(MurmurHash3& h, const I& i) {
    h.append(i.width());
    h.append(i.height());
    h.append(i.channels());
    h.append(i.sampleType());
    const void* samples = i.samples();
    h.hash(samples, samples ? i.numSamples() * imageSampleBytes(i) : 0);
}

}  // namespace ZeltoCore
