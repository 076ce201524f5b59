/// Which record each frame of a conversion uses.
#pragma once

#include <cstdint>
#include <optional>

#include "hdr10plus/metadata_json.h"

namespace lumivert::tool {

/// Where a frame's record comes from.
enum class RecordOrigin {
    kOwn,      ///< the frame has one
    kPrevious, ///< it has none, and uses the record of the frame before
    kNone,     ///< no frame so far has one, and the default for the static luminances is used
};

/// Follows the frames in order, starting with the clip's first.
class RecordTrack {
public:
    /// Uses the records that the frames carry.
    RecordTrack() = default;
    /// Uses the records of a list instead.
    explicit RecordTrack(RecordsByFrame records) : list_(std::move(records)) {}
    /// Uses no records at all.
    static RecordTrack without_records() { return RecordTrack(RecordsByFrame()); }

    RecordOrigin advance(int64_t frame, const std::optional<Record>& of_the_clip) {
        std::optional<Record> own = of_the_clip;
        if (list_) {
            const auto found = list_->find(frame);
            own = found != list_->end() ? std::optional(found->second) : std::nullopt;
        }
        if (own) current_ = own;
        return own ? RecordOrigin::kOwn : current_ ? RecordOrigin::kPrevious : RecordOrigin::kNone;
    }

    /// The record of the frame that `advance` was last called for.
    const std::optional<Record>& current() const { return current_; }

private:
    std::optional<RecordsByFrame> list_;
    std::optional<Record> current_;
};

} // namespace lumivert::tool
