#pragma once

// Running editors as /proc tells of them: a process whose command name or executable is in the
// table of editing applications, and the files it holds open, read from its descriptor links.
// No process is launched. Processes of other users can't be read and don't count.

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "copy/RunningEditors.hpp"

namespace quillstow {

struct EditorApplication {
    std::string_view executable;  // the command name or the executable's file name
    std::string_view displayName;
};

// Editing applications of Linux whose open files a pass leaves alone.
const std::vector<EditorApplication>& editorApplications();

class ProcRunningEditors final : public RunningEditors {
  public:
    // `procRoot` is "/proc" but for tests.
    explicit ProcRunningEditors(std::filesystem::path procRoot = "/proc");

    EditorSnapshot snapshot() const override;

  private:
    std::filesystem::path procRoot_;
};

// The display name for a process's command name and executable path, or empty.
std::string_view editorNamed(std::string_view commandName, std::string_view executablePath);

}  // namespace quillstow
