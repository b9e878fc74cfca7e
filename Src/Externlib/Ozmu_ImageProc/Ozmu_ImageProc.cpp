#include "Ozmu_ImageProc.h"

#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

struct Image {
    std::uint8_t *bits;
    std::int32_t width;
    std::int32_t height;
    bool ownsBits;
};

Image *AsImage(void *handle) {
    return static_cast<Image *>(handle);
}

} // namespace

std::uint8_t *DIGetBits(void *image) {
    return image ? AsImage(image)->bits : nullptr;
}

std::int32_t DIGetWidth(void *image) {
    return image ? AsImage(image)->width : 0;
}

std::int32_t DIGetHeight(void *image) {
    return image ? AsImage(image)->height : 0;
}

std::int32_t DIGetPitch(void *image) {
    return image ? AsImage(image)->width * 4 : 0;
}

void *DICreate(std::int32_t width, std::int32_t height) {
    if (width < 0 || height < 0)
        return nullptr;
    const std::size_t size = std::size_t(width) * std::size_t(height) * 4;
    auto *bits = static_cast<std::uint8_t *>(std::calloc(size ? size : 1, 1));
    if (!bits)
        return nullptr;
    auto *image = new (std::nothrow) Image{bits, width, height, true};
    if (!image)
        std::free(bits);
    return image;
}

void *DIWrap(std::uint8_t *bits, std::int32_t width, std::int32_t height) {
    return new (std::nothrow) Image{bits, width, height, false};
}

void DIDestroy(void *image) {
    if (image && AsImage(image)->ownsBits)
        std::free(AsImage(image)->bits);
    delete AsImage(image);
}
