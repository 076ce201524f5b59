/// What a clip holds besides its picture: sound, subtitles, attachments, chapters, titles and languages. Packets pass
/// from the thread that reads the clip to the one that writes the result.
#pragma once

#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "media/ffmpeg.h"

namespace lumivert::tool {

class OtherTracks {
public:
    /// `demuxer` outlives all use of this.
    OtherTracks(const AVFormatContext& demuxer, int picture) : demuxer_(demuxer), picture_(picture) {}

    const AVFormatContext& demuxer() const { return demuxer_; }
    int picture() const { return picture_; }

    /// Keeps a packet until it is taken.
    void add(PacketPtr packet);
    std::deque<PacketPtr> take();
    /// For a result that begins later: drops what was kept of the time before `time`, in units of AV_TIME_BASE.
    void drop_before(int64_t time);
    /// When a packet is presented, in units of AV_TIME_BASE; nothing for what belongs to the whole clip.
    std::optional<int64_t> time_of(const AVPacket& packet) const;
    /// For results without other tracks: drops the packets kept so far and all further ones.
    void drop();

private:
    const AVFormatContext& demuxer_;
    const int picture_;
    std::mutex mutex_;
    std::deque<PacketPtr> packets_;
    bool dropped_ = false;
};

/// Copies the tracks into a muxer, as they are.
class TrackCopier {
public:
    /// Adds a stream to `muxer` for each track that its format takes, and the clip's title.
    TrackCopier(std::shared_ptr<OtherTracks> tracks, AVFormatContext& muxer);

    /// "subtitle track 2 (subrip), ..."; empty when nothing is missing.
    const std::string& left_out() const { return left_out_; }

    /// Before the header is written. `start`, a time of the clip in units of AV_TIME_BASE, becomes time 0. Adds the
    /// chapters between `start` and `end`. `cut` leaves out what comes before `start`.
    void start(int64_t start, int64_t end, bool cut);
    /// Writes what was read of the clip up to a time of the clip.
    void write_until(int64_t time);

private:
    void add_track(const AVStream& from);
    std::string reason_against(const AVStream& from) const;
    void add_chapters(int64_t start, int64_t end);
    void write(AVPacket& packet);

    const std::shared_ptr<OtherTracks> tracks_;
    AVFormatContext& muxer_;
    std::vector<AVStream*> copies_; ///< by the clip's stream index; null: not copied
    std::vector<int64_t> last_dts_; ///< by the muxer's
    std::deque<PacketPtr> waiting_;
    std::string left_out_;
    int64_t start_ = 0;
    bool cut_ = false;
};

} // namespace lumivert::tool
