/// Decodes any clip that FFmpeg's libraries read, frame by frame in presentation order, with its metadata.
#pragma once

#include <deque>
#include <optional>
#include <string>

#include "hdr10plus/record.h"
#include "media/ffmpeg.h"
#include "media/other_tracks.h"
#include "media/raw_reader.h"

namespace lumivert::tool {

/// Static metadata in cd/m2; 0 where the clip has none (or says 0, which means the same).
struct StaticMetadata {
    double mastering_peak = 0, mastering_black = 0;
    unsigned max_cll = 0, max_fall = 0;
    bool has_mastering = false, has_content_light = false;
    std::string mastering_primaries; ///< the set's name, or coordinates of red, green and blue; empty: none
};

/// A track beside the picture.
struct TrackInfo {
    std::string kind, codec, language; ///< "audio", "aac", "eng"
};

/// What is known about a clip from its header and its first frame.
struct ClipInfo {
    std::string container, codec, pixel_format;
    int width = 0, height = 0, depth = 0;
    AVColorPrimaries primaries = AVCOL_PRI_UNSPECIFIED;
    AVColorTransferCharacteristic transfer = AVCOL_TRC_UNSPECIFIED;
    AVColorSpace matrix = AVCOL_SPC_UNSPECIFIED;
    AVColorRange range = AVCOL_RANGE_UNSPECIFIED;
    AVRational frame_rate = {0, 1};
    AVRational time_base = {0, 1};
    AVRational sample_aspect_ratio = {0, 1};
    int64_t frames = 0;                  ///< from the container or its duration; 0: unknown
    std::vector<int32_t> display_matrix; ///< rotation, as players are to apply it; empty: none
    StaticMetadata static_metadata;
    double duration = 0;   ///< seconds; 0: unknown
    int64_t bit_rate = 0;  ///< of the whole file, bits per second; 0: unknown
    int dolby_vision = -1; ///< its profile; -1: none
    std::vector<TrackInfo> tracks;
    int64_t start = 0;                   ///< time of its first sample, picture or sound, in its time base
    std::shared_ptr<OtherTracks> others; ///< null if they were not asked for
};

struct ClipFrame {
    FramePtr frame;
    int64_t number;
    int64_t pts; ///< in the clip's time base
    std::optional<Record> record;
};

class ClipReader {
public:
    /// `path` may be "-". With `raw` the file holds raw frames; otherwise this decodes the first frame. `keep_others`
    /// keeps the packets of other tracks for a muxer.
    explicit ClipReader(const std::string& path, const std::optional<RawLayout>& raw = std::nullopt,
                        bool keep_others = false);

    const ClipInfo& info() const { return info_; }
    const std::string& path() const { return path_; }

    /// The next frame; false at the end. A frame of another size or pixel format than the first one's is
    /// an error.
    bool next(ClipFrame& out);

    /// When the next frame is shown, in seconds after the clip's start; infinite at the end.
    double time_of_next();

    /// Looks ahead for HDR10+ in the next `count` frames, which stay to be read.
    bool has_records_within(int count);

    /// Whether the clip carries HDR10+ that its decoder drops, as far as it was read.
    bool loses_records() const { return messages_ > 0 && !handed_on_; }

    /// Warns about data that was damaged or missing up to here.
    void report() const;

private:
    PacketPtr read_packet();
    void note_damage();
    void feed_decoder();
    /// Whether the clip's last packet ends too early, which a raw HEVC stream does not tell and a lenient decoder
    /// passes over in silence.
    bool is_cut_off(const AVPacket& last) const;
    FramePtr decode();
    FramePtr read_raw();
    int64_t pts_of(const AVFrame& frame) const;
    void describe(const AVFrame& first);
    void describe(const RawReader& raw);

    std::string path_;
    std::unique_ptr<RawReader> raw_; ///< takes the place of demuxer and decoder
    FfmpegErrors errors_;            ///< outlives what logs there
    DemuxerPtr demuxer_;
    CodecPtr decoder_;
    int stream_ = -1;
    PacketPtr next_packet_; ///< null at the end
    std::deque<FramePtr> ahead_;
    ClipInfo info_;
    int64_t number_ = 0, last_pts_ = AV_NOPTS_VALUE;
    int64_t decoded_ = 0, damaged_ = 0;
    std::vector<int64_t> damaged_near_; ///< frames that were next when damage showed
    long errors_seen_ = 0;
    int64_t messages_ = 0; ///< HDR10+ in packets of AV1
    bool handed_on_ = false;
};

/// What is said of a clip that loses its records, after its name.
constexpr char kLosesRecords[] = ": this FFmpeg does not hand on the HDR10+ metadata in AV1; FFmpeg 7 does";

std::optional<Record> record_of(const AVFrame& frame);

/// Whether the pixel format can hold what the converter takes: 10 bits of 4:2:0 or more, no alpha or RGB.
bool is_10_bit_yuv(const ClipInfo& info);

} // namespace lumivert::tool
