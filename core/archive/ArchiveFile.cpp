// Archive files ("ZELTO" header, optional whole-buffer compression) and the base64 text form.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
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

}  // namespace

bool Archive::writeToFile(const std::string& path) {
    const std::string target = ZeltoUtils::expandEnvironmentVariables(path);
    if (target.empty()) return false;

    // Written beside the target and renamed over it only when complete, so a crash or a full
    // disk never replaces a good archive with half of one.
    std::string temp = target + ".XXXXXX";
    const int fd = mkstemp(temp.data());
    if (fd < 0) return false;
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(fd, 0666 & ~mask);
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

bool Archive::decodeBase64(const std::string& encoded) {
    const bool zipped = encoded.size() >= 3 && encoded.compare(encoded.size() - 3, 3, "ZIP") == 0;
    const std::string input = zipped ? encoded.substr(0, encoded.size() - 3) : encoded;
    ZeltoUtils::Base64 codec;
    resize(codec.decodeLength(input));
    if (size == 0) return false;
    size_t produced = 0;
    codec.decode(input, data, produced);
    size = produced;
    if (zipped) {
        size_t outSize = 0;
        if (unsigned char* block = ZeltoUtils::decompressBuffer(data, size, outSize))
            adopt(*this, block, outSize);
    }
    position = 0;
    m_failed = false;
    return true;
}

}  // namespace ZeltoCore
