// The wipes, slides and blends where the reference frames do not look: what they store, what they
// call, single pixels of the odd rules, and their row kernels at every length.

#include "BlendRows.h"
#include "CopyRows.h"
#include "Kernels.h"
#include "Progress.h"
#include "Support.h"

#include <Ozmu_ImageProc.h>
#include <VeskLogger.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cwchar>
#include <dlfcn.h>
#include <functional>
#include <string>
#include <vector>

namespace {

/// The imaging library's calls so far for these images, as letters with the image's number.
struct Calls {
    std::vector<void *> images; ///< out, in1, in2
    std::string made;
    int pitch = 0; ///< what DIGetPitch answers, or 0 for the truth
};
Calls calls;

template<class Result>
Result Ask(char letter, const char *function, void *image) {
    const auto number = std::ranges::find(calls.images, image) - calls.images.begin();
    if (!calls.images.empty())
        calls.made += {letter, char('0' + number), ' '};
    return reinterpret_cast<Result (*)(void *)>(dlsym(RTLD_NEXT, function))(image);
}

} // namespace

// The library's accessors, with the calls taken down.
std::uint8_t *DIGetBits(void *image) {
    return Ask<std::uint8_t *>('B', "DIGetBits", image);
}
std::int32_t DIGetWidth(void *image) {
    return Ask<std::int32_t>('W', "DIGetWidth", image);
}
std::int32_t DIGetHeight(void *image) {
    return Ask<std::int32_t>('H', "DIGetHeight", image);
}
std::int32_t DIGetPitch(void *image) {
    const auto pitch = Ask<std::int32_t>('P', "DIGetPitch", image);
    return calls.pitch ? calls.pitch : pitch;
}

namespace {

using namespace tp;

TEST(Wipes, WindDrawsOnceForAPairOfRows) {
    std::srand(7);
    for (int i = 0; i < 5 + 5; ++i)
        std::rand();
    const int next = std::rand();
    std::srand(7);
    PlanarCall planar({16, 9, 16, 8}, 1);
    planar.Draw(TrWind, MakeParam(1, 0.5));
    PackedCall packed(16, 10, 1);
    packed.Draw(TrWindRGB, MakeParam(1, 0.5));
    EXPECT_EQ(std::rand(), next);
}

/// Rows of chroma end with their pitch, also where that is below half of the luma's: at the end of
/// the transition some splits lie beyond it.
TEST(Wipes, WindStaysInNarrowChromaRows) {
    std::srand(1);
    PlanarCall planar({93, 40, 118, 51}, 1);
    for (int plane = 1; plane < 3; ++plane)
        for (int image = 1; image < 3; ++image)
            std::ranges::fill(planar.Plane(image, plane), std::uint8_t(image));
    planar.Draw(TrWind, MakeParam(1, 1));
    for (int plane = 1; plane < 3; ++plane) {
        std::ptrdiff_t longest = 0;
        for (std::size_t row = 0; row < 20; ++row) {
            const auto bytes = planar.Plane(0, plane).subspan(row * 51, 51);
            const auto split = std::ranges::count(bytes, 2);
            EXPECT_TRUE(std::ranges::is_sorted(bytes, std::greater()));
            EXPECT_EQ(split + std::ranges::count(bytes, 1), 51);
            EXPECT_GE(split, 46); // column 92 or beyond
            longest = std::max(longest, split);
        }
        EXPECT_EQ(longest, 51);
    }
}

/// Which input each row shows: 1, 2, or 0 for none.
TEST(Blind, LeavesRowsAsTheyWere) {
    struct Case {
        const char *what;
        int height;
        double eased;
        std::vector<int> luma, chroma, packed;
    };
    const Case cases[] = {
        {"slats of 3 rows end at row 1",
         10,
         0.65,
         {0, 2, 2, 1, 2, 2, 1, 2, 2, 1},
         {0, 2, 2, 1, 2},
         {1, 2, 2, 1, 2, 2, 1, 2, 2, 0}},
        {"slats too thin", 4, 0.8, {0, 0, 0, 0}, {0, 0}, {2, 2, 2, 2}},
        {"one row is no slat", 1, 0, {0}, {0}, {0}},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.what);
        PlanarCall planar({4, c.height, 4, 4}, 1);
        PackedCall packed(1, c.height, 1);
        for (int image = 0; image < 3; ++image) {
            for (int plane = 0; plane < 3; ++plane)
                std::ranges::fill(planar.Plane(image, plane), std::uint8_t(image));
            std::ranges::fill(packed.Pixels(image), std::uint8_t(image));
        }
        const TransParam param = MakeParam(1, PositionThatEasesTo(c.eased));
        planar.Draw(TrBlind, param);
        packed.Draw(TrBlindRGB, param);
        const auto expectRows = [](std::span<std::uint8_t> bytes, const std::vector<int> &inputs) {
            ASSERT_EQ(bytes.size(), inputs.size() * 4);
            for (std::size_t i = 0; i < bytes.size(); ++i)
                EXPECT_EQ(bytes[i], inputs[i / 4]) << "row " << i / 4;
        };
        expectRows(planar.Plane(0, 0), c.luma);
        expectRows(planar.Plane(0, 1), c.chroma);
        expectRows(planar.Plane(0, 2), c.chroma);
        expectRows(packed.Pixels(0), c.packed);
    }
}

/// Every byte at a thousand gains, against the products themselves.
TEST(Flash, BrightensByTheTruncatedProduct) {
    PlanarCall planar({256, 1, 256, 128}, 1);
    PackedCall packed(64, 1, 1);
    for (const int image : {1, 2})
        for (int v = 0; v < 256; ++v)
            planar.Plane(image, 0)[v] = packed.Pixels(image)[v] = std::uint8_t(v);
    for (int position = 0; position <= 1000; ++position) {
        const double p = SmoothStep(1000, position) / 1000;
        const double gain = p < 0.5 ? p * 4.0 + 1.0 : (1.0 - p) * 4.0 + 1.0;
        const int weight = int((0.7 - p) / 0.4 * 255.0);
        planar.Draw(TrFlash, MakeParam(1000, position));
        packed.Draw(TrFlashRGB, MakeParam(1000, position));
        for (int v = 0; v < 256; ++v) {
            const bool blends = p >= 0.3 && p < 0.7;
            const int faded = v * weight / 255 + v * (255 - weight) / 255;
            const int darker = (v * weight >> 8) + (v * (255 - weight) >> 8);
            const int sumYuv = ((blends ? faded : v) + 10) & 255;
            const int sumRgb = (blends && v % 4 != 3 ? darker : v) + 10;
            ASSERT_EQ(planar.Plane(0, 0)[v], int(std::min(255.0, sumYuv * gain))) << p << " " << v;
            ASSERT_EQ(packed.Pixels(0)[v], int(std::min(255.0, sumRgb * gain))) << p << " " << v;
        }
    }
}

struct CapturingLogger : VeskLogger {
    bool IsEnabled(int level) override {
        asked.push_back(level);
        return isEnabled;
    }
    void Log(int level, const wchar_t *format, ...) override {
        wchar_t text[200];
        va_list values;
        va_start(values, format);
        std::vswprintf(text, std::size(text), format, values);
        va_end(values);
        messages.push_back(std::to_wstring(level) + L": " + text);
    }
    bool isEnabled = true;
    std::vector<int> asked;
    std::vector<std::wstring> messages;
};

/// Calls a function with images over these bytes and takes down what it asks of them.
struct Image {
    std::vector<std::uint8_t> &bytes;
    int width, height;
};
void Record(TransFuncRGB function, Image out, Image in1, Image in2) {
    calls.made.clear();
    for (const Image &image : {out, in1, in2})
        calls.images.push_back(DIWrap(image.bytes.data(), image.width, image.height));
    const TransParam param = MakeParam(1, 0.5);
    function(calls.images[0], calls.images[1], calls.images[2], &param);
    std::ranges::for_each(calls.images, DIDestroy);
    calls.images.clear();
    calls.pitch = 0;
}

TEST(Push, LogsUnequalPixelCountsAndDrawsNothing) {
    CapturingLogger on, off;
    off.isEnabled = false;
    std::vector<std::uint8_t> out(6 * 4 * 4, 7), in1(out.size(), 1), in2(out.size(), 2);
    const auto untouched = out;
    VeskLogger *const before = VeskGetDefaultLogger();
    for (VeskLogger *logger : std::initializer_list<VeskLogger *>{nullptr, &off, &on}) {
        VeskSetDefaultLogger(logger);
        Record(TrPushRGB, {out, 6, 4}, {in1, 6, 4}, {in2, 5, 3});
        EXPECT_EQ(calls.made, "W0 H0 W1 H1 W2 H2 ");
        EXPECT_EQ(out, untouched);
    }
    Record(TrPushRGB, {out, 6, 4}, {in1, 6, 4}, {in2, 4, 6}); // another shape of as many pixels
    VeskSetDefaultLogger(before);
    EXPECT_EQ(calls.made, "W0 H0 W1 H1 W2 H2 B0 B1 B2 ");
    EXPECT_TRUE(out[0] == 2 && out[11] == 2 && out[12] == 1 && out[23] == 1);
    EXPECT_EQ(off.asked, std::vector{64});
    EXPECT_EQ(off.messages, std::vector<std::wstring>{});
    EXPECT_EQ(on.asked, std::vector{64});
    const std::wstring message = L"64: TrPushRGB input size not equal,input1:[6, 4],input2:[5,3]  "
                                 L"[tp_Erase.cpp, 4102]";
    EXPECT_EQ(on.messages, std::vector{message});
}

TEST(LinearWipe, AsksForThePitchAndShowsTheFirstInputInThePadding) {
    constexpr int width = 600, height = 40, pitch = width * 4 + 24;
    std::vector<std::uint8_t> out(pitch * height, 7), in1(out.size(), 100), in2(out.size(), 200);
    calls.pitch = pitch;
    Record(TrLinearWipeRGB, {out, width, height}, {in1, width, height}, {in2, width, height});
    EXPECT_EQ(calls.made, "W0 H0 P0 B0 B1 B2 ");
    const auto at = [&](int row, int column) { return out[std::size_t(row) * pitch + column * 4]; };
    const auto blend = [](int weight) { return (200 * weight + 100 * (255 - weight)) >> 8; };
    // The front has come 1205 * 0.5 = 602 places: 602 - 39 in the first row in memory, not all of
    // the band yet, and 602 in the last.
    EXPECT_EQ(at(0, 0), blend(181 * 563 / 400));
    EXPECT_EQ(at(0, 561), blend(0));
    EXPECT_EQ(at(0, 562), 100);
    EXPECT_EQ(at(height - 1, 36), 200);
    EXPECT_EQ(at(height - 1, 37), blend(255));
    EXPECT_EQ(at(height - 4, 599), blend(0)); // ahead of the front, in a row with all of its band
    for (int row = 0; row < height; ++row)
        for (int column = width; column < pitch / 4; ++column)
            ASSERT_EQ(at(row, column), 100) << row;
}

TEST(BlendRows, KernelsEqualTheFormulasAtEveryLength) {
    for (const BlendKernels *kernels : RunnableKernels<BlendKernels>())
        for (std::size_t length = 0; length < 400; length += length < 140 ? 1 : 37) {
            GuardedBuffer a(length), b(length), w(length), yuv(length), rgb(length), sum(length),
                bright(length);
            FillRandom(a.Bytes(), length);
            FillRandom(b.Bytes(), length + 1000);
            FillRandom(w.Bytes(), length + 2000);
            const auto count = static_cast<std::ptrdiff_t>(length);
            kernels->blendYuv(yuv.Data(), a.Data(), b.Data(), w.Data(), count);
            kernels->blendRgb(rgb.Data(), a.Data(), b.Data(), w.Data(), count);
            kernels->blendSum(sum.Data(), a.Data(), b.Data(), w.Data(), count);
            kernels->brighten(bright.Data(), a.Data(), count, {245, 2, 77, 199});
            for (std::size_t i = 0; i < length; ++i) {
                const int x = a.Data()[i], y = b.Data()[i], v = w.Data()[i];
                ASSERT_EQ(yuv.Data()[i], x * v / 255 + y * (255 - v) / 255);
                ASSERT_EQ(rgb.Data()[i], (x * v >> 8) + (y * (255 - v) >> 8));
                ASSERT_EQ(sum.Data()[i], (x * v + y * (255 - v)) >> 8);
                const int product = ((2 * 65536 + 77 * 256 + 199) * std::min(x + 10, 255)) >> 16;
                ASSERT_EQ(bright.Data()[i], std::min(product, 255));
            }
        }
}

/// Every weight that Linear Wipe has, with every pair of bytes in steps: the quotients must be
/// those of real divisions, however a kernel comes by them.
TEST(BlendRows, FineBlendsDivide) {
    constexpr int weights = 401;
    GuardedBuffer floats(weights * sizeof(float)), a(weights), b(weights), out(weights);
    auto *weight = reinterpret_cast<float *>(floats.Data());
    for (int i = 0; i < weights; ++i)
        weight[i] = static_cast<float>(i * 255.0 / 400.0);
    for (const BlendKernels *kernels : RunnableKernels<BlendKernels>())
        for (int x = 0; x < 256; ++x)
            for (int y = x % 5; y < 256; y += 5) {
                std::ranges::fill(a.Bytes(), std::uint8_t(x));
                std::ranges::fill(b.Bytes(), std::uint8_t(y));
                kernels->blendFine(out.Data(), a.Data(), b.Data(), weight, weights);
                for (int i = 0; i < weights; ++i) {
                    const float share = float(x) * weight[i] / 255.0F;
                    const float rest = float(y) * (255.0F - weight[i]) / 255.0F;
                    ASSERT_EQ(out.Data()[i], int(share + rest)) << x << " " << y << " " << i;
                }
            }
}

TEST(CopyRows, KernelsCopyByTheirPatternsAndNoMore) {
    for (const CopyKernels *kernels : RunnableKernels<CopyKernels>())
        for (std::size_t length = 0; length < 300; length += length < 70 ? 4 : 20) {
            GuardedBuffer a(length), b(length), mask(length), selected(length), pixels(length);
            FillRandom(a.Bytes(), length);
            FillRandom(b.Bytes(), length + 1000);
            FillRandom(mask.Bytes(), length + 2000);
            for (std::uint8_t &byte : mask.Bytes())
                byte = byte & 1 ? 255 : 0;
            std::ranges::copy(b.Bytes(), pixels.Data());
            const auto count = static_cast<std::ptrdiff_t>(length);
            kernels->select(selected.Data(), a.Data(), b.Data(), mask.Data(), count);
            kernels->copyFourth(pixels.Data(), a.Data(), count / 4);
            for (std::size_t i = 0; i < length; ++i) {
                ASSERT_EQ(selected.Data()[i], (mask.Data()[i] ? a : b).Data()[i]) << length;
                ASSERT_EQ(pixels.Data()[i], (i % 4 == 3 ? a : b).Data()[i]) << length;
            }
        }
}

} // namespace
