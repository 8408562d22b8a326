// Archive files ("ZELTO" header, optional whole-buffer compression) and the base64 text form.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "core/archive/Archive.h"
#include "core/archive/ArchiveFileHeader.h"
#include "core/archive/ArchiveFileReader.h"
#include "utils/Base64.h"
#include "utils/Compression.h"
#include "utils/Environment.h"

namespace ZeltoCore {
namespace {

constexpr char kMagic[5] = {'Z', 'E', 'L', 'T', 'O'};
constexpr uint64_t kMinFileSize = 13;

struct FileCloser {
    void operator()(FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<FILE, FileCloser>;

struct BlockFree {
    void operator()(unsigned char* p) const { std::free(p); }
};
using Block = std::unique_ptr<unsigned char, BlockFree>;

bool put(FILE* f, const void* p, size_t n) {
    return n == 0 || std::fwrite(p, 1, n, f) == n;
}

template <class T>
bool put(FILE* f, T v) {
    return put(f, &v, sizeof(v));
}

// Reads exactly n bytes of a file whose remaining length is tracked in `left`.
bool take(FILE* f, void* p, uint64_t n, uint64_t& left) {
    if (n > left) return false;
    if (n && std::fread(p, 1, n, f) != n) return false;
    left -= n;
    return true;
}

// Adopts `block` of `length` bytes as the archive's buffer.
void adopt(Archive& a, unsigned char* block, size_t length) {
    if (a.ownsData) std::free(a.data);
    if (length == 0) {
        std::free(block);
        block = nullptr;
    }
    a.data = block;
    a.size = length;
    a.position = 0;
    a.ownsData = true;
}

// Creates a new file beside `target` with a name no other writer uses. It is created with mode
// 0666, which the kernel narrows by the process umask as for any new file (the umask itself is
// never touched: changing it would race with other threads creating files); a file that replaces
// an existing one takes that file's permissions.
int createTempBeside(const std::string& target, std::string& temp) {
    static std::atomic<unsigned> counter{0};
    for (int attempt = 0; attempt < 100; ++attempt) {
        temp = target + ".tmp" + std::to_string(::getpid()) + "_" + std::to_string(counter++);
        const int fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0) {
            struct stat st {};
            if (::stat(target.c_str(), &st) == 0 && S_ISREG(st.st_mode))
                ::fchmod(fd, st.st_mode & 07777);
            return fd;
        }
        if (errno != EEXIST) return -1;
    }
    return -1;
}

}  // namespace

bool Archive::writeToFile(const std::string& path) {
    const std::string target = ZeltoUtils::expandEnvironmentVariables(path);
    if (target.empty()) return false;

    // Written beside the target and renamed over it only when complete, so a crash or a full
    // disk never replaces a good archive with half of one.
    std::string temp;
    const int fd = createTempBeside(target, temp);
    if (fd < 0) return false;
    File f(fdopen(fd, "wb"));
    if (!f) {
        ::close(fd);
        std::remove(temp.c_str());
        return false;
    }

    Block packed;
    size_t packedSize = 0;
    if ((flags & kCompressFile) && size) {
        packed.reset(ZeltoUtils::compressBuffer(data, size, packedSize));
        if (packedSize == 0) packed.reset();
    }
    const unsigned char* body = packed ? packed.get() : data;
    const size_t bodySize = packed ? packedSize : size;

    bool ok = put(f.get(), kMagic, sizeof(kMagic)) && put(f.get(), version);
    if (version > 1) ok = ok && put(f.get(), flags);
    ok = ok && put(f.get(), uint64_t{0}) && put(f.get(), uint64_t{text.size()}) &&
         put(f.get(), text.data(), text.size()) && put(f.get(), body, bodySize);
    ok = ok && std::fflush(f.get()) == 0 && fsync(fileno(f.get())) == 0;
    ok = (std::fclose(f.release()) == 0) && ok;
    if (!ok || std::rename(temp.c_str(), target.c_str()) != 0) {
        std::remove(temp.c_str());
        return false;
    }
    return true;
}

bool ArchiveFileHeader::read(std::FILE* file, ArchiveFileHeader& header) {
    struct stat st {};
    if (std::fseek(file, 0, SEEK_SET) != 0 || fstat(fileno(file), &st) != 0 || !S_ISREG(st.st_mode))
        return false;
    uint64_t left = static_cast<uint64_t>(st.st_size);
    if (left < kMinFileSize) return false;

    char magic[sizeof(kMagic)];
    if (!take(file, magic, sizeof(magic), left) || std::memcmp(magic, kMagic, sizeof(kMagic)) != 0)
        return false;
    ArchiveFileHeader h;
    uint64_t reserved = 0, textLength = 0;
    if (!take(file, &h.version, 8, left)) return false;
    if (h.version > 1 && !take(file, &h.flags, 8, left)) return false;
    if (!take(file, &reserved, 8, left) || reserved > left / 4) return false;
    if (std::fseek(file, static_cast<long>(reserved * 4), SEEK_CUR) != 0) return false;
    left -= reserved * 4;
    if (!take(file, &textLength, 8, left) || textLength > left) return false;
    h.text.assign(textLength, '\0');
    if (!take(file, h.text.data(), textLength, left)) return false;
    h.text.resize(std::strlen(h.text.c_str()));
    h.dataSize = left;
    h.dataOffset = static_cast<uint64_t>(st.st_size) - left;
    header = std::move(h);
    return true;
}

bool Archive::readFromFile(const std::string& path) {
    ArchiveFileReader file;
    return file.open(path) && file.readDataSection(*this);
}

std::string Archive::encodeBase64(bool compress) {
    std::string out;
    if (size == 0) return out;
    ZeltoUtils::Base64 codec;
    if (compress) {
        size_t packedSize = 0;
        Block packed(ZeltoUtils::compressBuffer(data, size, packedSize));
        if (packed && packedSize) {
            codec.encode(packed.get(), packedSize, out);
            out += "ZIP";
            return out;
        }
    }
    codec.encode(data, size, out);
    return out;
}

namespace {

// Plain base64 text into `out`; false when the text is not base64.
bool decodePlain(const std::string& text, Archive& out) {
    ZeltoUtils::Base64 codec;
    const size_t length = codec.decodeLength(text);
    if (length == 0) return false;
    out.resize(length);
    size_t produced = 0;
    codec.decode(text, out.data, produced);
    out.size = produced;
    return produced != 0;
}

// Moves the bytes of `from` into `to` (position 0).
void moveBytes(Archive& to, Archive& from) {
    adopt(to, from.data, from.size);
    from.data = nullptr;
    from.size = 0;
}

}  // namespace

bool Archive::decodeBase64(const std::string& encoded) {
    const bool zipped = encoded.size() >= 3 && encoded.compare(encoded.size() - 3, 3, "ZIP") == 0;
    // Decoded beside the held bytes, which are replaced only by a good result.
    Archive decoded;
    try {
        if (!zipped) {
            if (!decodePlain(encoded, decoded)) return false;
        } else {
            const bool stripped = decodePlain(encoded.substr(0, encoded.size() - 3), decoded);
            size_t outSize = 0;
            unsigned char* block =
                stripped ? ZeltoUtils::decompressBuffer(decoded.data, decoded.size, outSize)
                         : nullptr;
            if (block) {
                adopt(decoded, block, outSize);
            } else {
                // "ZIP" are base64 letters too: plain text may end in them. The whole text is
                // preferred when it decodes; otherwise the bytes before the suffix are kept.
                Archive whole;
                if (decodePlain(encoded, whole)) {
                    moveBytes(decoded, whole);
                } else if (!stripped) {
                    return false;
                }
            }
        }
    } catch (const std::bad_alloc&) {
        return false;
    }
    moveBytes(*this, decoded);
    m_failed = false;
    return true;
}

}  // namespace ZeltoCore
