/// HDR10+ messages in AV1 packets. Decoders hand them on from FFmpeg 6 or 7 on; here they are only noticed.
#pragma once

#include "media/ffmpeg.h"

namespace lumivert::tool {

/// Whether a packet of AV1 carries an HDR10+ message: metadata of type ITU-T T.35 (AV1 bitstream, 6.7.2) from the
/// provider of SMPTE ST 2094-40.
bool carries_hdr10plus(const AVPacket& packet);

} // namespace lumivert::tool
