// Curves, meshes and images as dicts keyed by their member names, and their table entries.
#include "python/src/ValueTable.h"

namespace zelto_py {

namespace {

// d[key] converted to T, or `fallback` when the key is absent.
template <class T>
T field(const py::dict& d, const char* key, T fallback) {
    return d.contains(key) ? Convert<T>::from(d[key]) : fallback;
}

py::dict expectDict(py::handle h, const char* what) {
    if (!py::isinstance<py::dict>(h)) throw py::type_error(std::string("expected ") + what);
    return py::reinterpret_borrow<py::dict>(h);
}

py::dict curveDict(const ZeltoUtils::Curve& c) {
    py::dict d;
    d["cvs"] = Convert<std::vector<Imath::V3f>>::to(c.cvs());
    d["knots"] = Convert<std::vector<float>>::to(c.knots());
    d["degree"] = Convert<unsigned>::to(c.degree());
    return d;
}

void readCurve(const py::dict& d, ZeltoUtils::Curve& c) {
    c.cvs() = field(d, "cvs", std::vector<Imath::V3f>());
    c.knots() = field(d, "knots", std::vector<float>());
    c.setDegree(field(d, "degree", 3u));
}

}  // namespace

py::object Convert<ZeltoUtils::Curve>::to(const ZeltoUtils::Curve& c) {
    return curveDict(c);
}

ZeltoUtils::Curve Convert<ZeltoUtils::Curve>::from(py::handle h) {
    ZeltoUtils::Curve c;
    readCurve(expectDict(h, "a curve dict (cvs, knots, degree)"), c);
    return c;
}

py::object Convert<ZeltoUtils::SampledCurve>::to(const ZeltoUtils::SampledCurve& c) {
    py::dict d = curveDict(c);
    d["sampleCount"] = Convert<unsigned short>::to(c.sampleCount());
    d["samples"] = Convert<std::vector<Imath::V3f>>::to(c.samples());
    return std::move(d);
}

// The samples are derived: they are evaluated again from the curve and the sample count.
ZeltoUtils::SampledCurve Convert<ZeltoUtils::SampledCurve>::from(py::handle h) {
    const py::dict d = expectDict(h, "a sampled curve dict (cvs, knots, degree, sampleCount)");
    ZeltoUtils::SampledCurve c;
    readCurve(d, c);
    c.resample(field<unsigned short>(d, "sampleCount", 0));
    return c;
}

py::object Convert<ZeltoUtils::Mesh>::to(const ZeltoUtils::Mesh& m) {
    py::dict d;
    d["points"] = Convert<std::vector<Imath::V3f>>::to(m.points);
    d["normals"] = Convert<std::vector<Imath::V3f>>::to(m.normals);
    d["faceCounts"] = Convert<std::vector<int32_t>>::to(m.faceCounts);
    d["faceIndices"] = Convert<std::vector<int32_t>>::to(m.faceIndices);
    d["uvs"] = Convert<std::vector<Imath::V2f>>::to(m.uvs);
    d["colors"] = Convert<std::vector<Imath::V3f>>::to(m.colors);
    d["triangles"] = Convert<std::vector<Imath::V3i>>::to(m.triangles);
    py::list sets;
    for (const ZeltoUtils::MeshUvSet& s : m.uvSets) {
        py::dict set;
        set["name"] = toPyStr(s.name);
        set["uvs"] = Convert<std::vector<Imath::V2f>>::to(s.uvs);
        set["indices"] = Convert<std::vector<int32_t>>::to(s.indices);
        sets.append(std::move(set));
    }
    d["uvSets"] = std::move(sets);
    return std::move(d);
}

ZeltoUtils::Mesh Convert<ZeltoUtils::Mesh>::from(py::handle h) {
    const py::dict d = expectDict(h, "a mesh dict");
    ZeltoUtils::Mesh m;
    m.points = field(d, "points", m.points);
    m.normals = field(d, "normals", m.normals);
    m.faceCounts = field(d, "faceCounts", m.faceCounts);
    m.faceIndices = field(d, "faceIndices", m.faceIndices);
    m.uvs = field(d, "uvs", m.uvs);
    m.colors = field(d, "colors", m.colors);
    m.triangles = field(d, "triangles", m.triangles);
    if (d.contains("uvSets")) {
        for (py::handle item : py::reinterpret_borrow<py::iterable>(d["uvSets"])) {
            const py::dict s = expectDict(item, "a uv set dict (name, uvs, indices)");
            m.uvSets.push_back({field(s, "name", std::string()),
                                field(s, "uvs", std::vector<Imath::V2f>()),
                                field(s, "indices", std::vector<int32_t>())});
        }
    }
    return m;
}

// Samples: bytes for 8-bit images, a list of floats for float images.
py::object Convert<ZeltoUtils::Image>::to(const ZeltoUtils::Image& i) {
    py::dict d;
    d["width"] = i.width();
    d["height"] = i.height();
    d["channels"] = i.channels();
    if (const float* f = i.floatSamples()) {
        d["samples"] = Convert<std::vector<float>>::to(std::vector<float>(f, f + i.numSamples()));
    } else {
        const unsigned char* b = i.byteSamples();
        d["samples"] = py::bytes(reinterpret_cast<const char*>(b), b ? i.numSamples() : 0);
    }
    return std::move(d);
}

// Bytes-like samples make an 8-bit image, any other sequence a float image.
ZeltoUtils::Image Convert<ZeltoUtils::Image>::from(py::handle h) {
    const py::dict d = expectDict(h, "an image dict (width, height, channels, samples)");
    const unsigned w = field(d, "width", 0u), ht = field(d, "height", 0u),
                   c = field(d, "channels", 0u);
    const size_t n = size_t(w) * ht * c;
    if (!d.contains("samples") || n == 0) return ZeltoUtils::Image();
    py::object samples = d["samples"];
    if (py::isinstance<py::bytes>(samples) || py::isinstance<py::bytearray>(samples)) {
        std::string bytes = samples.cast<std::string>();
        if (bytes.size() != n)
            throw py::value_error("image samples: expected width*height*channels");
        return ZeltoUtils::Image(reinterpret_cast<unsigned char*>(bytes.data()), w, ht, c);
    }
    std::vector<float> floats = Convert<std::vector<float>>::from(samples);
    if (floats.size() != n) throw py::value_error("image samples: expected width*height*channels");
    return ZeltoUtils::Image(floats.data(), w, ht, c);
}

void addGeometryTypes(std::vector<ValueType>& out) {
    addScalarsAndArrays<ZeltoUtils::Mesh, ZeltoUtils::Curve, ZeltoUtils::SampledCurve>(out);
    out.push_back(scalarType<ZeltoUtils::Image>());
}

}  // namespace zelto_py
