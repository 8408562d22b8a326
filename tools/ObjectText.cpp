#include "tools/ObjectText.h"

#include <utility>
#include <vector>

#include "core/ZeltoCore.h"

namespace ZeltoTool {

using namespace ZeltoCore;

namespace {

// Long lists of ids are cut to keep the line readable.
constexpr size_t kMaxIds = 24;

std::string nameOf(const Joint& joint) {
    return joint.name().empty() ? "(no name)" : joint.name();
}

std::string rolesOf(const Skeleton& s, unsigned short id) {
    std::string roles;
    const auto add = [&roles](const std::string& role) {
        roles += (roles.empty() ? " [" : ", ") + role;
    };
    for (unsigned short p = 0; p < s.numPelvises(); ++p)
        if (s.pelvis(p).id() == id) add("pelvis");
    for (unsigned short f = 0; f < s.numFeet(); ++f) {
        const std::string foot = "foot " + std::to_string(f);
        if (s.footRoot(f)->id() == id) add(foot + " root");
        if (s.footIK(f)->id() == id) add(foot + " ik");
        if (s.footTip(f)->id() == id) add(foot + " tip");
    }
    return roles.empty() ? roles : roles + "]";
}

template <class T>
bool printElements(std::ostream& out, const Metadata& value, const std::string& indent,
                   void (*print)(std::ostream&, const T&, const std::string&)) {
    if (const auto* one = dynamic_cast<const MetadataImpl<T>*>(&value)) {
        print(out, one->get(), indent);
        return true;
    }
    const auto* many = dynamic_cast<const TypedArrayMetadata<T>*>(&value);
    if (!many) return false;
    for (size_t i = 0; i < many->get().size(); ++i) {
        out << indent << "[" << i << "]\n";
        print(out, many->get()[i], indent + "  ");
    }
    return true;
}

}  // namespace

void printSkeleton(std::ostream& out, const Skeleton& s, const std::string& indent) {
    const unsigned short n = s.numJoints();
    out << indent << n << " joints";
    if (n == 0) {
        out << "\n";
        return;
    }
    out << "; feet:";
    for (unsigned short f = 0; f < s.numFeet(); ++f) {
        out << (f ? ", " : " ") << nameOf(*s.footIK(f)) << " (root " << nameOf(*s.footRoot(f))
            << ", tip " << nameOf(*s.footTip(f)) << ")";
    }
    if (s.numFeet() == 0) out << " none";
    out << "; pelvises:";
    for (unsigned short p = 0; p < s.numPelvises(); ++p)
        out << (p ? ", " : " ") << nameOf(s.pelvis(p));
    out << "\n";

    // Depth first, children in order. A joint is taken only when it is this skeleton's own joint
    // and not listed yet, so hand-made links cannot repeat or loop.
    std::vector<bool> listed(n, false);
    std::vector<std::pair<const Joint*, size_t>> stack;
    const auto tree = [&](const Joint* start) {
        stack.emplace_back(start, 0);
        while (!stack.empty()) {
            const auto [joint, depth] = stack.back();
            stack.pop_back();
            if (!joint || joint->id() >= n || &s.joint(joint->id()) != joint || listed[joint->id()])
                continue;
            listed[joint->id()] = true;
            out << indent << std::string(2 * depth, ' ') << joint->id() << " " << nameOf(*joint)
                << rolesOf(s, joint->id()) << "\n";
            for (unsigned short c = joint->numChildren(); c-- > 0;)
                stack.emplace_back(joint->child(c), depth + 1);
        }
    };
    tree(s.root());
    for (unsigned short i = 0; i < n; ++i)
        if (!listed[i] && !s.joint(i).parent()) tree(&s.joint(i));
    for (unsigned short i = 0; i < n; ++i)
        tree(&s.joint(i));  // what is left hangs off a loop of parents
}

void printPose(std::ostream& out, const Pose& pose, const std::string& indent) {
    const unsigned short n = pose.numJoints();
    std::vector<unsigned short> active;
    for (unsigned short i = 0; i < n; ++i)
        if (pose.isJointActive(i)) active.push_back(i);
    out << indent << n << " joints, " << (pose.inParentSpace() ? "parent" : "local")
        << " space, active joints: ";
    if (active.size() == n) {
        out << (n ? "all" : "none") << "\n";
        return;
    }
    for (size_t i = 0; i < active.size() && i < kMaxIds; ++i)
        out << (i ? " " : "") << active[i];
    if (active.size() > kMaxIds) out << " ...";
    out << " (" << active.size() << " of " << n << ")\n";
}

bool printObjectValue(std::ostream& out, const Metadata& value, const std::string& indent) {
    return printElements<Skeleton>(out, value, indent, printSkeleton) ||
           printElements<Pose>(out, value, indent, printPose);
}

}  // namespace ZeltoTool
