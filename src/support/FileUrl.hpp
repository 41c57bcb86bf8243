#pragma once

// File URLs as the system writes them: "file://" and the percent-encoded absolute path.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace quillstow::fileurls {

// "/Volumes/My Drive/" gives "file:///Volumes/My%20Drive/". A relative path is taken
// from the working folder.
std::string fromPath(const std::filesystem::path& path);

// The path's bytes with everything but the unreserved characters, the sub-delimiters, ":", "@"
// and "/" escaped as "%XX": "My Drive/ä" gives "My%20Drive/%C3%A4".
std::string percentEncoded(std::string_view path);
// The same with the characters of `alsoEscaped` escaped too, for a part of a URI where they
// would mean something: a user name, where ":" and "@" do.
std::string percentEncoded(std::string_view text, std::string_view alsoEscaped);

// Every "%XX" replaced by its byte, the rest kept as it stands; nothing for a bad escape or an
// encoded NUL.
std::optional<std::string> percentDecoded(std::string_view text);

// The absolute path of a file URL ("file:///..." or "file://localhost/..."); nothing for a
// relative path, another scheme, a remote host, a character that should have been escaped, a
// bad escape or an encoded NUL.
std::optional<std::filesystem::path> toPath(std::string_view url);

}  // namespace quillstow::fileurls
