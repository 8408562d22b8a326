#include "core/metadata/ValueArena.h"

#include <atomic>
#include <cstring>

namespace ZeltoCore {
namespace {

// A block starts with the count of its values still alive, raised by kBias while the arena
// fills it: every value takes more than one byte, so the count cannot reach zero before the
// arena lets go, and placing a value needs no atomic operation. Each value is preceded by the
// address of its block's head.
struct BlockHead {
    std::atomic<size_t> live;
};

constexpr size_t kBias = ValueArena::kBlockBytes;
constexpr size_t kMaxAlign = alignof(std::max_align_t);
constexpr size_t kLinkBytes = sizeof(BlockHead*);
constexpr size_t kHeapOverhead = 2 * sizeof(size_t);  // what malloc adds to a block
constexpr size_t kMaxBlock = ValueArena::kBlockBytes - kHeapOverhead;
// A scalar value with its shared counts and link: sizes the last blocks of an arena.
constexpr size_t kTypicalValueBytes = 72;

static_assert(sizeof(BlockHead) + kLinkBytes + kMaxAlign + ValueArena::kMaxPlacedBytes <= kMaxBlock,
              "the largest placed value fits an empty block");

bool fromHeap(size_t bytes, size_t align) {
    return bytes > ValueArena::kMaxPlacedBytes || align > kMaxAlign;
}

void release(BlockHead* head, size_t count) noexcept {
    if (head->live.fetch_sub(count, std::memory_order_acq_rel) == count) {
        head->~BlockHead();
        ::operator delete(static_cast<void*>(head));
    }
}

}  // namespace

ValueArena::~ValueArena() {
    retire();
}

void* ValueArena::allocateSlow(size_t bytes, size_t align) {
    if (fromHeap(bytes, align)) return ::operator new(bytes, std::align_val_t(align));
    auto place = [&](size_t used) { return (used + kLinkBytes + align - 1) & ~(align - 1); };
    size_t at = place(m_used);
    if (!m_block || at + bytes > m_size) {
        retire();
        // Whole blocks while many values are still to come, then only what the rest needs.
        const size_t left = m_expected > m_made ? m_expected - m_made : 1;
        const size_t need = sizeof(BlockHead) + kLinkBytes + kMaxAlign + bytes;
        const size_t want = sizeof(BlockHead) + left * kTypicalValueBytes;
        m_size = want < kMaxBlock ? (want > need ? want : need) : kMaxBlock;
        m_block = static_cast<unsigned char*>(::operator new(m_size));
        new (m_block) BlockHead{{kBias}};
        m_placed = 0;
        at = place(sizeof(BlockHead));
    }
    BlockHead* const head = reinterpret_cast<BlockHead*>(m_block);
    std::memcpy(m_block + at - kLinkBytes, &head, kLinkBytes);
    m_used = at + bytes;
    ++m_placed;
    ++m_made;
    return m_block + at;
}

void ValueArena::deallocate(void* p, size_t bytes, size_t align) noexcept {
    if (fromHeap(bytes, align)) {
        ::operator delete(p, std::align_val_t(align));
        return;
    }
    BlockHead* head = nullptr;
    std::memcpy(&head, static_cast<unsigned char*>(p) - kLinkBytes, kLinkBytes);
    release(head, 1);
}

void ValueArena::retire() noexcept {
    if (m_block) release(reinterpret_cast<BlockHead*>(m_block), kBias - m_placed);
    m_block = nullptr;
}

}  // namespace ZeltoCore
