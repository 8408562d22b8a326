#include "core/skeleton/Joint.h"

namespace ZeltoCore {

bool Joint::addChild(Joint* child) {
    if (!child) return false;
    m_children.push_back(child);
    child->m_parent = this;
    return true;
}

bool Joint::removeChild(unsigned short index) {
    if (index >= m_children.size()) return false;
    m_children.erase(m_children.begin() + index);
    return true;
}

bool Joint::isChildOf(unsigned short id) const {
    unsigned steps = 65535;
    for (const Joint* a = m_parent; a && steps; a = a->m_parent, --steps) {
        if (a->m_id == id) return true;
    }
    return false;
}

}  // namespace ZeltoCore
