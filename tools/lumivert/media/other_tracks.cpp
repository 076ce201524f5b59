#include "media/other_tracks.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <utility>

#include <strings.h>

#include "error.h"

namespace lumivert::tool {
namespace {

bool is_matroska(const AVFormatContext& muxer) {
    return std::strcmp(muxer.oformat->name, "matroska") == 0;
}

/// Tags that describe the file they were in, not its content.
bool is_about_the_file(const char* key) {
    for (const char* own : {"major_brand", "minor_version", "compatible_brands", "encoder", "duration"})
        if (strcasecmp(key, own) == 0) return true;
    return false;
}

void copy_tags(AVDictionary** to, const AVDictionary* from) {
    const AVDictionaryEntry* tag = nullptr;
    while ((tag = av_dict_get(from, "", tag, AV_DICT_IGNORE_SUFFIX)) != nullptr)
        if (!is_about_the_file(tag->key)) av_dict_set(to, tag->key, tag->value, 0);
}

/// Matroska files carry statistics of a track as tags, which need not hold for the copy: these alone are content.
void copy_track_tags(AVDictionary** to, const AVDictionary* from) {
    for (const char* key : {"language", "title", "handler_name", "filename", "mimetype", "comment"})
        if (const AVDictionaryEntry* tag = av_dict_get(from, key, nullptr, 0)) av_dict_set(to, key, tag->value, 0);
}

const char* kind_of(const AVStream& stream) {
    const char* kind = av_get_media_type_string(stream.codecpar->codec_type);
    return (stream.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0 ? "cover picture" : kind != nullptr ? kind : "data";
}

} // namespace

void OtherTracks::add(PacketPtr packet) {
    std::lock_guard lock(mutex_);
    if (!dropped_) packets_.push_back(std::move(packet));
}

std::deque<PacketPtr> OtherTracks::take() {
    std::lock_guard lock(mutex_);
    return std::exchange(packets_, {});
}

std::optional<int64_t> OtherTracks::time_of(const AVPacket& packet) const {
    const AVStream& from = *demuxer_.streams[packet.stream_index];
    const int64_t pts = packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts;
    const bool cover = (from.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
    if (pts == AV_NOPTS_VALUE || cover) return std::nullopt;
    return av_rescale_q(pts, from.time_base, kMicroseconds);
}

void OtherTracks::drop_before(int64_t time) {
    std::lock_guard lock(mutex_);
    const auto is_before = [&](const PacketPtr& packet) { return time_of(*packet).value_or(time) < time; };
    packets_.erase(std::remove_if(packets_.begin(), packets_.end(), is_before), packets_.end());
}

void OtherTracks::drop() {
    std::lock_guard lock(mutex_);
    packets_.clear();
    dropped_ = true;
}

TrackCopier::TrackCopier(std::shared_ptr<OtherTracks> tracks, AVFormatContext& muxer)
    : tracks_(std::move(tracks)), muxer_(muxer), copies_(tracks_->demuxer().nb_streams) {
    const AVFormatContext& clip = tracks_->demuxer();
    copy_tags(&muxer.metadata, clip.metadata);
    copy_track_tags(&muxer.streams[0]->metadata, clip.streams[tracks_->picture()]->metadata);
    for (unsigned i = 0; i < clip.nb_streams; ++i)
        if (static_cast<int>(i) != tracks_->picture()) add_track(*clip.streams[i]);
    last_dts_.assign(muxer.nb_streams, AV_NOPTS_VALUE);
}

/// Why the muxer does not take a track; empty if it does.
std::string TrackCopier::reason_against(const AVStream& from) const {
    const AVCodecParameters& codec = *from.codecpar;
    const bool cover = (from.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0;
    const std::string name = codec.codec_id != AV_CODEC_ID_NONE ? avcodec_get_name(codec.codec_id) : "unknown";
    if (codec.codec_type == AVMEDIA_TYPE_VIDEO && !cover) return "only one picture is converted";
    if (is_matroska(muxer_) && (codec.codec_type == AVMEDIA_TYPE_ATTACHMENT || cover)) {
        const bool named = cover || (av_dict_get(from.metadata, "filename", nullptr, 0) != nullptr &&
                                     av_dict_get(from.metadata, "mimetype", nullptr, 0) != nullptr);
        return named ? "" : name;
    }
    const bool known = codec.codec_type == AVMEDIA_TYPE_AUDIO || codec.codec_type == AVMEDIA_TYPE_SUBTITLE || cover;
    return known && avformat_query_codec(muxer_.oformat, codec.codec_id, FF_COMPLIANCE_NORMAL) == 1 ? "" : name;
}

void TrackCopier::add_track(const AVStream& from) {
    // A chapter track of MP4: its content is in the list of chapters.
    if (from.discard == AVDISCARD_ALL) return;
    const std::string reason = reason_against(from);
    if (!reason.empty()) {
        left_out_ += (left_out_.empty() ? "" : ", ") + std::string(kind_of(from)) + " track " +
                     std::to_string(from.index) + " (" + reason + ")";
        return;
    }
    AVStream* to = avformat_new_stream(&muxer_, nullptr);
    if (to == nullptr) throw Error("no memory for another track");
    check(avcodec_parameters_copy(to->codecpar, from.codecpar), "copying tracks");
    to->codecpar->codec_tag = 0;
    to->time_base = from.time_base;
    to->disposition = from.disposition;
    copy_track_tags(&to->metadata, from.metadata);
    if (is_matroska(muxer_) && (from.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) {
        // Matroska keeps a cover as a file, which FFmpeg's demuxer shows as a picture and its muxer takes as a file.
        const AVPacket& picture = from.attached_pic;
        to->codecpar->codec_type = AVMEDIA_TYPE_ATTACHMENT;
        to->codecpar->extradata = static_cast<uint8_t*>(av_mallocz(picture.size + AV_INPUT_BUFFER_PADDING_SIZE));
        if (to->codecpar->extradata == nullptr) throw Error("no memory for a cover picture");
        std::memcpy(to->codecpar->extradata, picture.data, picture.size);
        to->codecpar->extradata_size = picture.size;
        const bool png = from.codecpar->codec_id == AV_CODEC_ID_PNG;
        av_dict_set(&to->metadata, "filename", png ? "cover.png" : "cover.jpg", AV_DICT_DONT_OVERWRITE);
        av_dict_set(&to->metadata, "mimetype", png ? "image/png" : "image/jpeg", AV_DICT_DONT_OVERWRITE);
        return;
    }
    if (from.codecpar->codec_type != AVMEDIA_TYPE_ATTACHMENT) copies_[from.index] = to;
}

void TrackCopier::start(int64_t start, int64_t end, bool cut) {
    start_ = start;
    cut_ = cut;
    add_chapters(start, end);
}

void TrackCopier::add_chapters(int64_t start, int64_t end) {
    const AVFormatContext& clip = tracks_->demuxer();
    muxer_.chapters = static_cast<AVChapter**>(av_calloc(clip.nb_chapters, sizeof(AVChapter*)));
    if (muxer_.chapters == nullptr) return;
    for (unsigned i = 0; i < clip.nb_chapters; ++i) {
        const AVChapter& from = *clip.chapters[i];
        const int64_t first = std::max(av_rescale_q(from.start, from.time_base, kMicroseconds), start);
        const int64_t last = std::min(av_rescale_q(from.end, from.time_base, kMicroseconds), end);
        if (first >= last) continue;
        auto* to = static_cast<AVChapter*>(av_mallocz(sizeof(AVChapter)));
        if (to == nullptr) return;
        to->id = from.id;
        to->time_base = kMicroseconds;
        to->start = first - start;
        to->end = last - start;
        av_dict_copy(&to->metadata, from.metadata, 0);
        muxer_.chapters[muxer_.nb_chapters++] = to;
    }
}

void TrackCopier::write_until(int64_t time) {
    auto read = tracks_->take();
    waiting_.insert(waiting_.end(), std::make_move_iterator(read.begin()), std::make_move_iterator(read.end()));
    std::deque<PacketPtr> later;
    for (PacketPtr& packet : waiting_) {
        const int64_t at = tracks_->time_of(*packet).value_or(start_);
        if (copies_[packet->stream_index] == nullptr || (cut_ && at < start_)) continue;
        if (at > time)
            later.push_back(std::move(packet));
        else
            write(*packet);
    }
    waiting_ = std::move(later);
}

void TrackCopier::write(AVPacket& packet) {
    const AVStream& from = *tracks_->demuxer().streams[packet.stream_index];
    const AVStream& to = *copies_[from.index];
    const int64_t shift = av_rescale_q(start_, kMicroseconds, from.time_base);
    if (packet.pts != AV_NOPTS_VALUE) packet.pts -= shift;
    if (packet.dts != AV_NOPTS_VALUE) packet.dts -= shift;
    if ((from.disposition & AV_DISPOSITION_ATTACHED_PIC) != 0) packet.pts = packet.dts = 0;
    av_packet_rescale_ts(&packet, from.time_base, to.time_base);
    packet.stream_index = to.index;
    packet.pos = -1;
    // Damaged clips repeat times, which muxers refuse.
    int64_t& last = last_dts_[to.index];
    const int64_t least = from.codecpar->codec_type == AVMEDIA_TYPE_SUBTITLE ? last : last + 1;
    if (packet.dts != AV_NOPTS_VALUE && last != AV_NOPTS_VALUE && packet.dts < least) return;
    last = std::max(last, packet.dts);
    check(av_interleaved_write_frame(&muxer_, &packet), "copying tracks");
}

} // namespace lumivert::tool
