#include "TestTree.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace quillstow::testing {

namespace fs = std::filesystem;

TemporaryFolder::TemporaryFolder(const fs::path& parent) {
    fs::path base = parent;
    if (base.empty()) {
        const char* tmp = std::getenv("TMPDIR");
        base = tmp && *tmp ? tmp : "/tmp";
    }
    std::string pattern = (base / "quillstow-test-XXXXXX").native();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed in " + base.native());
    path_ = pattern;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    // Tests may leave read-only folders behind; open them up so that removal works.
    for (auto it = fs::recursive_directory_iterator(path_, ignored);
         it != fs::recursive_directory_iterator(); it.increment(ignored)) {
        if (it->is_directory(ignored) && !it->is_symlink(ignored)) {
            fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, ignored);
        }
    }
    fs::remove_all(path_, ignored);
}

void writeFile(const fs::path& path, const std::string& content) {
    fs::create_directories(path.parent_path());
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << content;
    if (!file) throw std::runtime_error("could not write " + path.native());
}

void writeFile(const fs::path& path, const std::string& content, Date modified) {
    writeFile(path, content);
    setModificationDate(path, modified);
}

std::string readFile(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void makeFolder(const fs::path& path) {
    fs::create_directories(path);
}

void makeLink(const fs::path& link, const fs::path& target) {
    fs::create_directories(link.parent_path());
    fs::create_symlink(target, link);
}

void setModificationDate(const fs::path& path, Date date) {
    const auto since = date.time_since_epoch();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(since);
    const timespec times[2] = {{0, UTIME_OMIT}, {seconds.count(), (since - seconds).count()}};
    if (::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW) != 0) {
        throw std::runtime_error("utimensat failed for " + path.native());
    }
}

Date modificationDate(const fs::path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) throw std::runtime_error("lstat " + path.native());
    return Date{std::chrono::seconds(status.st_mtim.tv_sec) +
                std::chrono::nanoseconds(status.st_mtim.tv_nsec)};
}

Date referenceDate() {
    return Date{std::chrono::seconds(1'700'000'000) + std::chrono::nanoseconds(123'456'789)};
}

std::map<std::string, std::string> filesBelow(const fs::path& root) {
    std::map<std::string, std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        if (entry.is_regular_file() && !entry.is_symlink()) {
            files[fs::relative(entry.path(), root).native()] = readFile(entry.path());
        }
    }
    return files;
}

}  // namespace quillstow::testing
