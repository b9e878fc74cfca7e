/// Numbered PNG pictures, each of which appears when it is whole.

#include "Encoder.h"
#include "Failure.h"
#include "OutputFile.h"
#include "Sink.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace host {

namespace {

class PictureSink : public Sink {
public:
    PictureSink(const OutputOptions &options, const OutputPlan &plan, const Canvas &canvas)
        : pattern(options.file), encoder(*plan.video, pattern) {
        SetUpVideo(encoder.Context(), options, plan, canvas);
        encoder.Context().thread_count = 1; // a picture in is a picture out
        encoder.Open();
    }

    void Write(const AVFrame &picture, std::int64_t frame) override {
        char name[1024];
        Check(av_get_frame_filename(name, sizeof name, pattern.c_str(), int(frame)), pattern);
        OutputFile output(name);
        std::FILE *file = std::fopen(output.Part().c_str(), "wb");
        bool good = file != nullptr;
        Frame shown = Share(picture);
        shown->pts = frame;
        encoder.Encode(shown.get(), [&](const AVPacket &packet) {
            good =
                good && std::fwrite(packet.data, 1, packet.size, file) == std::size_t(packet.size);
        });
        const int reason = errno;
        if (file && std::fclose(file) != 0)
            good = false;
        if (!good)
            throw Failure(std::string(name) + ": " + std::strerror(reason ? reason : errno));
        output.Keep();
    }

    void Finish() override {}

private:
    std::string pattern;
    Encoder encoder;
};

} // namespace

std::unique_ptr<Sink> OpenPictures(const OutputOptions &options, const OutputPlan &plan,
                                   const Canvas &canvas) {
    return std::make_unique<PictureSink>(options, plan, canvas);
}

std::unique_ptr<Sink> OpenSink(const OutputOptions &options, const OutputPlan &plan,
                               const Canvas &canvas, const SoundFormat &sound, const Tags &tags,
                               const Assembly *assembly) {
    if (plan.kind == OutputPlan::Kind::Pictures)
        return OpenPictures(options, plan, canvas);
    return OpenContainer(options, plan, canvas, sound, tags, assembly);
}

} // namespace host
