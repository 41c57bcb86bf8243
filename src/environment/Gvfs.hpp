#pragma once

// Network locations that GVFS mounts for the user. Each appears as a folder of its FUSE bridge,
// /run/user/<uid>/gvfs/<type>:<key>=<value>,..., named by its mount spec with the keys sorted and
// the values percent-encoded ("smb-share:server=nas,share=photos"). When the share goes away its
// folder goes with it, and looking the path up brings nothing back: GVFS must be asked to mount
// it again, by its URI.
//
// gvfsMountUri is pure. A GvfsMounter may be used from any thread; it blocks for at most its
// own time limit.

#include <filesystem>
#include <optional>
#include <string>

namespace quillstow {

// The URI that mounts the GVFS location holding `path` ("smb://nas/photos/"): nothing when the
// path lies below no GVFS folder, or the location is not a network share of a kind we know
// (SMB share, SFTP, FTP, FTPS, WebDAV, AFP volume, NFS).
std::optional<std::string> gvfsMountUri(const std::filesystem::path& path);

// Asks GVFS to mount a location. The default has no GVFS to ask, and mounts nothing.
class GvfsMounter {
  public:
    virtual ~GvfsMounter() = default;
    // Whether GVFS says the location is mounted now. Never asks the user for anything.
    virtual bool mount(const std::string& /*uri*/) const { return false; }
};

}  // namespace quillstow
