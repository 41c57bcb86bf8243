// The floor of a no-op pass: both trees walked side by side, one thread each, reading the
// metadata of every entry and nothing else. No pass can be faster than this on the same disk,
// so compare.py measures how close a no-op pass comes to it.
//
// usage: quillstow-stat-walk SOURCE MIRROR

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <thread>

namespace {

// Counts the entries below an open folder, with one statx per entry; closes the folder.
std::int64_t walk(int folder) {
    DIR* listing = fdopendir(folder);
    if (listing == nullptr) {
        close(folder);
        return 0;
    }
    std::int64_t count = 0;
    while (const dirent* entry = readdir(listing)) {
        if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) {
            continue;
        }
        struct statx info {};
        if (statx(dirfd(listing), entry->d_name, AT_SYMLINK_NOFOLLOW,
                  STATX_TYPE | STATX_SIZE | STATX_MTIME | STATX_INO, &info) != 0) {
            continue;
        }
        ++count;
        if (S_ISDIR(info.stx_mode)) {
            int inner = openat(dirfd(listing), entry->d_name,
                               O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (inner >= 0) {
                count += walk(inner);
            }
        }
    }
    closedir(listing);
    return count;
}

std::int64_t walkRoot(const char* root) {
    int folder = open(root, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    return folder < 0 ? -1 : walk(folder);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: quillstow-stat-walk SOURCE MIRROR\n");
        return 64;
    }
    std::int64_t sourceCount = 0;
    std::thread source([&] { sourceCount = walkRoot(argv[1]); });
    std::int64_t mirrorCount = walkRoot(argv[2]);
    source.join();
    if (sourceCount < 0 || mirrorCount < 0) {
        std::fprintf(stderr, "can't open %s\n", sourceCount < 0 ? argv[1] : argv[2]);
        return 66;
    }
    std::printf("%lld %lld\n", static_cast<long long>(sourceCount),
                static_cast<long long>(mirrorCount));
    return 0;
}
