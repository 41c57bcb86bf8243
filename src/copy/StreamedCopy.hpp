#pragma once

// Large files go through a chunked loop of their own instead of a single copy, so that they can
// be throttled, cancelled and continued, and so that progress can tell how far a large file is.
// The data goes to ".quillstowresume-{size}-{name}" beside the target; {size} is the source's,
// so a source that changed its size never meets an old partial file. The partial file is
// swapped in like any other copy.

#include <cstdint>
#include <filesystem>
#include <functional>
#include <stop_token>
#include <string>

#include "copy/FileSystem.hpp"
#include "environment/Gates.hpp"

namespace quillstow {

inline constexpr std::int64_t streamThreshold = std::int64_t(64) << 20;
inline constexpr std::size_t chunkSize = std::size_t(1) << 20;

using ProgressCallback = std::function<void(double fraction, const std::string& text)>;

// ".quillstowresume-{size}-{name}"
std::string partialName(std::int64_t size, const std::string& name);

// What a streamed copy reports to and consults: the pass's progress (with the fraction of the
// item, which doesn't move during the file), the activity gate, and the pass's stop token.
struct StreamContext {
    ProgressCallback onProgress;
    double fraction = 0;
    const ActivityGate* gate = nullptr;
    std::stop_token stop;
};

// Copies `source` into `partial`, continuing after a head that an earlier attempt left when it
// is shorter than the source. Raises Failure: 1010 (source can't be opened), 1011 (partial
// file can't be opened), 1013 "Resume mismatch" (the source shrank below the head, which is
// then removed), the system's error of a read or write, or the cancellation error. The partial
// file stays after every failure but the mismatch. Returns the sizes of the source and of the
// partial file, as read on their open files at the end.
CopiedItem streamCopy(FileSystem& fileSystem, const ItemRef& source, const ItemRef& partial,
                      std::int64_t size, const std::string& name, const StreamContext& context);

}  // namespace quillstow
