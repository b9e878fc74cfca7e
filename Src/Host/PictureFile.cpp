#include "PictureFile.h"

#include "Clip.h"
#include "Encoder.h"
#include "Failure.h"
#include "OutputFile.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

extern "C" {
#include <libavutil/opt.h>
}

namespace host {

namespace {

struct Format {
    const char *endings; ///< each between blanks
    const char *encoder;
    AVPixelFormat pixels;
    const char *option, *value; ///< of the encoder; may be null
};
constexpr Format kFormats[] = {
    {" .png ", "png", AV_PIX_FMT_RGB24, "pred", "mixed"},
    {" .jpg .jpeg ", "mjpeg", AV_PIX_FMT_YUVJ444P, "huffman", "optimal"},
    {" .webp ", "libwebp", AV_PIX_FMT_BGRA, "lossless", "1"},
    {" .tif .tiff ", "tiff", AV_PIX_FMT_RGB24, "compression_algo", "lzw"},
    {" .bmp ", "bmp", AV_PIX_FMT_BGR24, nullptr, nullptr},
};

const Format &FormatOf(const std::string &name) {
    std::string ending = LowerExtension(name);
    ending.insert(0, 1, ' ').push_back(' ');
    const Format *found =
        std::find_if(std::begin(kFormats), std::end(kFormats), [&](const Format &format) {
            return std::strstr(format.endings, ending.c_str()) != nullptr;
        });
    if (found == std::end(kFormats))
        throw Failure(name + ": pictures are written as .png, .jpg, .webp, .tif or .bmp");
    return *found;
}

} // namespace

void CheckPictureName(const std::string &name) {
    FormatOf(name);
}

void EncodePicture(AVFrame &picture, const char *encoderName, const std::string &name,
                   const char *option, const char *value) {
    OutputFile output(name);
    Encoder encoder(*avcodec_find_encoder_by_name(encoderName), name);
    AVCodecContext &context = encoder.Context();
    context.width = picture.width;
    context.height = picture.height;
    context.pix_fmt = AVPixelFormat(picture.format);
    context.time_base = {1, 25};
    context.flags |= AV_CODEC_FLAG_QSCALE;
    context.global_quality = 2 * FF_QP2LAMBDA;
    if (option)
        av_opt_set(context.priv_data, option, value, 0);
    encoder.Open();
    picture.quality = context.global_quality;
    picture.pts = 0;
    errno = 0;
    std::FILE *file = std::fopen(output.Part().c_str(), "wb");
    bool good = file != nullptr;
    const auto write = [&](const AVPacket &packet) {
        good = good && std::fwrite(packet.data, 1, packet.size, file) == std::size_t(packet.size);
    };
    if (good) {
        encoder.Encode(&picture, write);
        encoder.Encode(nullptr, write);
    }
    if (file && std::fclose(file) != 0)
        good = false;
    if (!good)
        throw Failure(name + ": " + std::strerror(errno));
    output.Keep();
}

void WritePicture(const AVFrame &picture, const std::string &name) {
    const Format &format = FormatOf(name);
    Canvas canvas;
    canvas.width = picture.width;
    canvas.height = picture.height;
    canvas.pixels = format.pixels;
    // What readers of JPEG files expect without being told.
    canvas.colours = {.range = AVCOL_RANGE_JPEG,
                      .matrix = IsRgb(format.pixels) ? AVCOL_SPC_RGB : AVCOL_SPC_BT470BG};
    const Frame converted = Converter(canvas).Convert(picture);
    converted->format = format.pixels;

    EncodePicture(*converted, format.encoder, name, format.option, format.value);
}

} // namespace host
