#pragma once

// What the popover's widgets see of the program: the state to show and the operations its
// buttons and rows call. The views know nothing else, so that a test can drive them with a
// model of its own.
//
// Main thread only.

#include <QObject>
#include <optional>
#include <string>

#include "viewmodels/PopoverState.hpp"

namespace quillstow::shell {

class PopoverViewModel : public QObject {
    Q_OBJECT

  public:
    using QObject::QObject;

    virtual PopoverState popover() const = 0;
    // Whether the desktop asks for less motion: no pulsing ring.
    virtual bool prefersReducedMotion() const = 0;

    virtual void backUpAllNow() = 0;
    // Pause All or Resume All, whichever the footer offers.
    virtual void pauseOrResumeAll() = 0;
    virtual void backUpPairNow(const Uuid& id) = 0;
    virtual void togglePausePair(const Uuid& id) = 0;
    virtual void removePair(const Uuid& id) = 0;
    // Nothing, or why the new destination was refused.
    virtual std::optional<std::string> relinkPair(const Uuid& id,
                                                  const std::filesystem::path& destination) = 0;

  signals:
    // Anything the popover shows may have changed.
    void changed();
};

}  // namespace quillstow::shell
