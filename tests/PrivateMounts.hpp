#pragma once

// Real drives that fill up, turn read-only or vanish: small tmpfs mounts in a mount namespace of
// this test process alone, so nothing leaks to the machine. The namespace is entered once, at
// the start of main, before any thread exists. Where the machine allows no namespaces, tests
// skip and say why.

#include <cstdint>
#include <filesystem>
#include <string>

namespace quillstow::testing {

// Call first thing in main. Returns false when no private mount namespace could be made.
bool enterPrivateMountNamespace();

// Empty when private mounts work; otherwise the reason, for GTEST_SKIP.
const std::string& whyNoPrivateMounts();

#define QUILLSTOW_REQUIRE_PRIVATE_MOUNTS()                              \
    do {                                                                \
        if (!::quillstow::testing::whyNoPrivateMounts().empty()) {      \
            GTEST_SKIP() << ::quillstow::testing::whyNoPrivateMounts(); \
        }                                                               \
    } while (false)

// A tmpfs of a given size at a folder, unmounted when it goes.
class TmpfsMount {
  public:
    TmpfsMount(const std::filesystem::path& at, std::uint64_t bytes);
    TmpfsMount(const TmpfsMount&) = delete;
    TmpfsMount& operator=(const TmpfsMount&) = delete;
    ~TmpfsMount();

    void remountReadOnly();
    // Detaches the mount at once, as when a drive is pulled.
    void unmount();

    const std::filesystem::path& path() const { return path_; }

  private:
    std::filesystem::path path_;
    bool mounted_ = false;
};

// A FUSE file system whose server never answers, as a network share whose server is gone: a
// look at anything below its mount point blocks in the kernel until release(), which aborts
// the connection so that what blocked fails and returns, and detaches the mount. Throws, saying
// why, where FUSE can't be mounted here.
class SilentFuseMount {
  public:
    explicit SilentFuseMount(const std::filesystem::path& at);
    SilentFuseMount(const SilentFuseMount&) = delete;
    SilentFuseMount& operator=(const SilentFuseMount&) = delete;
    ~SilentFuseMount();

    void release();

  private:
    std::filesystem::path path_;
    int device_ = -1;
};

}  // namespace quillstow::testing
