// zelto.Skeleton and zelto.Joint.
//
// A Joint is a handle (skeleton, id) checked on every use, never a pointer into the joint array,
// so no Python object can outlive the joint it names. Joint property maps are handed out as the
// skeleton's own maps (they keep the skeleton alive); the calls that would delete them
// (setNumJoints, clear, clearJointMetadata) are not bound.
#include <pybind11/stl.h>

#include <sstream>

#include "core/skeleton/Skeleton.h"
#include "core/skeleton/SkeletonArchive.h"
#include "python/src/Convert.h"
#include "python/src/Skeletons.h"

namespace zelto_py {

using ZeltoCore::Joint;
using ZeltoCore::MapMetadata;
using ZeltoCore::Skeleton;

namespace {

struct JointRef {
    std::shared_ptr<Skeleton> skeleton;
    unsigned short id;

    Joint& get() const {
        if (id >= skeleton->numJoints()) throw py::index_error("the joint no longer exists");
        return skeleton->joint(id);
    }
};

py::object refTo(const std::shared_ptr<Skeleton>& s, const Joint* j) {
    if (!j || s->numJoints() == 0) return py::none();
    const std::ptrdiff_t index = j - &s->joint(0);
    if (index < 0 || index >= s->numJoints()) return py::none();
    return py::cast(JointRef{s, static_cast<unsigned short>(index)});
}

unsigned short foot(const Skeleton& s, unsigned short f) {
    if (f >= s.numFeet()) throw py::index_error("foot index out of range");
    return f;
}

}  // namespace

unsigned short checkedJoint(const Skeleton& s, long id) {
    if (id < 0 || id >= long(s.numJoints())) throw py::index_error("joint id out of range");
    return static_cast<unsigned short>(id);
}

static std::shared_ptr<MapMetadata> jointMetadataOf(const std::shared_ptr<Skeleton>& s,
                                                    unsigned short id) {
    return std::shared_ptr<MapMetadata>(s, &s->jointMetadata(checkedJoint(*s, id)));
}

void bindSkeleton(py::module_& m) {
    using V3d = Imath::V3d;
    py::class_<JointRef>(m, "Joint", "One joint of a skeleton, named by the skeleton and its id.")
        .def(
            "id", [](const JointRef& j) { return j.id; }, "The joint's index in its skeleton.")
        .def(
            "name", [](const JointRef& j) { return toPyStr(j.get().name()); }, "The name.")
        .def(
            "setName", [](const JointRef& j, py::handle n) { j.get().setName(fromPyStr(n)); },
            py::arg("name"), "Sets the name (call Skeleton.buildJointNameMap afterwards).")
        .def(
            "rotation",
            [](const JointRef& j) { return Convert<Imath::Quatd>::to(j.get().rotation()); },
            "Bind rotation relative to the parent, (r, x, y, z).")
        .def(
            "setRotation",
            [](const JointRef& j, py::handle q) {
                j.get().setRotation(Convert<Imath::Quatd>::from(q));
            },
            py::arg("rotation"), "Sets the bind rotation (r, x, y, z).")
        .def(
            "translation",
            [](const JointRef& j) { return Convert<V3d>::to(j.get().translation()); },
            "Bind translation relative to the parent.")
        .def(
            "setTranslation",
            [](const JointRef& j, py::handle t) { j.get().setTranslation(Convert<V3d>::from(t)); },
            py::arg("translation"), "Sets the bind translation.")
        .def(
            "scale", [](const JointRef& j) { return Convert<V3d>::to(j.get().scale()); },
            "Bind scale.")
        .def(
            "setScale",
            [](const JointRef& j, py::handle s) { j.get().setScale(Convert<V3d>::from(s)); },
            py::arg("scale"), "Sets the bind scale.")
        .def(
            "matrix", [](const JointRef& j) { return Convert<Imath::M44d>::to(j.get().matrix()); },
            "The bind transform as a 4x4 row-vector matrix (nested lists).")
        .def(
            "setMatrix",
            [](const JointRef& j, py::handle mat) {
                j.get().setMatrix(Convert<Imath::M44d>::from(mat));
            },
            py::arg("matrix"), "Sets the bind transform from a matrix (shear is dropped).")
        .def(
            "parent", [](const JointRef& j) { return refTo(j.skeleton, j.get().parent()); },
            "The parent joint, or None.")
        .def(
            "numChildren", [](const JointRef& j) { return j.get().numChildren(); },
            "Number of children.")
        .def(
            "child",
            [](const JointRef& j, unsigned short i) { return refTo(j.skeleton, j.get().child(i)); },
            py::arg("index"), "The child at `index` of the child list, or None.")
        .def(
            "addChild",
            [](const JointRef& j, const JointRef& child) {
                if (child.skeleton != j.skeleton)
                    throw py::value_error("the child belongs to another skeleton");
                return j.get().addChild(&child.get());
            },
            py::arg("child"), "Appends a child of the same skeleton and makes this its parent.")
        .def(
            "isChildOf", [](const JointRef& j, unsigned short id) { return j.get().isChildOf(id); },
            py::arg("id"), "True when an ancestor has this id.")
        .def("__eq__", [](const JointRef& a,
                          const JointRef& b) { return a.skeleton == b.skeleton && a.id == b.id; })
        .def("__hash__",
             [](const JointRef& j) {
                 return py::hash(py::make_tuple(size_t(j.skeleton.get()), j.id));
             })
        .def("__repr__", [](const JointRef& j) {
            return "<zelto.Joint " + std::to_string(j.id) + " " + j.get().name() + ">";
        });

    py::class_<Skeleton, std::shared_ptr<Skeleton>>(
        m, "Skeleton", "The joint hierarchy of a character; a joint's id is its index.")
        .def(py::init<unsigned short>(), py::arg("numJoints") = 1,
             "`numJoints` default joints, root 0, no links.")
        .def(
            "copy", [](const Skeleton& s) { return std::make_shared<Skeleton>(s); }, "A deep copy.")
        .def("numJoints", &Skeleton::numJoints, "Number of joints.")
        .def("__len__", &Skeleton::numJoints)
        .def(
            "joint",
            [](std::shared_ptr<Skeleton> s, long id) {
                return JointRef{s, checkedJoint(*s, id)};
            },
            py::arg("id"), "The joint with this id.")
        .def("__getitem__",
             [](std::shared_ptr<Skeleton> s, long id) {
                 return JointRef{s, checkedJoint(*s, id)};
             })
        .def(
            "root", [](std::shared_ptr<Skeleton> s) { return refTo(s, s->root()); },
            "The root joint, or None.")
        .def("setRoot", &Skeleton::setRoot, py::arg("id"), "Makes joint `id` the root.")
        .def("jointId", &Skeleton::jointId, py::arg("name"),
             "Id of the joint of this name as of the last buildJointNameMap, or -1.")
        .def("buildJointNameMap", &Skeleton::buildJointNameMap, "Rebuilds the name-to-id map.")
        .def("sanitizeJointNames", &Skeleton::sanitizeJointNames,
             "'.' becomes '_', a namespace prefix before ':' goes; then buildJointNameMap.")
        .def("buildDetachedJointsList", &Skeleton::buildDetachedJointsList,
             "Collects the joints without parent.")
        .def("detachedJoints", &Skeleton::detachedJoints, "Ids of the joints without parent.")
        .def("addFoot", &Skeleton::addFoot, py::arg("ik"), py::arg("root"), py::arg("tip"),
             "Registers a foot: its IK joint (ankle), leg root (hip) and tip (toe).")
        .def("numFeet", &Skeleton::numFeet, "Number of feet.")
        .def(
            "footIK",
            [](std::shared_ptr<Skeleton> s, unsigned short f) {
                return refTo(s, s->footIK(foot(*s, f)));
            },
            py::arg("foot"), "The foot's IK joint.")
        .def(
            "footRoot",
            [](std::shared_ptr<Skeleton> s, unsigned short f) {
                return refTo(s, s->footRoot(foot(*s, f)));
            },
            py::arg("foot"), "The foot's leg root joint.")
        .def(
            "footTip",
            [](std::shared_ptr<Skeleton> s, unsigned short f) {
                return refTo(s, s->footTip(foot(*s, f)));
            },
            py::arg("foot"), "The foot's tip joint.")
        .def(
            "footPoleVector",
            [](const Skeleton& s, unsigned short f) {
                return Convert<V3d>::to(s.footPoleVector(foot(s, f)));
            },
            py::arg("foot"), "The foot's pole vector.")
        .def(
            "footHasPoleVector",
            [](const Skeleton& s, unsigned short f) { return s.footHasPoleVector(foot(s, f)); },
            py::arg("foot"), "Whether the foot's pole vector is valid.")
        .def(
            "setFootPoleVector",
            [](Skeleton& s, unsigned short f, py::handle v) {
                s.setFootPoleVector(foot(s, f), Convert<V3d>::from(v));
            },
            py::arg("foot"), py::arg("poleVector"), "Stores a valid pole vector for the foot.")
        .def(
            "legJoints",
            [](const Skeleton& s, unsigned short f) { return s.legJoints(foot(s, f)); },
            py::arg("foot"), "The foot's leg joint ids.")
        .def(
            "midJoints",
            [](const Skeleton& s, unsigned short f) { return s.midJoints(foot(s, f)); },
            py::arg("foot"), "The foot's mid joint ids.")
        .def("isFootIK", &Skeleton::isFootIK, py::arg("id"),
             "Whether the joint is a foot's IK joint.")
        .def("isFootRoot", &Skeleton::isFootRoot, py::arg("id"), "Whether the joint is a leg root.")
        .def("isFootTip", &Skeleton::isFootTip, py::arg("id"), "Whether the joint is a foot tip.")
        .def("addPelvis", &Skeleton::addPelvis, py::arg("id"), "Registers a pelvis joint.")
        .def("numPelvises", &Skeleton::numPelvises, "Number of pelvises (1 when none registered).")
        .def(
            "pelvis",
            [](std::shared_ptr<Skeleton> s, unsigned short i) {
                if (i >= s->numPelvises()) throw py::index_error("pelvis index out of range");
                return refTo(s, &s->pelvis(i));
            },
            py::arg("index"), "The pelvis joint at `index`.")
        .def("isPelvis", &Skeleton::isPelvis, py::arg("id"), "Whether the joint is a pelvis.")
        .def("jointMetadata", &jointMetadataOf, py::arg("id"),
             "The joint's own property map (created empty when missing).")
        .def(
            "setJointMetadata",
            [](Skeleton& s, long id, const MapMetadata& map) {
                s.setJointMetadata(checkedJoint(s, id), map);
            },
            py::arg("id"), py::arg("metadata"), "Replaces the joint's property map by a copy.")
        .def(
            "addJointMetadata",
            [](Skeleton& s, long id, py::handle key, py::handle value) {
                s.addJointMetadata(checkedJoint(s, id), fromPyStr(key), toMetadata(value));
            },
            py::arg("id"), py::arg("key"), py::arg("value"),
            "Stores a copy of the value (or of to_metadata(value)) under `key`.")
        .def("jointHasMetadata", &Skeleton::jointHasMetadata, py::arg("id"),
             "Whether the joint has a property map.")
        .def("jointMetadataIds", &Skeleton::jointMetadataIds, "Ids of the joints with maps.")
        .def(
            "numLegSegments",
            [](const Skeleton& s, unsigned short f) { return s.numLegSegments(foot(s, f)); },
            py::arg("foot"), "Parent steps from the foot's IK joint up to its root.")
        .def("buildIkData", &Skeleton::buildIkData,
             "Derives the feet's leg and mid joints, pole vectors and the pelvis chains.")
        .def(
            "hash",
            [](const Skeleton& s) {
                ZeltoCore::MurmurHash3 h;
                s.hash(h);
                return Convert<ZeltoCore::MurmurHash3>::to(h);
            },
            "The skeleton's 128-bit fingerprint as (h1, h2).")
        .def("memSize", &Skeleton::memSize, "Bytes of the skeleton's archive form.")
        .def("serialise", &archiveBytes<Skeleton>, "The skeleton's archive form as bytes.")
        .def_static(
            "deserialise",
            [](const py::buffer& d) { return fromArchiveBytes<Skeleton>(d, "skeleton"); },
            py::arg("data"), "A skeleton read from its archive form; ZeltoError for damaged data.")
        .def("__str__", [](const Skeleton& s) {
            std::ostringstream out;
            out << s;
            return toPyStr(out.str());
        });
}

}  // namespace zelto_py
