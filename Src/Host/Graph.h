/// \file Graph.h
/// A chain of FFmpeg's filters with one way in and one way out.
#pragma once

#include "Media.h"

#include <string>

extern "C" {
#include <libavfilter/avfilter.h>
}

namespace host {

class Graph {
public:
    Graph() = default;
    /// For pictures or sound like the first one, whose pts count in this unit, through filters as
    /// ffmpeg's own -filter_complex takes them: chains between the labels [in] and [out], which may
    /// be left away. Throws a Failure that names what is filtered.
    Graph(const AVFrame &first, AVRational timeBase, const std::string &filters, std::string what);

    explicit operator bool() const { return graph != nullptr; }
    /// Gives the next picture or sound; the samples are shared, not changed.
    void Push(const AVFrame &frame);
    /// Nothing follows; what was given last ends at this time.
    void End(std::int64_t pts);
    /// The next result, its pts in TimeBase(); null when more must be given, or after the last.
    Frame Pull();
    AVRational TimeBase() const;

private:
    std::string name;
    std::unique_ptr<AVFilterGraph, Release<avfilter_graph_free>> graph;
    AVFilterContext *in = nullptr;
    AVFilterContext *out = nullptr;
};

} // namespace host
