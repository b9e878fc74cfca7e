#include "Plan.h"

#include "Colours.h"
#include "Failure.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
}

namespace host {

namespace fs = std::filesystem;

namespace {

/// Codecs by the names that users know; any other name is looked up among FFmpeg's encoders.
struct NamedCodec {
    const char *names; ///< each between blanks
    const char *encoder;
    AVPixelFormat opaque;
    AVPixelFormat transparent; ///< NONE when the codec has no transparency
    AVPixelFormat deep;        ///< of 10 bits, NONE when it has 8 only
    int best, worst, usual;    ///< quality; worst 0 when the codec has none to choose
};
constexpr NamedCodec kCodecs[] = {
    {" h264 x264 avc ", "libx264", AV_PIX_FMT_YUV420P, AV_PIX_FMT_NONE, AV_PIX_FMT_YUV420P10, 0, 51,
     18},
    {" hevc h265 x265 ", "libx265", AV_PIX_FMT_YUV420P, AV_PIX_FMT_NONE, AV_PIX_FMT_YUV420P10, 0,
     51, 20},
    {" av1 ", "libsvtav1", AV_PIX_FMT_YUV420P, AV_PIX_FMT_NONE, AV_PIX_FMT_YUV420P10, 1, 63, 28},
    {" vp9 ", "libvpx-vp9", AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVA420P, AV_PIX_FMT_YUV420P10, 0, 63,
     24},
    {" vp8 ", "libvpx", AV_PIX_FMT_YUV420P, AV_PIX_FMT_YUVA420P, AV_PIX_FMT_NONE, 4, 63, 10},
    {" prores ", "prores_ks", AV_PIX_FMT_YUV422P10, AV_PIX_FMT_YUVA444P10, AV_PIX_FMT_YUV422P10, 1,
     31, 0},
    {" qtrle ", "qtrle", AV_PIX_FMT_RGB24, AV_PIX_FMT_ARGB, AV_PIX_FMT_NONE, 0, 0, 0},
    {" ffv1 ", "ffv1", AV_PIX_FMT_YUV420P, AV_PIX_FMT_BGRA, AV_PIX_FMT_YUV420P10, 0, 0, 0},
    {" mpeg2 mpeg2video ", "mpeg2video", AV_PIX_FMT_YUV420P, AV_PIX_FMT_NONE, AV_PIX_FMT_NONE, 1,
     31, 3},
    {" mpeg4 ", "mpeg4", AV_PIX_FMT_YUV420P, AV_PIX_FMT_NONE, AV_PIX_FMT_NONE, 1, 31, 3},
    {" mjpeg ", "mjpeg", AV_PIX_FMT_YUVJ420P, AV_PIX_FMT_NONE, AV_PIX_FMT_NONE, 1, 31, 3},
    {" theora ", "libtheora", AV_PIX_FMT_YUV420P, AV_PIX_FMT_NONE, AV_PIX_FMT_NONE, 0, 10, 8},
    {" wmv ", "wmv2", AV_PIX_FMT_YUV420P, AV_PIX_FMT_NONE, AV_PIX_FMT_NONE, 1, 31, 3},
    {" png ", "png", AV_PIX_FMT_RGB24, AV_PIX_FMT_RGBA, AV_PIX_FMT_NONE, 0, 0, 0},
    {" y4m ", "wrapped_avframe", AV_PIX_FMT_YUV420P, AV_PIX_FMT_NONE, AV_PIX_FMT_YUV420P10, 0, 0,
     0},
    {" gif ", "gif", AV_PIX_FMT_BGRA, AV_PIX_FMT_BGRA, AV_PIX_FMT_NONE, 0, 0, 0},
};

/// What files hold by default, where that is not what FFmpeg would choose, or it does not say.
struct NamedContainer {
    const char *extensions; ///< each between blanks
    const char *video;
    const char *sound; ///< encoder
};
constexpr NamedContainer kContainers[] = {
    {" .mp4 .m4v .mov .mkv .flv .ts .mts .m2ts .3gp ", "h264", "aac"},
    {" .avi ", "h264", "ac3"},
    {" .webm ", "vp9", "libopus"},
    {" .mpg .mpeg ", "mpeg2", "mp2"},
    {" .vob ", "mpeg2", "ac3"},
    {" .mxf ", "mpeg2", "pcm_s16le"},
    {" .ogv .ogg ", "theora", "libvorbis"},
    {" .wmv .asf ", "wmv", "wmav2"},
    {" .y4m ", "y4m", ""},
    {" .gif ", "gif", ""},
};

template<class Named>
const Named *Find(const Named *begin, const Named *end, const char *const Named::*names,
                  const std::string &name) {
    const Named *found = std::find_if(begin, end, [&](const Named &entry) {
        return std::strstr(entry.*names, (" " + name + " ").c_str()) != nullptr;
    });
    return found == end ? nullptr : found;
}

const NamedCodec *FindCodec(const std::string &name) {
    return Find(std::begin(kCodecs), std::end(kCodecs), &NamedCodec::names, name);
}

AVPixelFormat BestPixels(const AVCodec &encoder, AVPixelFormat wanted, bool hasAlpha) {
    return encoder.pix_fmts
               ? avcodec_find_best_pix_fmt_of_list(encoder.pix_fmts, wanted, hasAlpha, nullptr)
               : wanted;
}

AVPixelFormat ChoosePixels(const OutputOptions &options, const OutputPlan &plan,
                           const NamedCodec *named, bool hasAlpha) {
    if (options.depth == 10) {
        const AVPixelFormat deep =
            named ? named->deep : BestPixels(*plan.video, AV_PIX_FMT_YUV420P10, false);
        if (deep == AV_PIX_FMT_NONE || BitsOf(deep) < 10)
            throw Failure(std::string("--depth 10: the encoder ") + plan.video->name +
                          " has 8 bits only; hevc, av1, vp9, h264, prores and ffv1 have 10");
        return deep;
    }
    if (!named)
        return BestPixels(*plan.video, hasAlpha ? AV_PIX_FMT_BGRA : AV_PIX_FMT_YUV420P, hasAlpha);
    return hasAlpha && named->transparent != AV_PIX_FMT_NONE ? named->transparent : named->opaque;
}

void ChooseQuality(OutputPlan &plan, const OutputOptions &options, const NamedCodec *named) {
    plan.quality = options.quality;
    if (!named)
        return;
    if (!options.quality && named->usual)
        plan.quality = named->usual;
    const bool hasNone = named->worst == 0;
    if (options.quality && hasNone)
        throw Failure(std::string("--quality: the encoder ") + named->encoder +
                      " has none to choose from");
    if (options.quality && (*options.quality < std::min(named->best, named->worst) ||
                            *options.quality > std::max(named->best, named->worst)))
        throw Failure("--quality " + std::to_string(*options.quality) + ": the encoder " +
                      named->encoder + " has " + std::to_string(named->best) + " to " +
                      std::to_string(named->worst));
}

void ChooseCodec(OutputPlan &plan, const OutputOptions &options, const std::string &codec,
                 bool hasAlpha) {
    const NamedCodec *named = FindCodec(codec);
    plan.video = avcodec_find_encoder_by_name(named ? named->encoder : codec.c_str());
    if (!plan.video || plan.video->type != AVMEDIA_TYPE_VIDEO)
        throw Failure("--codec " + codec +
                      ": FFmpeg has no such video encoder here; there are h264, hevc, av1, vp9, "
                      "prores, qtrle, ffv1 and others (ffmpeg -encoders)");
    for (const NamedCodec &other : kCodecs) // the encoder's own name will do as well
        if (!named && codec == other.encoder)
            named = &other;
    plan.pixels = ChoosePixels(options, plan, named, hasAlpha);
    ChooseQuality(plan, options, named);
    const AVPixFmtDescriptor *kind = av_pix_fmt_desc_get(plan.pixels);
    plan.needsEvenSize = !plan.IsY4m() && (kind->log2_chroma_w || kind->log2_chroma_h);
}

bool CanHold(const AVOutputFormat &container, AVCodecID codec) {
    const int answer = avformat_query_codec(&container, codec, FF_COMPLIANCE_NORMAL);
    return answer == 1 || codec == container.audio_codec || codec == container.video_codec;
}

/// The codec of a file that says nothing else.
std::string UsualCodec(const AVOutputFormat &container, const NamedContainer *named,
                       const std::string &extension, bool hasAlpha) {
    if (extension == ".mov" && hasAlpha)
        return "prores";
    if (named)
        return named->video;
    if (CanHold(container, AV_CODEC_ID_H264))
        return "h264";
    const AVCodec *own = avcodec_find_encoder(container.video_codec);
    return own ? own->name : "h264";
}

/// Not every container tells what it cannot hold, so only a clear no is one.
void ChooseSound(OutputPlan &plan, const OutputOptions &options, const NamedContainer *named) {
    if (!options.soundCodec.empty()) {
        plan.sound = avcodec_find_encoder_by_name(options.soundCodec == "opus"     ? "libopus"
                                                  : options.soundCodec == "vorbis" ? "libvorbis"
                                                  : options.soundCodec == "mp3"    ? "libmp3lame"
                                                  : options.soundCodec == "pcm"
                                                      ? "pcm_s16le"
                                                      : options.soundCodec.c_str());
        if (!plan.sound || plan.sound->type != AVMEDIA_TYPE_AUDIO)
            throw Failure("--audio-codec " + options.soundCodec +
                          ": FFmpeg has no such encoder of sound here; there are aac, opus, mp3, "
                          "flac, pcm and others (ffmpeg -encoders)");
        if (avformat_query_codec(plan.container, plan.sound->id, FF_COMPLIANCE_NORMAL) == 0)
            throw Failure(options.file + ": " + plan.container->name + " files cannot hold " +
                          options.soundCodec + " sound");
        return;
    }
    if (named)
        plan.sound = avcodec_find_encoder_by_name(named->sound);
    else if (CanHold(*plan.container, AV_CODEC_ID_AAC))
        plan.sound = avcodec_find_encoder(AV_CODEC_ID_AAC);
    else
        plan.sound = avcodec_find_encoder(plan.container->audio_codec);
}

OutputPlan PlanPictures(const OutputOptions &options, const std::string &extension, bool hasAlpha) {
    if (extension != ".png")
        throw Failure(options.file + ": numbered pictures are written as .png");
    OutputPlan plan;
    plan.kind = OutputPlan::Kind::Pictures;
    ChooseCodec(plan, options, "png", hasAlpha);
    return plan;
}

} // namespace

std::string LowerExtension(const std::string &file) {
    std::string extension = fs::path(file).extension();
    for (char &c : extension)
        c = char(std::tolower(static_cast<unsigned char>(c)));
    return extension;
}

bool OutputPlan::IsY4m() const {
    return container && std::strcmp(container->name, "yuv4mpegpipe") == 0;
}

bool IsNumbered(const std::string &file) {
    char name[1024];
    return av_get_frame_filename(name, sizeof name, file.c_str(), 0) >= 0;
}

OutputPlan PlanOutput(const OutputOptions &options, bool hasAlpha) {
    const std::string extension = options.file == "-" ? ".y4m" : LowerExtension(options.file);
    if (IsNumbered(options.file))
        return PlanPictures(options, extension, hasAlpha);
    if (extension == ".png")
        throw Failure(options.file + ": give pictures a number, as in " +
                      fs::path(options.file).stem().string() + "-%04d.png");
    OutputPlan plan;
    const NamedContainer *named = Find(std::begin(kContainers), std::end(kContainers),
                                       &NamedContainer::extensions, extension);
    plan.container = av_guess_format(extension == ".y4m" ? "yuv4mpegpipe" : nullptr,
                                     ("a" + extension).c_str(), nullptr);
    if (!plan.container || (plan.container->flags & AVFMT_NOFILE) ||
        plan.container->video_codec == AV_CODEC_ID_NONE ||
        plan.container->video_codec == AV_CODEC_ID_PNG) // a cover picture beside sound
        throw Failure(options.file + ": " +
                      (extension.empty() ? "a name without an extension"
                                         : "the extension \"" + extension + "\"") +
                      " is of no video file; try .mp4, .mkv, .mov, .webm, .y4m, .gif or -%04d.png");
    if (!options.codec.empty() && (extension == ".y4m" || extension == ".gif"))
        throw Failure("--codec " + options.codec + ": " + extension.substr(1) +
                      " files have one kind of video only");
    if (extension == ".gif")
        plan.kind = OutputPlan::Kind::Gif;
    ChooseCodec(plan, options,
                options.codec.empty() ? UsualCodec(*plan.container, named, extension, hasAlpha)
                                      : options.codec,
                hasAlpha);
    if (avformat_query_codec(plan.container, plan.video->id, FF_COMPLIANCE_NORMAL) == 0 &&
        !plan.IsY4m())
        throw Failure(options.file + ": " + plan.container->name + " files cannot hold " +
                      plan.video->name + " video");
    ChooseSound(plan, options, named);
    return plan;
}

SoundFormat PlanSound(const OutputPlan &plan, const SoundFormat &wanted) {
    constexpr int kUsualRate = 48000;
    SoundFormat sound = wanted;
    bool isSupported = !plan.sound->supported_samplerates;
    for (const int *rate = plan.sound->supported_samplerates; rate && *rate; ++rate)
        isSupported = isSupported || *rate == sound.rate;
    if (!isSupported || std::strncmp(plan.container->name, "mxf", 3) == 0)
        sound.rate = kUsualRate;
    AVChannelLayout layout = {};
    av_channel_layout_default(&layout, sound.channels);
    isSupported = !plan.sound->ch_layouts;
    for (const AVChannelLayout *known = plan.sound->ch_layouts; known && known->nb_channels;
         ++known)
        isSupported = isSupported || av_channel_layout_compare(known, &layout) == 0;
    if (!isSupported)
        sound.channels = 2;
    return sound;
}

} // namespace host
