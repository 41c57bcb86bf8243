#include "support/Paths.hpp"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>

namespace quillstow::paths {

std::string lastPathComponent(const Path& path) {
    std::string text = path.native();
    while (text.size() > 1 && text.back() == '/')
        text.pop_back();
    if (text == "/") return text;
    const auto slash = text.rfind('/');
    return slash == std::string::npos ? text : text.substr(slash + 1);
}

Path standardized(const Path& path) {
    std::string text = path.lexically_normal().native();
    while (text.size() > 1 && text.back() == '/')
        text.pop_back();
    return text;
}

Path resolved(const Path& path) {
    std::error_code error;
    const Path canonical = std::filesystem::weakly_canonical(standardized(path), error);
    return error ? standardized(path) : standardized(canonical);
}

Path homeFolder() {
    if (const char* home = std::getenv("HOME"); home && home[0] == '/') return home;
    if (const passwd* user = ::getpwuid(::getuid()); user && user->pw_dir) return user->pw_dir;
    return "/";
}

bool isWithin(const Path& path, const Path& root) {
    const std::string& text = path.native();
    std::string prefix = root.native();
    if (text == prefix) return true;
    if (prefix.empty() || prefix.back() != '/') prefix += '/';
    return text.starts_with(prefix);
}

Path appending(const Path& folder, const std::string& relativePath) {
    std::string text = folder.native();
    if (text.empty() || text.back() != '/') text += '/';
    text += relativePath;
    return text;
}

}  // namespace quillstow::paths
