/// Anything that FFmpeg's libraries write: H.264 in MP4 and Matroska, ProRes in QuickTime, GIF,
/// YUV4MPEG2 in files and pipes.

#include "Channel.h"
#include "ClipCopier.h"
#include "Encoder.h"
#include "Failure.h"
#include "Graph.h"
#include "Muxer.h"
#include "Sink.h"
#include "SoundPackets.h"

#include <algorithm>
#include <optional>

namespace host {

namespace {

constexpr std::size_t kAhead = 32;         // packets that are copied
constexpr std::size_t kEncodedAhead = 256; // and encoded ones

class ContainerSink : public Sink {
public:
    ContainerSink(const OutputOptions &wanted, const OutputPlan &outputPlan, const Canvas &onto,
                  const SoundFormat &soundFormat, const Tags &tags, const Assembly *pieces)
        : options(wanted), plan(outputPlan), canvas(onto), assembly(pieces),
          isGif(plan.kind == OutputPlan::Kind::Gif), muxer(options.file, plan.container, tags) {
        OpenVideo();
        videoStream = &AddStream(*video);
        videoStream->avg_frame_rate = canvas.rate;
        videoStream->sample_aspect_ratio = canvas.aspect;
        const std::string kind = plan.container->name;
        if (plan.video->id == AV_CODEC_ID_HEVC && (kind == "mp4" || kind == "mov"))
            videoStream->codecpar->codec_tag = MKTAG('h', 'v', 'c', '1'); // what players look for
        if (assembly)
            Assemble();
        if (assembly && assembly->sound) {
            soundStream = &muxer.AddStream();
            soundStream->time_base = assembly->sound->TimeBase();
            assembly->sound->Describe(*soundStream->codecpar);
        } else if (soundFormat.rate) {
            AVCodecContext &context = sound.emplace(*plan.sound, muxer.Name()).Context();
            SetUpSound(context, options, soundFormat);
            if (muxer.WantsGlobalHeader())
                context.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
            sound->Open();
            soundStream = &AddStream(*sound);
        }
        muxer.Start(assembly && assembly->plan.copies ? IndexBytes(soundFormat) : 0);
        if (assembly)
            writer = std::jthread([this](const std::stop_token &stop) {
                try {
                    WritePieces(stop);
                } catch (...) {
                    failure = std::current_exception();
                    encoded.Abandon();
                }
            });
    }
    ~ContainerSink() override { encoded.Finish(); }
    ContainerSink(const ContainerSink &) = delete;
    ContainerSink &operator=(const ContainerSink &) = delete;

    void Write(const AVFrame &picture, std::int64_t number) override {
        Frame frame = Share(picture);
        frame->pts = assembly ? number : pictures++;
        frame->pict_type = AV_PICTURE_TYPE_NONE; // the clip's own key frames mean nothing here
        frame->interlaced_frame = canvas.fields != AV_FIELD_PROGRESSIVE;
        frame->top_field_first = canvas.fields == AV_FIELD_TT;
        if (assembly)
            return EncodeInPiece(*frame, number);
        if (!isGif)
            return EncodePicture(frame.get());
        if (!palette)
            palette = Graph(*frame, video->Context().time_base,
                            "split[a][b];[a]palettegen=stats_mode=single[p];"
                            "[b][p]paletteuse=new=1:dither=sierra2_4a",
                            muxer.Name());
        palette.Push(*frame);
        EncodePaletted();
    }

    void WriteSound(const AVFrame &samples) override {
        Frame frame = Share(samples);
        frame->pts = samplesWritten;
        samplesWritten += frame->nb_samples;
        if (!blocks)
            blocks = Graph(*frame, {1, frame->sample_rate}, BlockFilters(sound->Context()),
                           muxer.Name());
        blocks.Push(*frame);
        EncodeSound();
    }

    void Finish() override {
        if (palette) {
            palette.End(pictures);
            EncodePaletted();
        }
        if (assembly)
            AwaitWriter();
        if (sound) {
            if (blocks) {
                blocks.End(samplesWritten);
                EncodeSound();
            }
            sound->Encode(nullptr, [&](AVPacket &packet) {
                muxer.Write(packet, sound->Context().time_base, *soundStream);
            });
        }
        if (!assembly)
            EncodePicture(nullptr);
        muxer.Finish();
    }

private:
    void OpenVideo() {
        AVCodecContext &context = video.emplace(*plan.video, muxer.Name()).Context();
        SetUpVideo(context, options, plan, canvas);
        const bool copies = assembly && assembly->plan.copies;
        if (copies)
            MakeAlike(context, *assembly->plan.like, assembly->plan.depth);
        if (muxer.WantsGlobalHeader() || copies)
            context.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        video->Open();
        isUsed = false;
    }

    AVStream &AddStream(Encoder &encoder) {
        AVStream &stream = muxer.AddStream();
        stream.time_base = encoder.Context().time_base;
        Check(avcodec_parameters_from_context(stream.codecpar, &encoder.Context()), muxer.Name());
        return stream;
    }

    // ---------------------------------------------------------------------------------------------
    // A result in pieces
    // ---------------------------------------------------------------------------------------------

    /// Readies what the pieces need; the header gets everybody's parameter sets.
    void Assemble() {
        const CopyPlan &pieces = assembly->plan;
        const AVCodecContext &context = video->Context();
        piece = pieces.part.first;
        constexpr int kPyramid = 2; // the encoder of H.265 does not tell
        delay =
            std::max({pieces.depth, context.has_b_frames,
                      plan.video->id == AV_CODEC_ID_HEVC && context.max_b_frames ? kPyramid : 0});
        if (!pieces.copies)
            return;
        SetHouse house = pieces.house;
        syntax = pieces.like->syntax;
        const Header own = ReadHeader(
            {context.extradata, std::size_t(std::max(0, context.extradata_size))}, syntax);
        const auto given = house.Add(own.sets);
        if (!given)
            throw Failure(muxer.Name() +
                          ": no numbers are left for parameter sets; give --copy never");
        numbers = *given;
        isInBand = !muxer.WantsGlobalHeader();
        if (isInBand)
            for (const Bytes &set : own.sets)
                AppendUnit(ownSets, Renumber(set, syntax, numbers));
        const Bytes all = isInBand ? house.Extradata() : house.MeasuredExtradata();
        AVCodecParameters &parameters = *videoStream->codecpar;
        av_freep(&parameters.extradata);
        parameters.extradata =
            static_cast<std::uint8_t *>(av_mallocz(all.size() + AV_INPUT_BUFFER_PADDING_SIZE));
        std::copy(all.begin(), all.end(), parameters.extradata);
        parameters.extradata_size = int(all.size());
        copier.emplace(assembly->clips, pieces, isInBand);
    }

    /// The room for the index of a file that is not to be written twice.
    std::int64_t IndexBytes(const SoundFormat &format) const {
        constexpr std::int64_t kShortest = 128; // samples of a packet
        const Range frames = assembly->plan.Frames();
        const double seconds = double(assembly->length) / av_q2d(canvas.rate);
        return IndexRoom(frames.end - frames.begin,
                         soundStream ? std::int64_t(seconds * format.rate / kShortest) : 0);
    }

    void EncodeInPiece(AVFrame &frame, std::int64_t number) {
        const std::vector<Piece> &pieces = assembly->plan.pieces;
        while (pieces[piece].frames.end <= number)
            ++piece;
        if (number == pieces[piece].frames.begin && isUsed)
            OpenVideo();
        isUsed = true;
        EncodePicture(&frame);
        if (number + 1 == pieces[piece].frames.end)
            EncodePicture(nullptr);
    }

    /// Writes all pieces in their order; runs beside the encoder, which goes ahead while others are
    /// copied.
    void WritePieces(const std::stop_token &stop) {
        const auto [first, end] = assembly->plan.part;
        const std::vector<Piece> &pieces = assembly->plan.pieces;
        for (std::size_t i = first; i < end;) {
            const std::size_t begin = i;
            while (i < end && pieces[i].clip >= 0)
                ++i;
            if (begin < i) {
                CopyPieces(begin, i, stop);
                if (stop.stop_requested())
                    return;
                continue;
            }
            for (std::int64_t n = pieces[i].frames.begin; n < pieces[i].frames.end; ++n) {
                const std::optional<Packet> packet = encoded.Receive();
                if (!packet)
                    throw Failure(muxer.Name() + ": a picture is missing");
                MuxPicture(**packet);
            }
            ++i;
        }
        SoundUntil(INT64_MAX);
    }

    /// Reads ahead of writing.
    void CopyPieces(std::size_t begin, std::size_t end, const std::stop_token &stop) {
        Channel<Packet> read(kAhead);
        const std::jthread reader = Stage(read, [&] {
            for (std::size_t i = begin; i < end; ++i)
                copier->Copy(assembly->plan.pieces[i], canvas.rate,
                             [&](Packet packet) { return read.Send(std::move(packet)); });
        });
        struct Release { // before the thread is waited for, however this function ends
            Channel<Packet> &read;
            ~Release() { read.Abandon(); }
        } const release{read};
        while (const std::optional<Packet> packet = read.Receive()) {
            if (stop.stop_requested())
                return;
            MuxPicture(**packet);
        }
    }

    /// Waits until all is written; what went wrong there is thrown here.
    void AwaitWriter() {
        encoded.Finish();
        writer.join();
        if (failure)
            std::rethrow_exception(failure);
    }

    void SendToWriter(Packet packet) {
        if (!encoded.Send(std::move(packet)))
            AwaitWriter();
    }

    /// Times count frames of what is written. Decoding runs ahead evenly.
    void MuxPicture(AVPacket &packet) {
        packet.pts -= assembly->plan.Frames().begin;
        packet.dts = decoded++ - delay;
        packet.duration = 1;
        muxer.Write(packet, av_inv_q(canvas.rate), *videoStream);
        SoundUntil(assembly->plan.Frames().begin + decoded);
        assembly->count();
    }

    void SoundUntil(std::int64_t frame) {
        if (!soundStream)
            return;
        frame = std::min(frame, assembly->length);
        if (!assembly->sound) {
            for (; soundFrames < frame; ++soundFrames)
                WriteSound(*assembly->readSound(soundFrames));
            return;
        }
        const std::int64_t end =
            av_rescale_q(frame, av_inv_q(canvas.rate), assembly->sound->TimeBase());
        while (soundAt < end || frame == assembly->length) {
            const Packet packet = assembly->sound->Next();
            if (!packet)
                return;
            soundAt = packet->pts;
            muxer.Write(*packet, assembly->sound->TimeBase(), *soundStream);
        }
    }

    void EncodePicture(const AVFrame *frame) {
        video->Encode(frame, [&](AVPacket &packet) {
            if (copier)
                return SendToWriter(TranslatePicture(packet, 0, syntax, numbers,
                                                     isInBand ? &ownSets : nullptr, false));
            if (assembly) {
                Packet own(av_packet_alloc());
                av_packet_move_ref(own.get(), &packet);
                return SendToWriter(std::move(own));
            }
            packet.duration = 1;
            muxer.Write(packet, video->Context().time_base, *videoStream);
        });
    }

    void EncodePaletted() {
        while (const Frame frame = palette.Pull())
            EncodePicture(frame.get());
    }

    void EncodeSound() {
        while (const Frame frame = blocks.Pull())
            sound->Encode(frame.get(), [&](AVPacket &packet) {
                muxer.Write(packet, sound->Context().time_base, *soundStream);
            });
    }

    const OutputOptions options;
    const OutputPlan plan;
    const Canvas canvas;
    const Assembly *assembly;
    bool isGif;
    Muxer muxer;
    std::optional<Encoder> video;
    bool isUsed = false; ///< the encoder has been given pictures
    AVStream *videoStream = nullptr;
    std::optional<Encoder> sound;
    AVStream *soundStream = nullptr;
    Graph palette, blocks;
    std::int64_t pictures = 0;
    std::int64_t samplesWritten = 0;
    // Of a result in pieces
    std::optional<PictureCopier> copier;
    std::size_t piece = 0; ///< that is encoded now
    std::int64_t decoded = 0;
    std::int64_t delay = 0; ///< frames by which decoding runs ahead
    Syntax syntax = Syntax::H264;
    Numbers numbers; ///< of the encoder's parameter sets
    bool isInBand = false;
    Bytes ownSets; ///< in front of key pictures
    std::int64_t soundFrames = 0;
    std::int64_t soundAt = INT64_MIN;
    Channel<Packet> encoded{kEncodedAhead};
    std::exception_ptr failure; ///< of the writer
    std::jthread writer;        ///< stops and is waited for before anything else goes
};

} // namespace

std::unique_ptr<Sink> OpenContainer(const OutputOptions &options, const OutputPlan &plan,
                                    const Canvas &canvas, const SoundFormat &sound,
                                    const Tags &tags, const Assembly *assembly) {
    return std::make_unique<ContainerSink>(options, plan, canvas, sound, tags, assembly);
}

} // namespace host
