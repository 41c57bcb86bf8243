#pragma once

// One Quillstow per session: the first instance owns the application id on the session bus and
// exports org.freedesktop.Application there; a second start calls Activate on it, which shows
// the first one's popover, and exits.
//
// Main thread only.

#include <QObject>
#include <functional>

namespace quillstow::shell {

class SingleInstance final : public QObject {
    Q_OBJECT

  public:
    enum class Outcome { first, activatedOther, noBus };

    // Takes the name, or activates its owner. `activate` runs on every later Activate.
    Outcome claim(std::function<void()> activate);

  private:
    std::function<void()> activate_;
};

}  // namespace quillstow::shell
