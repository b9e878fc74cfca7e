/// \file ParallelRows.h
/// Large packed frames, drawn by OpenCV's worker threads.
#pragma once

#include "Frames.h"

#include <opencv2/core.hpp>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace tp {

/// Lets OpenCV check the buffers of a call, as the frames go to its threads: a missing one is its
/// own assertion error, which leaves the output cleared.
inline void CheckBuffers(const Frames &frames) {
    const Plane &plane = frames[Plane::Packed];
    for (const std::uint8_t *buffer :
         {plane.start.in1, plane.start.in2, static_cast<const std::uint8_t *>(plane.start.out)}) {
        if (!buffer && plane.start.out)
            FillBytes(plane.start.out, 0, plane.size);
        [[maybe_unused]] const cv::Mat header(frames.height, frames.width, CV_8UC4,
                                              const_cast<std::uint8_t *>(buffer),
                                              static_cast<std::size_t>(plane.pitch));
    }
}

/// Calls draw(rows) on OpenCV's worker threads for ranges that together are the rows 0 .. count
/// - 1.
template<class Draw>
void DrawInParallel(int count, const Draw &draw) {
    // The oldest OpenCV that serves takes no plain function.
    struct Body final : cv::ParallelLoopBody {
        const Draw &draw;
        /// Orders the caller's work and the workers' visibly: OpenCV does so too, but inside
        /// libraries that a build under the thread sanitizer cannot look into.
        mutable std::atomic<int> drawn;

        explicit Body(const Draw &function) : draw(function) {}
        void operator()(const cv::Range &rows) const override {
            drawn.load(std::memory_order_acquire);
            draw(rows);
            drawn.fetch_add(rows.size(), std::memory_order_release);
        }
    };
    const Body body(draw);
    body.drawn.store(0, std::memory_order_release);
    cv::parallel_for_(cv::Range(0, count), body, -1.0);
    body.drawn.load(std::memory_order_acquire);
}

} // namespace tp
