// ValueArena: places the many small values of one container read side by side in shared blocks,
// one heap allocation per block instead of one per value.
//
// Values made here are ordinary std::shared_ptr objects (std::allocate_shared): each is
// destroyed when its own last owner goes, as any other value. A block's memory goes back to the
// heap when the last value placed in it is gone, on whatever thread that happens; the arena
// itself may be gone long before. So one surviving value keeps at most one block (under 1 KiB,
// a dozen values) alive. An arena is used by one thread at a time; its values may be released
// anywhere.
//
//   ValueArena arena(count);
//   std::shared_ptr<Metadata> v = prototype->cloneInto(arena);
#pragma once

#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <utility>

#include "utils/Export.h"

namespace ZeltoCore {

class ZELTO_API ValueArena {
public:
    // Largest block, heap overhead included: kept below 1 KiB, the request size from which
    // glibc's malloc first merges all its free small chunks, which costs a map read more than
    // the per-value allocations saved.
    static constexpr size_t kBlockBytes = 992;
    // Larger requests come straight from the heap.
    static constexpr size_t kMaxPlacedBytes = 256;

    // `expected`: about how many values will be placed (sizes the last blocks).
    explicit ValueArena(size_t expected) : m_expected(expected) {}
    // Gives up the arena's hold on its current block.
    ~ValueArena();
    ValueArena(const ValueArena&) = delete;
    ValueArena& operator=(const ValueArena&) = delete;

    // `bytes` aligned to `align`. The common case, room left in the current block, is inline: a
    // read places one value per entry.
    void* allocate(size_t bytes, size_t align) {
        if (m_block && bytes <= kMaxPlacedBytes && align <= alignof(std::max_align_t)) {
            const size_t at = (m_used + sizeof(void*) + align - 1) & ~(align - 1);
            if (at + bytes <= m_size) {
                std::memcpy(m_block + at - sizeof(void*), &m_block, sizeof(void*));
                m_used = at + bytes;
                ++m_placed;
                ++m_made;
                return m_block + at;
            }
        }
        return allocateSlow(bytes, align);
    }
    // Memory from allocate() of the same `bytes` and `align`; any thread, arena alive or not.
    static void deallocate(void* p, size_t bytes, size_t align) noexcept;

    // The allocator allocate_shared places a value and its counts with. It holds the arena only
    // to allocate: releasing never touches it.
    template <class T>
    class Allocator {
    public:
        using value_type = T;
        explicit Allocator(ValueArena& arena) : m_arena(&arena) {}
        template <class U>
        Allocator(const Allocator<U>& other) : m_arena(other.arena()) {}
        T* allocate(size_t n) {
            return static_cast<T*>(m_arena->allocate(n * sizeof(T), alignof(T)));
        }
        void deallocate(T* p, size_t n) noexcept {
            ValueArena::deallocate(p, n * sizeof(T), alignof(T));
        }
        ValueArena* arena() const { return m_arena; }
        template <class U>
        bool operator==(const Allocator<U>& other) const {
            return m_arena == other.arena();
        }
        template <class U>
        bool operator!=(const Allocator<U>& other) const {
            return m_arena != other.arena();
        }

    private:
        ValueArena* m_arena;
    };

    template <class T, class... Args>
    std::shared_ptr<T> make(Args&&... args) {
        return std::allocate_shared<T>(Allocator<T>(*this), std::forward<Args>(args)...);
    }

private:
    // allocate() when the value goes to the heap or needs a new block.
    void* allocateSlow(size_t bytes, size_t align);
    void retire() noexcept;

    size_t m_expected;
    unsigned char* m_block = nullptr;  // the block being filled (its head at the start)
    size_t m_used = 0;                 // bytes of it taken, head included
    size_t m_size = 0;                 // its size
    size_t m_placed = 0;               // values placed in it
    size_t m_made = 0;                 // values placed in all blocks
};

}  // namespace ZeltoCore
