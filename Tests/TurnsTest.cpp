// Turns and rolls: the kernels against the divisions that they stand for, and what the pictures
// promise at their edges.

#include "Kernels.h"
#include "Pixels.h"
#include "Progress.h"
#include "Support.h"
#include "TurnRows.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <vector>

namespace {

using namespace tp;

/// A row of the card is between half the frame's width, less a column, and one and a half wide.
TEST(Turns, ResamplingStepsEqualTheQuotient) {
    for (std::int64_t width = 1; width <= 8192; width += width < 130 ? 1 : 641)
        for (std::int64_t columns = std::max<std::int64_t>(width / 2 - 1, 1);
             columns <= width + width / 2 + 2; ++columns) {
            const std::int64_t step =
                MakeResampling(int(width), int(width), int(columns), 1, nullptr).step;
            for (std::int64_t n = 0; n < columns; n += columns < 400 ? 1 : 7)
                ASSERT_EQ(n * step >> Resampling::kFraction, n * width / columns)
                    << n << " of " << columns << " from " << width;
        }
}

TEST(Turns, ResamplingShowsTheQuotientsSample) {
    std::vector<ColumnBlock> blocks(8192 / 16);
    for (const int width : {1, 2, 3, 15, 16, 17, 31, 32, 33, 47, 64, 101, 333, 1920, 8192}) {
        const int halfWidth = (width + 1) / 2;
        GuardedBuffer bytes(width), chroma(halfWidth), pixels(std::size_t(width) * 4);
        FillRandom(bytes.Bytes(), 1);
        FillRandom(chroma.Bytes(), 2);
        FillRandom(pixels.Bytes(), 3);
        for (int i = -6; i <= 6; ++i) {
            const int columns = std::max(width + width / 2 * i / 6, 1);
            const int first = std::max(columns - width, 0) / 2;
            const int count = std::min(columns, width);
            GuardedBuffer one(count), half(count), four(std::size_t(count) * 4);
            for (const TurnKernels *kernels : RunnableKernels<TurnKernels>()) {
                const auto resample = [&](int samples, int n, auto kernel, const auto &out,
                                          const auto &in) {
                    const Resampling resampling =
                        MakeResampling(samples, width, n, count, blocks.data());
                    kernels->fillBlocks(resampling, first);
                    kernel(out.Data(), in.Data(), resampling);
                };
                resample(width, columns, kernels->resampleBytes, one, bytes);
                resample(halfWidth, 2 * columns, kernels->resampleBytes, half, chroma);
                resample(width, columns, kernels->resamplePixels, four, pixels);
                for (int n = 0; n < count; ++n) {
                    const int sample = (first + n) * width / columns;
                    ASSERT_EQ(one.Data()[n], bytes.Data()[sample]) << width << " to " << columns;
                    ASSERT_EQ(half.Data()[n], chroma.Data()[sample / 2]);
                    ASSERT_EQ(std::memcmp(four.Data() + n * 4, pixels.Data() + sample * 4, 4), 0);
                }
            }
        }
    }
}

TEST(Turns, ChromaMeansTakeInOneSampleAfterTheOther) {
    // Every value that can stand in the output before every first sample, and some second ones.
    constexpr unsigned count = 65536;
    std::vector<std::uint8_t> samples(count * 2), two(count), four(count);
    for (unsigned i = 0; i < count; ++i) {
        samples[2 * i] = std::uint8_t(i);
        samples[2 * i + 1] = std::uint8_t(i * 37 >> 4);
    }
    for (const TurnKernels *kernels : RunnableKernels<TurnKernels>()) {
        for (unsigned i = 0; i < count; ++i)
            four[i] = std::uint8_t(i >> 8);
        kernels->meanOfTwo(two.data(), samples.data(), count);
        kernels->meanOfFour(four.data(), samples.data(), count);
        for (unsigned i = 0; i < count; ++i) {
            const unsigned a = samples[2 * i], b = samples[2 * i + 1], before = i >> 8;
            ASSERT_EQ(two[i], (a + b) >> 1);
            ASSERT_EQ(four[i], (b + 3 * ((a + 2 * before) / 3)) >> 2);
        }
    }
}

TEST(Turns, ScaleTruncatesTowardItsBase) {
    const struct {
        int divisor, base, limit;
    } cases[] = {{136, 16, 235}, {204, 16, 235}, {238, 16, 235}, {271, 16, 235}, {331, 16, 235},
                 {8, 0, 255},    {12, 0, 255},   {20, 0, 255},   {28, 0, 255}};
    std::uint8_t out[256];
    for (const TurnKernels *kernels : RunnableKernels<TurnKernels>())
        for (const auto &c : cases)
            for (int weight = 0; weight <= c.divisor; ++weight) {
                const std::vector<std::int16_t> weights(256, std::int16_t(weight));
                std::iota(out, out + 256, std::uint8_t(0));
                kernels->scale(out, weights.data(), 256, c.divisor, c.base, c.limit);
                for (int v = 0; v < 256; ++v)
                    ASSERT_EQ(out[v], std::min((v - c.base) * weight / c.divisor + c.base, c.limit))
                        << v << " * " << weight << " / " << c.divisor;
            }
}

TEST(Turns, MirrorsAndTransposesKeepToTheirRangesAtEveryLength) {
    for (const TurnKernels *kernels : RunnableKernels<TurnKernels>())
        for (int rows = 0; rows < 40; rows += rows < 5 ? 1 : 3)
            for (int columns = 0; columns < 40; ++columns) {
                GuardedBuffer in(rows * columns * 4), out(rows * columns * 4), row(columns);
                FillRandom(in.Bytes(), 7);
                kernels->transposeBytes(out.Data(), columns, in.Data(), rows, rows, columns);
                for (int i = 0; i < rows * columns; ++i)
                    ASSERT_EQ(out.Data()[i], in.Data()[i % columns * rows + i / columns]);
                kernels->transposePixels(out.Data(), columns * 4, in.Data(), rows * 4, rows,
                                         columns);
                for (int i = 0; i < rows * columns * 4; ++i)
                    ASSERT_EQ(out.Data()[i],
                              in.Data()[(i / 4 % columns * rows + i / 4 / columns) * 4 + i % 4]);
                if (rows == 0)
                    continue;
                kernels->mirror(row.Data(), in.Data() + columns - 1, columns);
                for (int i = 0; i < columns; ++i)
                    ASSERT_EQ(row.Data()[i], in.Data()[columns - 1 - i]);
            }
}

// ---------------------------------------------------------------------------------------------
// Pictures
// ---------------------------------------------------------------------------------------------

struct Planar {
    PlanarCall call;
    int width, pitchUV;

    /// Inputs of one colour: the first of `first`, the second of 77, the output of 5.
    Planar(Geometry g, int first) : call(g, 1), width(g.pitch), pitchUV(g.pitchUV) {
        for (int plane = 0; plane < 3; ++plane) {
            std::ranges::fill(call.Plane(0, plane), 5);
            std::ranges::fill(call.Plane(1, plane), first);
            std::ranges::fill(call.Plane(2, plane), 77);
        }
    }
    Planar &Draw(TransFuncYUV function, double position) {
        call.Draw(function, MakeParam(1, position));
        return *this;
    }
    int Luma(int x, int y) const { return call.Plane(0, 0)[std::size_t(y * width + x)]; }
    int Cb(int x, int y) const { return call.Plane(0, 1)[std::size_t(y * pitchUV + x)]; }
};

TEST(Turns, RollIsLitOverItsWholeProfileHoweverNarrow) {
    Planar roll({1920, 2, 1920, 960}, 128);
    roll.Draw(TrRoll, PositionThatEasesTo(10.0 / 1920));
    const int narrow[] = {-100, -60, -20, 20, 60, 100, 60, 20, -20, -60};
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(roll.Luma(10 + i, 1), 128 + narrow[i]) << i;
    roll.Draw(TrRoll, 0.5);
    const int lit[][2] = {{959, 77}, {960, 28}, {999, 228}, {1000, 222}, {1037, 34}, {1038, 128}};
    for (const auto &[x, value] : lit)
        EXPECT_EQ(roll.Luma(x, 0), value) << x;
    // Video white is the limit, of the packed path too, but not of its fourth byte.
    Planar bright({1920, 2, 1920, 960}, 250);
    EXPECT_EQ(bright.Draw(TrRoll, 0.5).Luma(999, 0), 235);
    PackedCall packed(1920, 1, 1);
    std::ranges::fill(packed.Pixels(1), 250);
    packed.Draw(TrRollRGB, MakeParam(1, 0.5));
    const std::uint8_t middle[] = {235, 235, 235, 250};
    EXPECT_TRUE(std::ranges::equal(packed.Pixels(0).subspan(999 * 4, 4), middle));
}

TEST(Turns, RollTakesChromaRightOfAnOddEdgeFromOneFurther) {
    for (const int edge : {10, 11}) {
        PlanarCall call({64, 4, 64, 32}, 9);
        call.Record(0).nPitchV = 31; // moves the flat part of Cr's second row, and no other part
        call.Draw(TrRoll, MakeParam(1, PositionThatEasesTo(edge / 64.0)));
        const int odd = edge & 1;
        const auto shows = [&](int plane, int place, int source) {
            return call.Plane(0, plane)[place] == call.Plane(1, plane)[source];
        };
        for (int c = edge; c < 32 - odd; ++c) {
            EXPECT_TRUE(shows(1, 32 + c, 32 + c + odd)) << edge << " Cb " << c;
            EXPECT_TRUE(c == edge || shows(2, 31 + c, 31 + c + odd)) << edge;
        }
        for (int c = edge / 2; c < edge; ++c)
            for (const int plane : {1, 2})
                EXPECT_TRUE(shows(plane, 32 + c, 32 + edge - c)) << edge;
    }
}

/// With an odd edge the last flat sample, or, with the edge in the last column, the roll's only one
/// comes from one past the row: the byte there, unless the plane ends before it.
TEST(Turns, RollReadsOnePastAChromaRowWithinThePlane) {
    for (const int edge : {11, 63})
        for (const auto &[pitchUV, pitchV] : {std::pair{32, 32}, {33, 33}, {40, 32}, {40, 36}}) {
            PlanarCall call({64, 4, 64, pitchUV}, 9);
            call.Record(0).nPitchV = pitchV; // of the flat part of Cr alone
            call.Draw(TrRoll, MakeParam(1, PositionThatEasesTo(edge / 64.0)));
            for (const int plane : {1, 2})
                for (const int line : {0, 1}) {
                    const int pitch = plane == 2 && edge == 11 ? pitchV : pitchUV;
                    const int last = line * pitch + 31;
                    const int source = last + 1 < 2 * pitch ? last + 1 : last;
                    EXPECT_EQ(call.Plane(0, plane)[last], call.Plane(1, plane)[source])
                        << "edge " << edge << " plane " << plane << " line " << line << " pitch "
                        << pitch;
                }
        }
}

TEST(Turns, PeelIsShadedAtItsFoldAndBesideItsLeg) {
    Planar peel({960, 540, 960, 960, true}, 235);
    const double position = PositionThatEasesTo(0.35);
    peel.Draw(roll_RT, position);
    const double travel = std::sqrt(2.0 * 540 * 540) + 0.5 * std::sqrt(2.0 * 420 * 420);
    const int distance = Convert(EaseProgress(1, position) * travel + 0.5);
    const int leg = Convert(std::sqrt(2.0 * distance * distance) + 0.5), start = 540 - leg;
    const int fold = 100, y = start + fold;
    ASSERT_TRUE(start > 0 && leg < 930);
    EXPECT_EQ(peel.Luma(fold, y), 77); // the fold line's own pixel is the second input's
    EXPECT_EQ(peel.Luma(fold + 41, y), 219 * 41984 / 84736 + 16);
    EXPECT_EQ(peel.Luma(fold + 83, y), 235);
    for (const int j : {0, 1, 13, 27})
        EXPECT_EQ(peel.Luma(leg + j, y), 235 * j / 28) << j;
    EXPECT_EQ(peel.Luma(leg + 28, y), 235);
    EXPECT_EQ(peel.Luma(leg, start + 28), 235); // where the shadow fades in
    EXPECT_EQ(peel.Luma(fold, y - 100), 235);
    // The packed path's fold line is the flap's, black but for the fourth byte, which stays.
    PackedCall packed(960, 540, 4);
    packed.Draw(roll_RT_RGB, MakeParam(1, position));
    const std::size_t pixel = (std::size_t(539 - y) * 960 + fold) * 4;
    const std::uint8_t folded[] = {16, 16, 16, packed.Pixels(1)[pixel + 3]};
    EXPECT_TRUE(std::ranges::equal(packed.Pixels(0).subspan(pixel, 4), folded));
}

} // namespace
