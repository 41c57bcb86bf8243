#pragma once

// The user's trash, from which the desktop's file manager can put an item back. The one way the
// filing flow changes an original: a rebuildable folder the user chose to let go.
//
// An implementation moves by a rename only: an item that can't be renamed into a trash of its
// own volume is reported, never copied and deleted. Any thread may call.

#include <filesystem>

namespace quillstow {

class Trash {
  public:
    virtual ~Trash() = default;

    // Moves the item (a link as the link) into the trash. Throws Failure with the reason when
    // it can't; the item is then where it was.
    virtual void moveToTrash(const std::filesystem::path& item) = 0;
};

}  // namespace quillstow
