#include "media/clip_reader.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <string_view>
#include <utility>

extern "C" {
#include <libavutil/dovi_meta.h>
#include <libavutil/hdr_dynamic_metadata.h>
#include <libavutil/mastering_display_metadata.h>
#include <libavutil/pixdesc.h>
}

#include "error.h"
#include "media/av1_messages.h"
#include "report.h"

namespace lumivert::tool {
namespace {

/// The last of its type, null if there is none: on FFmpeg 5 what the container says comes before what the stream says.
template <typename T>
const T* side_data(const AVFrame& frame, AVFrameSideDataType type) {
    const T* found = nullptr;
    for (int i = 0; i < frame.nb_side_data; ++i)
        if (frame.side_data[i]->type == type) found = reinterpret_cast<const T*>(frame.side_data[i]->data);
    return found;
}

/// The name of the primaries, if they are among those that HDR masters have.
std::string primaries_text(const AVMasteringDisplayMetadata& mastering) {
    struct Set {
        const char* name;
        double red_x, red_y, green_x, green_y, blue_x, blue_y;
    };
    constexpr Set kSets[] = {{"bt2020", 0.708, 0.292, 0.170, 0.797, 0.131, 0.046},
                             {"display-p3", 0.680, 0.320, 0.265, 0.690, 0.150, 0.060},
                             {"bt709", 0.640, 0.330, 0.300, 0.600, 0.150, 0.060}};
    double at[3][2];
    for (int i = 0; i < 3; ++i)
        for (int axis = 0; axis < 2; ++axis)
            at[i][axis] = av_q2d(mastering.display_primaries[i][axis]);
    for (const Set& set : kSets) {
        const double wanted[3][2] = {{set.red_x, set.red_y}, {set.green_x, set.green_y}, {set.blue_x, set.blue_y}};
        bool same = true;
        for (int i = 0; i < 3; ++i)
            for (int axis = 0; axis < 2; ++axis)
                same = same && std::abs(at[i][axis] - wanted[i][axis]) < 0.002;
        if (same) return set.name;
    }
    char text[120];
    std::snprintf(text, sizeof text, "R(%.3f,%.3f) G(%.3f,%.3f) B(%.3f,%.3f)", at[0][0], at[0][1], at[1][0], at[1][1],
                  at[2][0], at[2][1]);
    return text;
}

TrackInfo track_info(const AVStream& stream) {
    const char* kind = av_get_media_type_string(stream.codecpar->codec_type);
    const AVDictionaryEntry* language = av_dict_get(stream.metadata, "language", nullptr, 0);
    return {kind != nullptr ? kind : "data", avcodec_get_name(stream.codecpar->codec_id),
            language != nullptr ? language->value : ""};
}

StaticMetadata static_metadata_of(const AVFrame& frame) {
    StaticMetadata result;
    if (const auto* mastering = side_data<AVMasteringDisplayMetadata>(frame, AV_FRAME_DATA_MASTERING_DISPLAY_METADATA);
        mastering != nullptr && mastering->has_luminance) {
        result.has_mastering = true;
        result.mastering_peak = av_q2d(mastering->max_luminance);
        result.mastering_black = av_q2d(mastering->min_luminance);
        if (mastering->has_primaries) result.mastering_primaries = primaries_text(*mastering);
    }
    if (const auto* light = side_data<AVContentLightMetadata>(frame, AV_FRAME_DATA_CONTENT_LIGHT_LEVEL)) {
        result.has_content_light = true;
        result.max_cll = light->MaxCLL;
        result.max_fall = light->MaxFALL;
    }
    return result;
}

int64_t frame_count(const AVStream& stream, const AVFormatContext& demuxer) {
    if (stream.nb_frames > 0) return stream.nb_frames;
    if (demuxer.duration <= 0 || stream.avg_frame_rate.num == 0) return 0;
    return av_rescale(demuxer.duration, stream.avg_frame_rate.num, int64_t{AV_TIME_BASE} * stream.avg_frame_rate.den);
}

} // namespace

std::optional<Record> record_of(const AVFrame& frame) {
    const auto* found = side_data<AVDynamicHDRPlus>(frame, AV_FRAME_DATA_DYNAMIC_HDR_PLUS);
    if (found == nullptr) return std::nullopt;
    return from_side_data(*found);
}

bool is_10_bit_yuv(const ClipInfo& info) {
    const AVPixFmtDescriptor* format = av_pix_fmt_desc_get(av_get_pix_fmt(info.pixel_format.c_str()));
    return format != nullptr && info.depth >= 10 && format->nb_components == 3 &&
           (format->flags & AV_PIX_FMT_FLAG_RGB) == 0;
}

ClipReader::ClipReader(const std::string& path, const std::optional<RawLayout>& raw, bool keep_others)
    : path_(path == "-" ? "standard input" : path) {
    if (raw) {
        raw_ = std::make_unique<RawReader>(path, *raw);
        describe(*raw_);
        return;
    }
    const ErrorsGoTo own(errors_);
    AVFormatContext* opened = nullptr;
    check(avformat_open_input(&opened, path == "-" ? "pipe:0" : ("file:" + path).c_str(), nullptr, nullptr), path_);
    demuxer_.reset(opened);
    give_side_data_to_frames(*opened);
    check(avformat_find_stream_info(opened, nullptr), path_);
    const AVCodec* codec = nullptr;
    stream_ = av_find_best_stream(opened, AVMEDIA_TYPE_VIDEO, -1, -1, &codec, 0);
    if (stream_ == AVERROR_DECODER_NOT_FOUND) throw Error(path_ + ": this FFmpeg cannot decode its video");
    if (stream_ < 0) throw Error(path_ + ": there is no video in it");
    decoder_.reset(avcodec_alloc_context3(codec));
    const AVStream& stream = *demuxer_->streams[stream_];
    check(avcodec_parameters_to_context(decoder_.get(), stream.codecpar), path_);
    decoder_->thread_count = 0;
    decoder_->opaque = &errors_;
    decoder_->pkt_timebase = stream.time_base;
    check(avcodec_open2(decoder_.get(), codec, nullptr), path_);
    if (keep_others) info_.others = std::make_shared<OtherTracks>(*demuxer_, stream_);
    next_packet_ = read_packet();
    FramePtr first = decode();
    if (!first && std::string_view(opened->iformat->name).substr(0, 4) == "mov," &&
        (opened->pb->seekable & AVIO_SEEKABLE_NORMAL) == 0)
        throw Error(path_ + ": an MP4 whose index is at the end cannot be read from a pipe; name the file, or move the "
                            "index with ffmpeg -c copy -movflags +faststart");
    if (!first) throw Error(path_ + ": no frame in it can be decoded");
    describe(*first);
    ahead_.push_back(std::move(first));
}

void ClipReader::describe(const AVFrame& first) {
    AVStream& stream = *demuxer_->streams[stream_];
    const auto format = static_cast<AVPixelFormat>(first.format);
    info_.container = demuxer_->iformat->name;
    info_.codec = avcodec_get_name(decoder_->codec_id);
    info_.pixel_format = av_get_pix_fmt_name(format);
    info_.depth = av_pix_fmt_desc_get(format)->comp[0].depth;
    info_.width = first.width;
    info_.height = first.height;
    // What FFmpeg has no name for means as little as nothing at all.
    if (av_color_primaries_name(first.color_primaries) != nullptr) info_.primaries = first.color_primaries;
    if (av_color_transfer_name(first.color_trc) != nullptr) info_.transfer = first.color_trc;
    if (av_color_space_name(first.colorspace) != nullptr) info_.matrix = first.colorspace;
    info_.range = first.color_range;
    info_.frame_rate = av_guess_frame_rate(demuxer_.get(), &stream, nullptr);
    if (info_.frame_rate.num == 0) info_.frame_rate = {25, 1};
    info_.time_base = stream.time_base;
    if (demuxer_->start_time != AV_NOPTS_VALUE && demuxer_->start_time > 0)
        info_.start = av_rescale_q(demuxer_->start_time, kMicroseconds, stream.time_base);
    info_.sample_aspect_ratio = av_guess_sample_aspect_ratio(demuxer_.get(), &stream, nullptr);
    info_.frames = frame_count(stream, *demuxer_);
    if (demuxer_->duration > 0) info_.duration = static_cast<double>(demuxer_->duration) / AV_TIME_BASE;
    info_.bit_rate = std::max<int64_t>(demuxer_->bit_rate, 0);
    if (const uint8_t* data = side_data_of(stream, AV_PKT_DATA_DOVI_CONF))
        info_.dolby_vision = reinterpret_cast<const AVDOVIDecoderConfigurationRecord*>(data)->dv_profile;
    for (unsigned i = 0; i < demuxer_->nb_streams; ++i)
        if (static_cast<int>(i) != stream_ && demuxer_->streams[i]->discard != AVDISCARD_ALL)
            info_.tracks.push_back(track_info(*demuxer_->streams[i]));
    if (const uint8_t* matrix = side_data_of(stream, AV_PKT_DATA_DISPLAYMATRIX))
        info_.display_matrix.assign(reinterpret_cast<const int32_t*>(matrix),
                                    reinterpret_cast<const int32_t*>(matrix) + 9);
    info_.static_metadata = static_metadata_of(first);
}

void ClipReader::describe(const RawReader& raw) {
    const RawLayout& layout = raw.layout();
    info_.container = info_.codec = "rawvideo";
    info_.pixel_format = av_get_pix_fmt_name(layout.format);
    info_.depth = av_pix_fmt_desc_get(layout.format)->comp[0].depth;
    info_.width = layout.width;
    info_.height = layout.height;
    info_.frame_rate = {25, 1};
    info_.time_base = {1, 25};
    info_.frames = raw.frames();
}

FramePtr ClipReader::read_raw() {
    FramePtr frame(av_frame_alloc());
    frame->format = raw_->layout().format;
    frame->width = raw_->layout().width;
    frame->height = raw_->layout().height;
    check(av_frame_get_buffer(frame.get(), 0), path_);
    if (!raw_->read(frame->data, frame->linesize)) return nullptr;
    return frame;
}

void ClipReader::note_damage() {
    ++damaged_;
    errors_seen_ = errors_.count();
    if (damaged_near_.empty() || damaged_near_.back() != decoded_) damaged_near_.push_back(decoded_);
}

PacketPtr ClipReader::read_packet() {
    PacketPtr packet(av_packet_alloc());
    int result = 0;
    while ((result = av_read_frame(demuxer_.get(), packet.get())) >= 0) {
        if (packet->stream_index == stream_) return packet;
        if (info_.others) {
            info_.others->add(std::move(packet));
            packet.reset(av_packet_alloc());
        }
        av_packet_unref(packet.get());
    }
    if (result != AVERROR_EOF) note_damage(); // where the data just ends too early FFmpeg logs it
    return nullptr;
}

bool ClipReader::is_cut_off(const AVPacket& last) const {
    if (decoder_->codec_id != AV_CODEC_ID_HEVC) return false;
    FfmpegErrors no_news; // the frames that this one builds on are missing here
    const ErrorsGoTo nowhere(no_news);
    const CodecPtr strict(avcodec_alloc_context3(decoder_->codec));
    check(avcodec_parameters_to_context(strict.get(), demuxer_->streams[stream_]->codecpar), path_);
    strict->err_recognition = AV_EF_EXPLODE;
    strict->thread_count = 1;
    return avcodec_open2(strict.get(), decoder_->codec, nullptr) == 0 &&
           avcodec_send_packet(strict.get(), &last) == AVERROR_INVALIDDATA;
}

void ClipReader::feed_decoder() {
    const PacketPtr packet = std::exchange(next_packet_, nullptr);
    if (packet) next_packet_ = read_packet();
    if (packet && !next_packet_ && is_cut_off(*packet)) note_damage();
    if (packet && decoder_->codec_id == AV_CODEC_ID_AV1 && carries_hdr10plus(*packet)) ++messages_;
    const int result = avcodec_send_packet(decoder_.get(), packet.get());
    if (result == AVERROR_INVALIDDATA)
        note_damage();
    else if (result != AVERROR_EOF)
        check(result, path_);
}

FramePtr ClipReader::decode() {
    if (raw_) return read_raw();
    const ErrorsGoTo own(errors_);
    FramePtr frame(av_frame_alloc());
    while (true) {
        const int result = avcodec_receive_frame(decoder_.get(), frame.get());
        if (result == 0) {
            if ((frame->flags & AV_FRAME_FLAG_CORRUPT) != 0 || frame->decode_error_flags != 0) note_damage();
            // Errors that the decoder conceals are only logged, up to a few frames early: it works ahead in threads.
            if (const long errors = errors_.count(); errors != errors_seen_) {
                errors_seen_ = errors;
                if (damaged_near_.empty() || damaged_near_.back() != decoded_) damaged_near_.push_back(decoded_);
            }
            ++decoded_;
            return frame;
        }
        if (result == AVERROR_EOF) return nullptr;
        if (result == AVERROR(EAGAIN))
            feed_decoder();
        else if (result == AVERROR_INVALIDDATA)
            note_damage(); // costs its frame, not the clip
        else
            check(result, path_);
    }
}

void ClipReader::report() const {
    if (loses_records()) warn(path_ + kLosesRecords);
    const std::string reason = errors_.text();
    if (damaged_ == 0 && reason.empty()) return;
    std::string line = path_ + ": damaged or cut off";
    if (damaged_ > 0) line += ": " + counted(damaged_, "bad frame");
    constexpr size_t kNamed = 5;
    for (size_t i = 0; i < std::min(damaged_near_.size(), kNamed); ++i)
        line += (i > 0                      ? ", "
                 : damaged_near_.size() > 1 ? ", near frames "
                                            : ", near frame ") +
                std::to_string(damaged_near_[i]);
    if (damaged_near_.size() > kNamed) line += " and " + std::to_string(damaged_near_.size() - kNamed) + " more";
    warn(line + (reason.empty() ? "" : " (" + reason + ")"));
}

bool ClipReader::has_records_within(int count) {
    const auto has_record = [](const FramePtr& frame) { return record_of(*frame).has_value(); };
    while (static_cast<int>(ahead_.size()) < count && std::none_of(ahead_.begin(), ahead_.end(), has_record)) {
        FramePtr frame = decode();
        if (!frame) break;
        ahead_.push_back(std::move(frame));
    }
    return std::any_of(ahead_.begin(), ahead_.end(), has_record);
}

int64_t ClipReader::pts_of(const AVFrame& frame) const {
    const int64_t pts = frame.best_effort_timestamp;
    if (pts != AV_NOPTS_VALUE && (last_pts_ == AV_NOPTS_VALUE || pts > last_pts_)) return pts;
    // Raw streams carry no times: their frames follow each other at the frame rate.
    const int64_t step = std::max<int64_t>(1, av_rescale_q(1, av_inv_q(info_.frame_rate), info_.time_base));
    return last_pts_ == AV_NOPTS_VALUE ? 0 : last_pts_ + step;
}

double ClipReader::time_of_next() {
    if (ahead_.empty()) {
        FramePtr frame = decode();
        if (!frame) return std::numeric_limits<double>::infinity();
        ahead_.push_back(std::move(frame));
    }
    return static_cast<double>(pts_of(*ahead_.front()) - info_.start) * av_q2d(info_.time_base);
}

bool ClipReader::next(ClipFrame& out) {
    if (!ahead_.empty()) {
        out.frame = std::move(ahead_.front());
        ahead_.pop_front();
    } else {
        out.frame = decode();
    }
    if (!out.frame) return false;
    const AVFrame& frame = *out.frame;
    if (frame.width != info_.width || frame.height != info_.height)
        throw Error(path_ + ": frame " + std::to_string(number_) + ": the size changes from " +
                    std::to_string(info_.width) + "x" + std::to_string(info_.height) + " to " +
                    std::to_string(frame.width) + "x" + std::to_string(frame.height) +
                    "; split the clip there and convert the parts");
    const std::string format = av_get_pix_fmt_name(static_cast<AVPixelFormat>(frame.format));
    if (format != info_.pixel_format)
        throw Error(path_ + ": frame " + std::to_string(number_) + ": the samples change from " + info_.pixel_format +
                    " to " + format + "; split the clip there and convert the parts");
    out.number = number_++;
    out.record = record_of(frame);
    if (out.record) handed_on_ = true;
    out.pts = pts_of(frame);
    last_pts_ = out.pts;
    return true;
}

} // namespace lumivert::tool
