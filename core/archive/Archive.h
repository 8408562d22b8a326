// Archive: one byte buffer with one cursor shared by reads and writes.
//
// Writers size the buffer up front from memSize() and then write without growth; readers walk
// the same cursor. Every read goes through read(), which refuses to run past `size`: such a read
// copies nothing, leaves zeros and sets a sticky failure flag that failed() reports. Counts and
// lengths are checked against the bytes left before anything is allocated for them. The value
// operators << and >> are in core/archive/ArchiveOperators.h, so a user of the buffer alone pulls
// in no Imath.
//
//   Archive a(value.memSize(), 0);
//   value.serialise(a); a.reset(); other.deserialise(a);
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "utils/Export.h"

namespace ZeltoCore {

class ZELTO_API Archive {
public:
    static constexpr uint64_t kCurrentVersion = 5;
    // Bits of `flags`.
    static constexpr uint64_t kCompressFile = 1;          // compress the buffer in its file
    static constexpr uint64_t kCompressedContainers = 2;  // containers use their compressed form
    static constexpr uint64_t kParallel = 4;              // containers spread work over threads

    unsigned char* data = nullptr;
    uint64_t position = 0;
    uint64_t size = 0;
    uint64_t version = kCurrentVersion;
    std::string text;
    uint64_t flags = 0;
    bool ownsData = true;

    Archive() = default;
    // Allocates `size` uninitialised bytes (none for 0).
    Archive(size_t size, size_t flags);
    ~Archive();
    Archive(const Archive&) = delete;
    Archive& operator=(const Archive&) = delete;

    // Releases the buffer; keeps version, text and flags.
    void clear();
    // Rewinds the cursor to read back what was written; also forgets a read failure.
    void reset() {
        position = 0;
        m_failed = false;
    }
    // Exactly newSize bytes, the first min(size, newSize) kept; position unchanged.
    void resize(size_t newSize);

    bool writeToFile(const std::string& path);
    bool readFromFile(const std::string& path);
    std::string encodeBase64(bool compress);
    // A compressed text whose payload is empty decodes to an empty buffer and returns true.
    bool decodeBase64(const std::string& text);

    // Bytes between the cursor and the end of the buffer (0 when the cursor is past it).
    uint64_t remaining() const { return position < size ? size - position : 0; }
    // True once a read has been refused for running past the buffer.
    bool failed() const { return m_failed; }
    // Marks the archive as holding bad data (used by readers that detect corruption).
    void setFailed() { m_failed = true; }

    // Raw write at the cursor. Writers size the buffer first; a write that would not fit is
    // refused (nothing written) and flags the archive, so a sizing bug cannot corrupt memory.
    void write(const void* src, size_t n) {
        const uint64_t at = position;
        if (__builtin_expect(fits(at, n), 1)) {
            // The buffer never overlaps the archive object: saying so lets a loop of small
            // writes keep the cursor in a register instead of reloading it after every copy.
            unsigned char* __restrict out = data + at;
            if (n) std::memcpy(out, src, n);
            position = at + n;
            return;
        }
        m_failed = true;
    }

    // The one choke point of every read: false (dst zeroed, failure set) when n bytes are not left.
    bool read(void* dst, size_t n) {
        const uint64_t at = position;
        if (__builtin_expect(fits(at, n), 1)) {
            const unsigned char* __restrict in = data + at;
            position = at + n;
            if (n) std::memcpy(dst, in, n);
            return true;
        }
        if (n) std::memset(dst, 0, n);
        refuse();
        return false;
    }

    // The n bytes at the cursor, stepped over; null (failure set) when n bytes are not left. The
    // pointer stays valid until the buffer is resized or released.
    const unsigned char* take(size_t n) {
        const uint64_t at = position;
        if (__builtin_expect(fits(at, n), 1)) {
            position = at + n;
            return data + at;
        }
        refuse();
        return nullptr;
    }

    // Steps over n bytes with the same bounds rule as read().
    bool skip(size_t n) { return take(n) != nullptr; }

    // Reads a 64-bit count of elements that take at least minBytesEach bytes each; a count that
    // cannot fit in the bytes left is refused (0 returned, failure set) before any allocation.
    bool readCount(uint64_t& count, size_t minBytesEach) {
        if (!read(&count, sizeof(count))) {
            count = 0;
            return false;
        }
        if (minBytesEach && count > remaining() / minBytesEach) {
            count = 0;
            m_failed = true;
            position = size;
            return false;
        }
        return true;
    }

    // Peeks the 32-bit type id at the cursor without moving it; 0 when fewer than 4 bytes are left.
    uint32_t peekTypeId() const {
        uint32_t id = 0;
        if (remaining() >= sizeof(id)) std::memcpy(&id, data + position, sizeof(id));
        return id;
    }

private:
    // n bytes from `at` lie inside the buffer; the cursor may stand past the end. In this form
    // the compiler folds the overflow test in loops of constant-size writes, leaving one
    // comparison per call.
    bool fits(uint64_t at, size_t n) const { return at + n <= size && at + n >= at; }
    void refuse() {
        m_failed = true;
        position = size > position ? size : position;
    }

    bool m_failed = false;
};

// Appends all source.size bytes at target.position, growing the target to exactly fit.
ZELTO_API Archive& operator<<(Archive& target, const Archive& source);

}  // namespace ZeltoCore
