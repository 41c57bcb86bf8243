#include "PrivateMounts.hpp"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

namespace quillstow::testing {

namespace {

std::string reason = "the private mount namespace was not entered";

bool writeProcFile(const char* path, const std::string& text) {
    std::ofstream file(path);
    file << text;
    file.flush();
    return bool(file);
}

}  // namespace

bool enterPrivateMountNamespace() {
    const uid_t uid = ::geteuid();
    const gid_t gid = ::getegid();
    // Root may have its own mount namespace directly; anyone else needs a user namespace in
    // which it is root.
    if (::unshare(CLONE_NEWNS) != 0) {
        if (::unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
            reason = std::string("no private mount namespace here (unshare: ") +
                     std::strerror(errno) + "); the drive fault tests need one";
            return false;
        }
        writeProcFile("/proc/self/setgroups", "deny");
        if (!writeProcFile("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1\n") ||
            !writeProcFile("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1\n")) {
            reason = "could not map this user into the user namespace";
            return false;
        }
    }
    if (::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        reason = std::string("could not make mounts private: ") + std::strerror(errno);
        return false;
    }
    reason.clear();
    return true;
}

const std::string& whyNoPrivateMounts() {
    return reason;
}

TmpfsMount::TmpfsMount(const std::filesystem::path& at, std::uint64_t bytes) : path_(at) {
    std::filesystem::create_directories(at);
    const std::string options = "size=" + std::to_string(bytes) + ",mode=0755";
    if (::mount("tmpfs", at.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, options.c_str()) != 0) {
        throw std::runtime_error("mount tmpfs at " + at.native() + ": " + std::strerror(errno));
    }
    mounted_ = true;
}

TmpfsMount::~TmpfsMount() {
    unmount();
}

void TmpfsMount::remountReadOnly() {
    if (::mount(nullptr, path_.c_str(), nullptr, MS_REMOUNT | MS_RDONLY | MS_NOSUID | MS_NODEV,
                nullptr) != 0) {
        throw std::runtime_error("remount read-only: " + std::string(std::strerror(errno)));
    }
}

void TmpfsMount::unmount() {
    if (mounted_ && ::umount2(path_.c_str(), MNT_DETACH) == 0) mounted_ = false;
}

SilentFuseMount::SilentFuseMount(const std::filesystem::path& at) : path_(at) {
    std::filesystem::create_directories(at);
    device_ = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
    if (device_ < 0)
        throw std::runtime_error("open /dev/fuse: " + std::string(std::strerror(errno)));
    // The kernel sends its first request as the mount is made; no answer ever comes, so every
    // later request waits for one.
    const std::string options = "fd=" + std::to_string(device_) +
                                ",rootmode=40000,user_id=" + std::to_string(::geteuid()) +
                                ",group_id=" + std::to_string(::getegid());
    if (::mount("silent", at.c_str(), "fuse", MS_NOSUID | MS_NODEV, options.c_str()) != 0) {
        const std::string why = std::strerror(errno);
        ::close(device_);
        device_ = -1;
        throw std::runtime_error("mount fuse at " + at.native() + ": " + why);
    }
}

SilentFuseMount::~SilentFuseMount() {
    release();
}

void SilentFuseMount::release() {
    if (device_ < 0) return;
    // Closing the last descriptor of the connection aborts it: what waits fails at once.
    ::close(device_);
    device_ = -1;
    ::umount2(path_.c_str(), MNT_DETACH);
}

}  // namespace quillstow::testing
