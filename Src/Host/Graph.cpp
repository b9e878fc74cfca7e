#include "Graph.h"

#include "Failure.h"

#include <new>

extern "C" {
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavutil/channel_layout.h>
}

namespace host {

namespace {

using Ends = std::unique_ptr<AVFilterInOut, Release<avfilter_inout_free>>;

/// One end of the chains as the parser sees it: its own output feeds "in".
Ends NewEnd(const char *label, AVFilterContext *filter) {
    Ends end(avfilter_inout_alloc());
    if (!end)
        throw std::bad_alloc();
    end->name = av_strdup(label);
    end->filter_ctx = filter;
    return end;
}

} // namespace

Graph::Graph(const AVFrame &first, AVRational timeBase, const std::string &filters,
             std::string what)
    : name(std::move(what)), graph(avfilter_graph_alloc()) {
    if (!graph)
        throw std::bad_alloc();
    const bool isSound = first.nb_samples > 0;
    const auto add = [&](const char *kind) {
        AVFilterContext *filter =
            avfilter_graph_alloc_filter(graph.get(), avfilter_get_by_name(kind), kind);
        return filter ? filter : throw std::bad_alloc();
    };
    in = add(isSound ? "abuffer" : "buffer");
    out = add(isSound ? "abuffersink" : "buffersink");
    AVBufferSrcParameters *parameters = av_buffersrc_parameters_alloc();
    parameters->format = first.format;
    parameters->time_base = timeBase;
    parameters->width = first.width;
    parameters->height = first.height;
    parameters->sample_aspect_ratio = first.sample_aspect_ratio;
    parameters->sample_rate = first.sample_rate;
    if (isSound)
        av_channel_layout_copy(&parameters->ch_layout, &first.ch_layout);
#if LIBAVFILTER_VERSION_MAJOR >= 10
    parameters->color_space = first.colorspace;
    parameters->color_range = first.color_range;
#endif
    const int answer = av_buffersrc_parameters_set(in, parameters);
    av_channel_layout_uninit(&parameters->ch_layout);
    av_free(parameters);
    Check(answer, name);
    Check(avfilter_init_str(in, nullptr), name);
    Check(avfilter_init_str(out, nullptr), name);
    Ends outputs = NewEnd("in", in), inputs = NewEnd("out", out);
    AVFilterInOut *openInputs = inputs.release(), *openOutputs = outputs.release();
    const int parsed =
        avfilter_graph_parse_ptr(graph.get(), filters.c_str(), &openInputs, &openOutputs, nullptr);
    avfilter_inout_free(&openInputs);
    avfilter_inout_free(&openOutputs);
    Check(parsed, name + ": the filters " + filters);
    Check(avfilter_graph_config(graph.get(), nullptr), name + ": the filters " + filters);
}

void Graph::Push(const AVFrame &frame) {
    Check(av_buffersrc_write_frame(in, &frame), name);
}

void Graph::End(std::int64_t pts) {
    Check(av_buffersrc_close(in, pts, AV_BUFFERSRC_FLAG_PUSH), name);
}

Frame Graph::Pull() {
    Frame frame = NewFrame();
    const int answer = av_buffersink_get_frame(out, frame.get());
    if (answer == AVERROR(EAGAIN) || answer == AVERROR_EOF)
        return nullptr;
    Check(answer, name);
    return frame;
}

AVRational Graph::TimeBase() const {
    return av_buffersink_get_time_base(out);
}

} // namespace host
