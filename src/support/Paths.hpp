#pragma once

// Path text operations that the copy core and the model share. None of them touches the disk
// unless its name says it resolves.

#include <filesystem>
#include <string>

namespace quillstow::paths {

using Path = std::filesystem::path;

// The last component, ignoring trailing slashes: "/a/b/" gives "b", "/" gives "/".
std::string lastPathComponent(const Path& path);

// "." and ".." removed and no trailing slash ("/" stays "/"). Links are not resolved.
Path standardized(const Path& path);

// standardized, then every symbolic link resolved as far as the path exists on disk.
Path resolved(const Path& path);

// The user's home: $HOME when it is an absolute path, else the user database's, else "/".
Path homeFolder();

// Whether `path` is `root` or lies below it, compared on text with case: "/a/bc" is not below
// "/a/b". Both should be standardized.
bool isWithin(const Path& path, const Path& root);

// The path with the parent folder joined, without the normalisation that operator/ does for
// absolute components.
Path appending(const Path& folder, const std::string& relativePath);

}  // namespace quillstow::paths
