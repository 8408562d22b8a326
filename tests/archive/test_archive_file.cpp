#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "core/archive/ArchiveOperators.h"
#include "tests/support/Bytes.h"

using ZeltoCore::Archive;
using ZeltoTest::le;
using u64 = uint64_t;
namespace fs = std::filesystem;

namespace {

class ArchiveFile : public ::testing::Test {
protected:
    void SetUp() override {
        dir = fs::temp_directory_path() /
              ("zelto_file_" + std::to_string(getpid()) + "_" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }

    std::string path(const std::string& name) const { return (dir / name).string(); }

    static std::string slurp(const std::string& p) {
        std::ifstream in(p, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(in), {});
    }
    static void spit(const std::string& p, const std::string& bytes) {
        std::ofstream(p, std::ios::binary) << bytes;
    }
    // An archive holding a recognisable state, to check that refusals leave it alone.
    static void fill(Archive& a) {
        a.resize(3);
        std::memcpy(a.data, "abc", 3);
        a.position = 2;
        a.version = 4;
        a.flags = 2;
        a.text = "keep";
    }
    static void expectUntouched(const Archive& a) {
        EXPECT_EQ(a.size, 3u);
        EXPECT_EQ(std::memcmp(a.data, "abc", 3), 0);
        EXPECT_EQ(a.position, 2u);
        EXPECT_EQ(a.version, 4u);
        EXPECT_EQ(a.flags, 2u);
        EXPECT_EQ(a.text, "keep");
    }

    fs::path dir;
};

}  // namespace

TEST_F(ArchiveFile, HeaderFieldsAndDataRoundTrip) {
    // An empty archive is the 37-byte header alone, and reads back as nothing.
    ASSERT_TRUE(Archive().writeToFile(path("empty.zelto")));
    EXPECT_EQ(slurp(path("empty.zelto")), "ZELTO" + le(u64(5), u64(0), u64(0), u64(0)));
    Archive b;
    fill(b);
    ASSERT_TRUE(b.readFromFile(path("empty.zelto")));
    EXPECT_TRUE(b.data == nullptr && b.size + b.flags == 0u && b.version == 5u && b.text.empty());

    Archive a(8, 6);
    a << 2.5;
    a.text = "hello";
    ASSERT_TRUE(a.writeToFile(path("a.zelto")));
    EXPECT_EQ(slurp(path("a.zelto")),
              "ZELTO" + le(u64(5), u64(6), u64(0), u64(5)) + "hello" + le(2.5));
    ASSERT_TRUE(b.readFromFile(path("a.zelto")));
    EXPECT_TRUE(b.flags == 6u && b.text == "hello" && b.position == 0u);
    double d = 0;
    b >> d;
    EXPECT_EQ(d, 2.5);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 2);
}

TEST_F(ArchiveFile, VersionOneReservedWordsAndTextCutAtZero) {
    // Version 1: no flags field; two reserved words are stepped over.
    spit(path("v1"), "ZELTO" + le(u64(1), u64(2), uint32_t(7), uint32_t(8), u64(4)) +
                         std::string("ab\0c", 4) + "DATA");
    Archive a;
    a.flags = 9;
    ASSERT_TRUE(a.readFromFile(path("v1")));
    EXPECT_EQ(a.version, 1u);
    EXPECT_EQ(a.flags, 0u);
    EXPECT_EQ(a.text, "ab");
    ASSERT_EQ(a.size, 4u);
    EXPECT_EQ(std::memcmp(a.data, "DATA", 4), 0);
}

TEST_F(ArchiveFile, RefusalsLeaveTheArchiveUnchanged) {
    const std::string good = "ZELTO" + le(u64(5), u64(0), u64(0), u64(3)) + "txt" + "payload";
    spit(path("short"), good.substr(0, 12));
    spit(path("magic"), "ZELTA" + good.substr(5));
    spit(path("truncated_text"), good.substr(0, 37 + 2));
    spit(path("huge_reserved"), "ZELTO" + le(u64(5), u64(0), u64(~0ULL / 2), u64(0)));
    spit(path("huge_text"), "ZELTO" + le(u64(5), u64(0), u64(0), u64(1ULL << 40)));
    spit(path("no_flags_room"), "ZELTO" + le(u64(5)) + "ab");
    for (const char* name : {"short", "magic", "truncated_text", "huge_reserved", "huge_text",
                             "no_flags_room", "missing"}) {
        Archive a;
        fill(a);
        EXPECT_FALSE(a.readFromFile(path(name))) << name;
        expectUntouched(a);
    }
    Archive a;
    fill(a);
    EXPECT_FALSE(a.readFromFile(""));
    EXPECT_FALSE(a.readFromFile(dir.string()));  // a folder is not an archive
    expectUntouched(a);
}

TEST_F(ArchiveFile, CompressedFilesRoundTripAndAreSmaller) {
    Archive a(80000, 1);
    for (int i = 0; i < 10000; ++i)
        a << double(i % 7);
    ASSERT_TRUE(a.writeToFile(path("z")));
    EXPECT_LT(fs::file_size(path("z")), 37u + 80000u / 4);
    Archive b;
    ASSERT_TRUE(b.readFromFile(path("z")));
    ASSERT_EQ(b.size, a.size);
    EXPECT_EQ(std::memcmp(a.data, b.data, a.size), 0);
    EXPECT_EQ(b.flags, 1u);

    // A flagged file whose data does not decompress is kept raw.
    spit(path("raw"), "ZELTO" + le(u64(5), u64(1), u64(0), u64(0)) + "\xEEnot compressed");
    Archive c;
    ASSERT_TRUE(c.readFromFile(path("raw")));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(c.data), c.size), "\xEEnot compressed");
}

TEST_F(ArchiveFile, PathsExpandEnvironmentVariables) {
    setenv("ZELTO_TEST_DIR", dir.c_str(), 1);
    Archive a(4, 0);
    a << int32_t{77};
    ASSERT_TRUE(a.writeToFile("${ZELTO_TEST_DIR}/env.zelto"));
    EXPECT_TRUE(fs::exists(path("env.zelto")));
    Archive b;
    ASSERT_TRUE(b.readFromFile("$ZELTO_TEST_DIR/env.zelto"));
    EXPECT_EQ(b.size, 4u);
}

TEST_F(ArchiveFile, FailedWritesReportFalseAndKeepTheOldFile) {
    Archive small(4, 0);
    small << int32_t{7};
    EXPECT_FALSE(small.writeToFile(path("no/such/folder/x")));
    fs::create_directory(path("folder"));
    EXPECT_FALSE(small.writeToFile(path("folder")));  // cannot replace a folder
    fs::remove(path("folder"));
    ASSERT_TRUE(small.writeToFile(path("keep")));
    const std::string before = slurp(path("keep"));

    // A full disk, simulated by a file size limit: writes past it fail with EFBIG.
    Archive big(1 << 20, 0);
    std::memset(big.data, 0x5a, big.size);
    rlimit saved{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    void (*previous)(int) = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limited = saved;
    limited.rlim_cur = 64 * 1024;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    const bool written = big.writeToFile(path("keep"));
    setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, previous);

    EXPECT_FALSE(written);
    EXPECT_EQ(slurp(path("keep")), before);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 1)
        << "no temporary file is left behind";
}

// The umask as the kernel reports it, read without changing it.
static int currentUmask() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("Umask:", 0) == 0) return std::stoi(line.substr(6), nullptr, 8);
    }
    return -1;
}

TEST_F(ArchiveFile, WritingNeverTouchesTheUmaskAndNewFilesFollowIt) {
    const mode_t saved = umask(027);
    Archive a(4, 0);
    a << int32_t{1};
    // Another thread watches the process umask while files are written.
    std::atomic<bool> done{false};
    std::atomic<int> changed{0};
    std::thread watcher([&] {
        while (!done) {
            const int mask = currentUmask();
            if (mask >= 0 && mask != 027) ++changed;
        }
    });
    for (int i = 0; i < 200; ++i)
        ASSERT_TRUE(a.writeToFile(path("f" + std::to_string(i % 4))));
    done = true;
    watcher.join();
    EXPECT_EQ(changed, 0);

    struct stat st {};
    ASSERT_EQ(stat(path("f0").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0640u);
    // Replacing a file keeps its permissions.
    ASSERT_EQ(chmod(path("f1").c_str(), 0600), 0);
    ASSERT_TRUE(a.writeToFile(path("f1")));
    ASSERT_EQ(stat(path("f1").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
    umask(saved);
}

TEST(ArchiveBase64, RoundTripsInBothFormsAndRefusesBadText) {
    Archive a(64, 0);
    for (int i = 0; i < 8; ++i)
        a << double(i);
    for (bool compress : {false, true}) {
        const std::string text = a.encodeBase64(compress);
        EXPECT_EQ(text.size() >= 3 && text.substr(text.size() - 3) == "ZIP", compress);
        Archive b;
        b.position = 5;
        ASSERT_TRUE(b.decodeBase64(text));
        EXPECT_EQ(b.position, 0u);
        ASSERT_EQ(b.size, 64u);
        EXPECT_EQ(std::memcmp(a.data, b.data, 64), 0);
    }
    Archive tiny(3, 0);
    std::memcpy(tiny.data, "foo", 3);
    EXPECT_EQ(tiny.encodeBase64(false), "Zm9v");
    EXPECT_EQ(Archive().encodeBase64(true), "");

    // Text that does not decode keeps what the archive held.
    a.version = 3;
    EXPECT_FALSE(a.decodeBase64(""));
    EXPECT_FALSE(a.decodeBase64("!!!!"));
    ASSERT_EQ(a.size, 64u);
    const double held[8] = {0, 1, 2, 3, 4, 5, 6, 7};
    EXPECT_EQ(std::memcmp(a.data, held, 64), 0);
    EXPECT_EQ(a.version, 3u);
    // Uncompressed text that happens to end in ZIP: decoded bytes kept as they are.
    ASSERT_TRUE(a.decodeBase64("Zm9vZIP"));
    EXPECT_EQ(std::string(reinterpret_cast<char*>(a.data), a.size), "foo");
    // A compressed block of zero bytes (stored method, length 0) is a valid, empty text.
    ASSERT_TRUE(a.decodeBase64("AAA=ZIP"));
    EXPECT_EQ(a.size, 0u);
    EXPECT_EQ(a.encodeBase64(false), "");
}
