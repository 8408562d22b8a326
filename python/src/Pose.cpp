// zelto.JointPose, zelto.Pose and zelto.Poser (world matrices as NumPy arrays).
//
// Pose.jointPose returns a copy (set it back with setJointPose): the joint poses live in a
// vector that setNumberJoints may move. The pose's property maps are its own, as for skeletons.
#include <pybind11/numpy.h>
#include <pybind11/stl.h>

#include "core/pose/Pose.h"
#include "core/pose/Poser.h"
#include "python/src/Convert.h"
#include "python/src/Skeletons.h"

namespace zelto_py {

using ZeltoCore::JointPose;
using ZeltoCore::MapMetadata;
using ZeltoCore::Pose;
using ZeltoCore::Skeleton;
using V3d = Imath::V3d;
using M44d = Imath::M44d;

namespace {

// The poser keeps its skeleton alive.
struct PyPoser {
    std::shared_ptr<Skeleton> skeleton;
    ZeltoCore::Poser poser;
    explicit PyPoser(std::shared_ptr<Skeleton> s) : skeleton(std::move(s)), poser(skeleton.get()) {}
};

// (n, 4, 4) doubles owning the matrices, without another copy.
py::array_t<double> matrices(std::vector<M44d>&& m) {
    static_assert(sizeof(M44d) == 16 * sizeof(double), "Imath matrices are 16 packed doubles");
    auto* owned = new std::vector<M44d>(std::move(m));
    py::capsule free(owned, [](void* p) { delete static_cast<std::vector<M44d>*>(p); });
    const py::ssize_t n = py::ssize_t(owned->size());
    return py::array_t<double>({n, py::ssize_t(4), py::ssize_t(4)},
                               reinterpret_cast<double*>(owned->data()), free);
}

py::array_t<double> matrix(const M44d& m) {
    py::array_t<double> a({4, 4});
    std::memcpy(a.mutable_data(), m[0], sizeof(M44d));
    return a;
}

unsigned short poseJoint(const Pose& p, long id) {
    if (id < 0 || id >= long(p.numJoints())) throw py::index_error("joint id out of range");
    return static_cast<unsigned short>(id);
}

}  // namespace

void bindPose(py::module_& m) {
    py::class_<JointPose>(m, "JointPose",
                          "Rotation (r, x, y, z), translation and scale of a joint.")
        .def(py::init([](py::handle r, py::handle t, py::handle s) {
                 return JointPose(Convert<Imath::Quatd>::from(r), Convert<V3d>::from(t),
                                  Convert<V3d>::from(s));
             }),
             py::arg("rotation") = py::make_tuple(1.0, 0.0, 0.0, 0.0),
             py::arg("translation") = py::make_tuple(0.0, 0.0, 0.0),
             py::arg("scale") = py::make_tuple(1.0, 1.0, 1.0))
        .def_property(
            "rotation", [](const JointPose& p) { return Convert<Imath::Quatd>::to(p.rotation); },
            [](JointPose& p, py::handle v) { p.rotation = Convert<Imath::Quatd>::from(v); },
            "Rotation quaternion (r, x, y, z).")
        .def_property(
            "translation", [](const JointPose& p) { return Convert<V3d>::to(p.translation); },
            [](JointPose& p, py::handle v) { p.translation = Convert<V3d>::from(v); },
            "Translation.")
        .def_property(
            "scale", [](const JointPose& p) { return Convert<V3d>::to(p.scale); },
            [](JointPose& p, py::handle v) { p.scale = Convert<V3d>::from(v); }, "Scale.")
        .def(
            "matrix", [](const JointPose& p) { return Convert<M44d>::to(p.matrix()); },
            "The transform as a 4x4 row-vector matrix (nested lists).")
        .def(
            "setMatrix", [](JointPose& p, py::handle v) { p.setMatrix(Convert<M44d>::from(v)); },
            py::arg("matrix"), "Decomposes a matrix into the three parts (shear is dropped).")
        .def("__repr__", [](const JointPose& p) {
            return "<zelto.JointPose " +
                   py::repr(Convert<Imath::Quatd>::to(p.rotation)).cast<std::string>() + " " +
                   py::repr(Convert<V3d>::to(p.translation)).cast<std::string>() + " " +
                   py::repr(Convert<V3d>::to(p.scale)).cast<std::string>() + ">";
        });

    py::class_<Pose, std::shared_ptr<Pose>>(
        m, "Pose",
        "One joint pose per skeleton joint, in parent or local space, with property maps.")
        .def(py::init<>(), "No joints, in parent space.")
        .def(py::init([](std::shared_ptr<Skeleton> s, bool fill) {
                 return std::make_shared<Pose>(s.get(), fill);
             }),
             py::arg("skeleton"), py::arg("fillFromSkeleton") = true,
             "The skeleton's bind pose in parent space, or (fillFromSkeleton=False) an empty "
             "pose in local space.")
        .def(
            "copy", [](const Pose& p) { return std::make_shared<Pose>(p); }, "A copy.")
        .def("numJoints", &Pose::numJoints, "Number of joint poses.")
        .def("setNumberJoints", &Pose::setNumberJoints, py::arg("n"), "n identity joint poses.")
        .def(
            "jointPose", [](const Pose& p, long id) { return p.jointPose(poseJoint(p, id)); },
            py::arg("id"), "A copy of the joint's pose.")
        .def(
            "setJointPose",
            [](Pose& p, long id, const JointPose& jp) { p.setJointPose(poseJoint(p, id), jp); },
            py::arg("id"), py::arg("pose"), "Sets the joint's pose.")
        .def("inParentSpace", &Pose::inParentSpace, "True in parent space, false in local space.")
        .def("setInParentSpace", &Pose::setInParentSpace, py::arg("inParentSpace"),
             "Sets only the flag (no conversion).")
        .def(
            "getDirection", [](const Pose& p) { return Convert<V3d>::to(p.getDirection()); },
            "The direction.")
        .def(
            "setDirection", [](Pose& p, py::handle v) { p.setDirection(Convert<V3d>::from(v)); },
            py::arg("direction"), "Sets the direction.")
        .def(
            "poseMetadata",
            [](std::shared_ptr<Pose> p) {
                return std::shared_ptr<MapMetadata>(p, &p->poseMetadata());
            },
            "The pose's own property map.")
        .def(
            "addPoseMetadata",
            [](Pose& p, py::handle key, py::handle value) {
                p.addPoseMetadata(fromPyStr(key), toMetadata(value).get());
            },
            py::arg("key"), py::arg("value"), "Stores a copy of the value under `key`.")
        .def(
            "jointMetadata",
            [](std::shared_ptr<Pose> p, long id) {
                return std::shared_ptr<MapMetadata>(p, &p->jointMetadata(poseJoint(*p, id)));
            },
            py::arg("id"), "The joint's own property map (created empty when missing).")
        .def(
            "addJointMetadata",
            [](Pose& p, long id, py::handle key, py::handle value) {
                p.addJointMetadata(poseJoint(p, id), fromPyStr(key), toMetadata(value));
            },
            py::arg("id"), py::arg("key"), py::arg("value"),
            "Stores a copy of the value under `key`.")
        .def("jointHasMetadata", &Pose::jointHasMetadata, py::arg("id"),
             "Whether the joint has a map.")
        .def("jointMetadataIds", &Pose::jointMetadataIds, "Ids of the joints with maps.")
        .def("resetActiveJoints", &Pose::resetActiveJoints, "Marks every joint active.")
        .def("setActiveJoint", &Pose::setActiveJoint, py::arg("id"), py::arg("active"),
             "Marks one joint (in)active for masked assignment.")
        .def("isJointActive", &Pose::isJointActive, py::arg("id"), "Whether the joint is active.")
        .def(
            "convertToLocalSpace", [](Pose& p, const Skeleton& s) { p.convertToLocalSpace(&s); },
            py::arg("skeleton"), "Converts parent-space joint poses to local space.")
        .def(
            "convertToParentSpace", [](Pose& p, const Skeleton& s) { p.convertToParentSpace(&s); },
            py::arg("skeleton"), "Converts local-space joint poses to parent space.")
        .def("hash", &Pose::hash, py::arg("precision"),
             "Fingerprint of joints 1 ... n-1 rounded to half precision (0 below two joints).")
        .def("memSize", &Pose::memSize, "Bytes of the pose's archive form.")
        .def("serialise", &archiveBytes<Pose>, "The pose's archive form as bytes.")
        .def_static(
            "deserialise", [](const py::buffer& d) { return fromArchiveBytes<Pose>(d, "pose"); },
            py::arg("data"), "A pose read from its archive form; ZeltoError for damaged data.");

    py::class_<PyPoser>(m, "Poser", "Evaluates world matrices of poses of one skeleton.")
        .def(py::init<std::shared_ptr<Skeleton>>(), py::arg("skeleton"))
        .def(
            "skeleton", [](const PyPoser& p) { return p.skeleton; }, "The skeleton.")
        .def(
            "getWorldMatrix",
            [](const PyPoser& p, const Pose& pose, unsigned id) {
                return matrix(p.poser.getWorldMatrix(pose, id));
            },
            py::arg("pose"), py::arg("id"), "World matrix (4, 4) of one joint.")
        .def(
            "getAllWorldMatrix",
            [](const PyPoser& p, const Pose& pose) {
                return matrices(p.poser.getAllWorldMatrix(pose));
            },
            py::arg("pose"), "World matrices of every pose joint, shape (n, 4, 4).")
        .def(
            "getWorldBindMatrix",
            [](const PyPoser& p, unsigned id) { return matrix(p.poser.getWorldBindMatrix(id)); },
            py::arg("id"), "Bind-pose world matrix (4, 4) of one joint.")
        .def(
            "getAllWorldBindMatrix",
            [](const PyPoser& p) { return matrices(p.poser.getAllWorldBindMatrix()); },
            "Bind-pose world matrices of every joint, shape (n, 4, 4).")
        .def(
            "setWorldMatrix",
            [](const PyPoser& p, Pose& pose, py::handle world, unsigned short id) {
                p.poser.setWorldMatrix(pose, Convert<M44d>::from(world), id);
            },
            py::arg("pose"), py::arg("world"), py::arg("id"),
            "Gives joint `id` of the pose this world matrix, its ancestors unchanged.");
}

}  // namespace zelto_py
