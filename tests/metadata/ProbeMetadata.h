// Test-only metadata values with a known byte layout and a count of live objects, so that the
// container tests do not depend on the value families and can observe allocations.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "core/Init.h"
#include "core/archive/Archive.h"
#include "core/metadata/ArrayMetadata.h"
#include "core/metadata/MapMetadata.h"
#include "core/metadata/MetadataFactory.h"

namespace ZeltoTest {

// A value of type T under type id Id: 4 bytes of id then the bytes of T.
template <unsigned Id, class T>
class Probe : public ZeltoCore::Metadata {
public:
    static inline std::atomic<int> created{0};

    explicit Probe(T v = T()) : value(v) { ++created; }
    Probe(const Probe& o) : ZeltoCore::Metadata(o), value(o.value) { ++created; }

    std::string typeStr() const override { return "Probe" + std::to_string(Id) + "Metadata"; }
    unsigned int typeId() const override { return Id; }
    void copy(ZeltoCore::Metadata* other) override {
        if (other) value = static_cast<Probe*>(other)->value;
    }
    std::shared_ptr<ZeltoCore::Metadata> clone() const override {
        return std::make_shared<Probe>(*this);
    }
    size_t memSize() const override { return 4 + sizeof(T); }
    void hash(ZeltoCore::MurmurHash3& h) const override { h.append(value); }
    bool serialise(ZeltoCore::Archive& a) const override {
        if (a.size == 0) a.resize(memSize());
        const uint32_t id = Id;
        a.write(&id, 4);
        a.write(&value, sizeof(T));
        return !a.failed();
    }
    bool deserialise(ZeltoCore::Archive& a) override {
        uint32_t id = 0;
        return a.read(&id, 4) && a.read(&value, sizeof(T));
    }
    void toString(std::stringstream& s) const override { s << value; }

    T value;
};

using IntProbe = Probe<901, int32_t>;
using DoubleProbe = Probe<902, double>;

inline std::shared_ptr<ZeltoCore::Metadata> intProbe(int32_t v) {
    return std::make_shared<IntProbe>(v);
}
inline std::shared_ptr<ZeltoCore::Metadata> doubleProbe(double v) {
    return std::make_shared<DoubleProbe>(v);
}
inline int32_t intOf(const std::shared_ptr<const ZeltoCore::Metadata>& m) {
    return static_cast<const IntProbe&>(*m).value;
}

// An int probe as its value, no value as "-", anything else as "?"; containers as a list.
inline std::string show(const std::shared_ptr<const ZeltoCore::Metadata>& m) {
    return !m ? "-" : m->typeId() == 901 ? std::to_string(intOf(m)) : "?";
}
inline std::string contents(const ZeltoCore::MapMetadata& m) {
    std::string out;
    for (const auto& [key, v] : m)
        out += key + "=" + show(v) + " ";
    return out;
}
inline std::string contents(const ZeltoCore::ArrayMetadata& a) {
    std::string out;
    for (size_t i = 0; i < a.size(); ++i)
        out += show(a[i]) + " ";
    return out;
}

// Little-endian byte builder for expected layouts.
struct Bytes {
    std::string b;
    template <class T>
    Bytes& num(T v) {
        b.append(reinterpret_cast<const char*>(&v), sizeof(T));
        return *this;
    }
    Bytes& u32(uint32_t v) { return num(v); }
    Bytes& u64(uint64_t v) { return num(v); }
    Bytes& str(const std::string& s) {
        b += s;
        return *this;
    }
};

inline std::string bytesOf(const ZeltoCore::Archive& a) {
    return std::string(reinterpret_cast<const char*>(a.data), a.size);
}

// An archive holding a copy of `bytes`, to be read with `flags`.
inline void loadBytes(ZeltoCore::Archive& a, const std::string& bytes, uint64_t flags = 0) {
    a.clear();
    a.resize(bytes.size());
    if (!bytes.empty()) std::memcpy(a.data, bytes.data(), bytes.size());
    a.reset();
    a.flags = flags;
}

// Registers the probes (and the library's types) for a container test.
class ContainerTest : public ::testing::Test {
protected:
    template <class P>
    static void add() {
        ZeltoCore::MetadataFactory::instance().registerMetadata(
            P().typeStr(), P().typeId(), []() -> ZeltoCore::Metadata* { return new P(); });
    }
    void SetUp() override {
        ZeltoCore::initMetadata();
        add<IntProbe>();
        add<DoubleProbe>();
    }
};

// `m` written with `flags` into a fresh archive; the plain form must fill exactly memSize().
inline std::string serialised(const ZeltoCore::Metadata& m, uint64_t flags) {
    ZeltoCore::Archive a;
    a.flags = flags;
    EXPECT_TRUE(m.serialise(a));
    EXPECT_EQ(a.flags, flags);
    EXPECT_EQ(a.position, a.size);
    if (!(flags & ZeltoCore::Archive::kCompressedContainers)) {
        EXPECT_EQ(a.size, m.memSize());
    }
    return bytesOf(a);
}

// A new value of `typeId` read from `bytes` with `flags`; `ok` is what deserialise returned.
inline std::shared_ptr<ZeltoCore::Metadata> readBack(unsigned typeId, const std::string& bytes,
                                                     uint64_t flags, bool* ok = nullptr) {
    ZeltoCore::Archive a;
    loadBytes(a, bytes, flags);
    auto m = ZeltoCore::MetadataFactory::instance().createMetadata(typeId);
    const bool read = m->deserialise(a);
    if (ok) *ok = read;
    EXPECT_LE(a.position, a.size);
    EXPECT_EQ(a.flags, flags);
    return m;
}
inline bool reads(unsigned typeId, const std::string& bytes, uint64_t flags) {
    bool ok = false;
    readBack(typeId, bytes, flags, &ok);
    return ok;
}

// Every truncation of `bytes` fails; every byte flipped in turn reads without crash or overrun
// (the sanitizer build watches the reads).
inline void sweepDamaged(unsigned typeId, const std::string& bytes, uint64_t flags) {
    for (size_t n = 0; n < bytes.size(); ++n) {
        EXPECT_FALSE(reads(typeId, bytes.substr(0, n), flags)) << "cut at " << n;
    }
    for (size_t i = 0; i < bytes.size(); ++i) {
        std::string bad = bytes;
        bad[i] = char(bad[i] ^ 0xa5);
        readBack(typeId, bad, flags);
    }
}

}  // namespace ZeltoTest
