#include "core/archive/Archive.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace ZeltoCore {

Archive::Archive(size_t size, size_t flags) : size(size), flags(flags) {
    if (size) {
        data = static_cast<unsigned char*>(std::malloc(size));
        if (!data) throw std::bad_alloc();
    }
}

Archive::~Archive() {
    if (ownsData) std::free(data);
}

void Archive::clear() {
    if (ownsData) std::free(data);  // a view's bytes belong to someone else
    data = nullptr;
    ownsData = true;
    size = 0;
    position = 0;
    m_failed = false;
}

void Archive::resize(size_t newSize) {
    if (newSize == 0) {
        clear();
        return;
    }
    auto* block = static_cast<unsigned char*>(std::malloc(newSize));
    if (!block) throw std::bad_alloc();
    const size_t keep = size < newSize ? size : newSize;
    if (keep) std::memcpy(block, data, keep);
    if (ownsData) std::free(data);
    data = block;
    size = newSize;
    ownsData = true;  // the new block is ours, whatever the old one was
}

Archive& operator<<(Archive& target, const Archive& source) {
    const uint64_t n = source.size;
    if (target.remaining() < n) target.resize(target.position + n);
    if (n) std::memcpy(target.data + target.position, source.data, n);
    target.position += n;
    return target;
}

}  // namespace ZeltoCore
