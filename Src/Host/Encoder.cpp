#include "Encoder.h"

#include "Failure.h"

#include <algorithm>
#include <cstring>

extern "C" {
#include <libavutil/channel_layout.h>
#include <libavutil/cpu.h>
#include <libavutil/opt.h>
}

namespace host {

namespace {

void SetPreset(AVCodecContext &context, const std::string &preset) {
    // These two encoders complain on the terminal themselves, and only when they are started.
    constexpr const char *kPresets[] = {"ultrafast", "superfast", "veryfast", "faster",
                                        "fast",      "medium",    "slow",     "slower",
                                        "veryslow",  "placebo"};
    const std::string encoder = context.codec->name;
    const bool isKnown =
        std::find(std::begin(kPresets), std::end(kPresets), preset) != std::end(kPresets);
    if ((encoder == "libx264" || encoder == "libx265") && !isKnown)
        throw Failure("--preset " + preset +
                      ": the encoder has ultrafast, superfast, veryfast, "
                      "faster, fast, medium, slow, slower and veryslow");
    if (!av_opt_find(context.priv_data, "preset", nullptr, 0, 0))
        throw Failure("--preset " + preset + ": the encoder " + encoder + " has no presets");
    Check(av_opt_set(context.priv_data, "preset", preset.c_str(), 0),
          "--preset " + preset + " with the encoder " + encoder);
}

void SetQuality(AVCodecContext &context, std::optional<int> quality) {
    const bool hasCrf = av_opt_find(context.priv_data, "crf", nullptr, 0, 0) != nullptr;
    if (!quality)
        return;
    if (hasCrf) {
        av_opt_set_int(context.priv_data, "crf", *quality, 0);
    } else {
        context.flags |= AV_CODEC_FLAG_QSCALE;
        context.global_quality = *quality * FF_QP2LAMBDA;
    }
}

} // namespace

Encoder::Encoder(const AVCodec &encoder, std::string fileName)
    : name(std::move(fileName)), context(avcodec_alloc_context3(&encoder)) {}

void Encoder::Open() {
    Check(avcodec_open2(context.get(), nullptr, nullptr),
          name + ": cannot start the encoder " + context->codec->name);
}

bool Encoder::Receive(AVPacket &packet) {
    const int answer = avcodec_receive_packet(context.get(), &packet);
    if (answer == AVERROR(EAGAIN) || answer == AVERROR_EOF)
        return false;
    Check(answer, name + ": encoding");
    return true;
}

void SetUpVideo(AVCodecContext &context, const OutputOptions &options, const OutputPlan &plan,
                const Canvas &canvas) {
    context.width = canvas.width;
    context.height = canvas.height;
    context.pix_fmt = plan.kind == OutputPlan::Kind::Gif ? AV_PIX_FMT_PAL8 : plan.pixels;
    context.time_base = av_inv_q(canvas.rate);
    context.framerate = canvas.rate;
    context.sample_aspect_ratio = canvas.aspect;
    context.thread_count = 0;
    context.bit_rate = 0;
    if (!IsRgb(plan.pixels)) {
        context.color_range = canvas.colours.range;
        context.colorspace = canvas.colours.matrix;
        context.chroma_sample_location = canvas.colours.location;
    }
    context.color_primaries = canvas.colours.primaries;
    context.color_trc = canvas.colours.transfer;
    context.field_order = canvas.fields;
    if (canvas.fields != AV_FIELD_PROGRESSIVE)
        context.flags |= AV_CODEC_FLAG_INTERLACED_DCT | AV_CODEC_FLAG_INTERLACED_ME;
    SetQuality(context, plan.quality);
    if (!options.preset.empty())
        SetPreset(context, options.preset);
    if (HasAlpha(plan.pixels) && std::strncmp(plan.video->name, "libvpx", 6) == 0)
        av_opt_set_int(context.priv_data, "auto-alt-ref", 0, 0); // VP8 has but one of the two
    // Its AVX-512 code reads memory that nobody has written, and no two runs give the same bytes.
    if (std::strcmp(plan.video->name, "libx264") == 0 && av_get_cpu_flags() & AV_CPU_FLAG_AVX512)
        av_opt_set(context.priv_data, "x264-params", "asm=AVX2", 0);
    if (std::strcmp(plan.video->name, "libx265") == 0) // it writes to the terminal by itself
        av_opt_set(context.priv_data, "x265-params", "log-level=none", 0);
}

void MakeAlike(AVCodecContext &context, const PacketIndex &index, int depth) {
    context.flags |= AV_CODEC_FLAG_CLOSED_GOP;
    if (depth == 0)
        context.max_b_frames = 0;
    if (std::strcmp(context.codec->name, "libx264") != 0)
        return;
    constexpr std::pair<int, const char *> kProfiles[] = {
        {FF_PROFILE_H264_BASELINE, "baseline"}, {FF_PROFILE_H264_MAIN, "main"},
        {FF_PROFILE_H264_HIGH, "high"},         {FF_PROFILE_H264_HIGH_10, "high10"},
        {FF_PROFILE_H264_HIGH_422, "high422"},  {FF_PROFILE_H264_HIGH_444_PREDICTIVE, "high444"}};
    const int kind = index.profile & ~(FF_PROFILE_H264_CONSTRAINED | FF_PROFILE_H264_INTRA);
    for (const auto &[profile, name] : kProfiles)
        if (profile == kind)
            av_opt_set(context.priv_data, "profile", name, 0);
    if (index.level > 0)
        context.level = index.level;
    if (index.picture.isCavlc)
        av_opt_set(context.priv_data, "coder", "cavlc", 0);
    context.refs = std::clamp(int(index.sequence.references), 1, 16);
}

void SetUpSound(AVCodecContext &context, const OutputOptions &options, const SoundFormat &format) {
    constexpr int kUsualBitrate = 96; // kbit/s a channel
    context.sample_fmt =
        context.codec->sample_fmts ? context.codec->sample_fmts[0] : AV_SAMPLE_FMT_FLTP;
    context.sample_rate = format.rate;
    context.time_base = {1, format.rate};
    context.bit_rate = 1000 * std::int64_t(options.soundBitrate ? options.soundBitrate
                                                                : kUsualBitrate * format.channels);
    av_channel_layout_default(&context.ch_layout, format.channels);
}

std::string BlockFilters(const AVCodecContext &context) {
    const bool isFree =
        context.frame_size == 0 || (context.codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE);
    return std::string("aformat=sample_fmts=") + av_get_sample_fmt_name(context.sample_fmt) +
           (isFree ? "" : ",asetnsamples=p=0:n=" + std::to_string(context.frame_size));
}

} // namespace host
