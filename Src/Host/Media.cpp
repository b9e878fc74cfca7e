#include "Media.h"

#include "Failure.h"

#include <cstdlib>
#include <new>
#include <utility>

extern "C" {
#include <libavutil/error.h>
#include <libavutil/log.h>
}

namespace host {

namespace {

thread_local std::string complaint; // files are opened by several threads

void KeepComplaint(void *, int level, const char *format, va_list values) {
    if (level > AV_LOG_ERROR)
        return;
    char text[256];
    std::vsnprintf(text, sizeof text, format, values);
    std::string line = text;
    while (!line.empty() && (line.back() == '\n' || line.back() == '.'))
        line.pop_back();
    complaint = line;
}

} // namespace

Frame NewFrame() {
    Frame frame(av_frame_alloc());
    if (!frame)
        throw std::bad_alloc();
    return frame;
}

Frame Share(const AVFrame &frame) {
    Frame shared(av_frame_clone(&frame));
    if (!shared)
        throw std::bad_alloc();
    return shared;
}

Frame NewPicture(AVPixelFormat pixels, int width, int height) {
    Frame frame = NewFrame();
    frame->format = pixels;
    frame->width = width;
    frame->height = height;
    Check(av_frame_get_buffer(frame.get(), 0),
          "a picture of " + std::to_string(width) + "x" + std::to_string(height));
    return frame;
}

std::int64_t Duration(const AVFrame &frame) {
#if LIBAVUTIL_VERSION_MAJOR >= 58
    return frame.duration;
#else
    return frame.pkt_duration;
#endif
}

bool IsKnown(AVRational ratio) {
    return ratio.num > 0 && ratio.den > 0;
}

int Check(int answer, const std::string &what) {
    if (answer >= 0)
        return answer;
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(answer, text, sizeof text);
    const std::string detail = TakeComplaint();
    throw Failure(what + ": " + text + (detail.empty() ? "" : " (" + detail + ")"));
}

std::string TakeComplaint() {
    return std::exchange(complaint, {});
}

void SilenceLibraries() {
    av_log_set_callback(KeepComplaint);
    setenv("SVT_LOG", "1", 0); // SVT-AV1 obeys nothing else
}

} // namespace host
