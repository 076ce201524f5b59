#include "io/png.h"

#include <vector>

#include <png.h>

#include "error.h"
#include "io/output_file.h"

namespace lumivert::tool {

void write_png(const std::string& path, const uint8_t* pixels, int width, int height, ptrdiff_t pitch) {
    png_image image = {};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(width);
    image.height = static_cast<png_uint_32>(height);
    image.format = PNG_FORMAT_RGB;
    std::vector<uint8_t> bytes(PNG_IMAGE_PNG_SIZE_MAX(image));
    png_alloc_size_t size = bytes.size();
    if (png_image_write_to_memory(&image, bytes.data(), &size, 0, pixels, static_cast<png_int_32>(pitch), nullptr) == 0)
        throw Error(path + ": " + image.message);
    OutputStream out(path);
    out.write(bytes.data(), size);
    out.commit();
}

} // namespace lumivert::tool
