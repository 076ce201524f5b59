#include "media/av1_messages.h"

#include <cstring>

namespace lumivert::tool {
namespace {

struct Bytes {
    const uint8_t* data;
    size_t size;

    bool skip(size_t count) {
        if (count > size) return false;
        data += count;
        size -= count;
        return true;
    }
};

/// A number of seven bits to a byte, lowest first (leb128).
bool read_number(Bytes& bytes, uint64_t& value) {
    value = 0;
    for (int i = 0; i < 8 && bytes.size > 0; ++i) {
        const uint8_t byte = *bytes.data;
        bytes.skip(1);
        value |= uint64_t{byte & 0x7FU} << (7 * i);
        if ((byte & 0x80U) == 0) return true;
    }
    return false;
}

bool is_hdr10plus(Bytes payload) {
    constexpr uint64_t kItutT35 = 4;
    constexpr uint8_t kMessage[] = {0xB5, 0x00, 0x3C, 0x00, 0x01, 0x04};
    uint64_t type = 0;
    return read_number(payload, type) && type == kItutT35 && payload.size >= sizeof kMessage &&
           std::memcmp(payload.data, kMessage, sizeof kMessage) == 0;
}

} // namespace

bool carries_hdr10plus(const AVPacket& packet) {
    constexpr int kMetadata = 5; // obu_type
    Bytes bytes = {packet.data, static_cast<size_t>(packet.size)};
    while (bytes.size > 0) {
        const uint8_t header = *bytes.data;
        const bool extension = (header & 4U) != 0, sized = (header & 2U) != 0;
        uint64_t size = 0;
        if (!bytes.skip(extension ? 2 : 1)) return false;
        if (!sized)
            size = bytes.size;
        else if (!read_number(bytes, size))
            return false;
        if (size > bytes.size) return false;
        if ((header >> 3 & 15) == kMetadata && is_hdr10plus({bytes.data, static_cast<size_t>(size)})) return true;
        bytes.skip(size);
    }
    return false;
}

} // namespace lumivert::tool
