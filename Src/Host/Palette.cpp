#include "Palette.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace host {

namespace {

constexpr int kChannels = 3;
constexpr int kBits = 5; ///< of each channel that tell colours apart
constexpr int kBins = 1 << (kBits * kChannels);
constexpr int kColours = 256;

using Colour = std::array<int, kChannels>; ///< blue, green, red

/// The pixels of nearly one colour.
struct Bin {
    std::array<std::int64_t, kChannels> sum = {};
    std::int64_t count = 0;
    int Mean(int channel) const { return int((sum[channel] + count / 2) / count); }
};

/// A run of bins that share one colour of the palette.
struct Box {
    int begin, end;
    int channel;   ///< in which it spreads most
    double spread; ///< squared distances from the mean of that channel
};

int BinOf(const Colour &colour) {
    constexpr int kShift = 8 - kBits;
    return (colour[0] >> kShift) << (2 * kBits) | (colour[1] >> kShift) << kBits |
           colour[2] >> kShift;
}

Box Measure(const std::vector<Bin> &bins, int begin, int end) {
    Box box = {begin, end, 0, -1};
    for (int channel = 0; channel < kChannels; ++channel) {
        double count = 0, sum = 0, squares = 0;
        for (int i = begin; i < end; ++i) {
            const double weight = double(bins[i].count), value = bins[i].Mean(channel);
            count += weight;
            sum += weight * value;
            squares += weight * value * value;
        }
        const double spread = end - begin > 1 ? squares - sum * sum / count : 0;
        if (spread > box.spread) {
            box.channel = channel;
            box.spread = spread;
        }
    }
    return box;
}

/// Halves the pixels of a box along its widest channel, each half with a bin at least.
int Split(std::vector<Bin> &bins, const Box &box) {
    std::sort(bins.begin() + box.begin, bins.begin() + box.end, [&](const Bin &a, const Bin &b) {
        return a.Mean(box.channel) < b.Mean(box.channel);
    });
    std::int64_t all = 0, below = 0;
    for (int i = box.begin; i < box.end; ++i)
        all += bins[i].count;
    int middle = box.begin;
    do
        below += bins[middle++].count;
    while (middle < box.end - 1 && below * 2 < all);
    return middle;
}

std::vector<Colour> Choose(std::vector<Bin> bins) {
    std::erase_if(bins, [](const Bin &bin) { return bin.count == 0; });
    std::vector<Box> boxes = {Measure(bins, 0, int(bins.size()))};
    while (boxes.size() < kColours) {
        const auto widest =
            std::max_element(boxes.begin(), boxes.end(),
                             [](const Box &a, const Box &b) { return a.spread < b.spread; });
        if (widest->spread <= 0)
            break;
        const Box box = *widest;
        const int middle = Split(bins, box);
        *widest = Measure(bins, box.begin, middle);
        boxes.push_back(Measure(bins, middle, box.end));
    }
    std::vector<Colour> colours;
    for (const Box &box : boxes) {
        const Bin all = std::accumulate(bins.begin() + box.begin, bins.begin() + box.end, Bin(),
                                        [](Bin total, const Bin &bin) {
                                            for (int c = 0; c < kChannels; ++c)
                                                total.sum[c] += bin.sum[c];
                                            total.count += bin.count;
                                            return total;
                                        });
        colours.push_back({all.Mean(0), all.Mean(1), all.Mean(2)});
    }
    return colours;
}

std::uint8_t Nearest(const std::vector<Colour> &colours, const Colour &wanted) {
    const auto distance = [&](const Colour &colour) {
        int sum = 0;
        for (int c = 0; c < kChannels; ++c)
            sum += (colour[c] - wanted[c]) * (colour[c] - wanted[c]);
        return sum;
    };
    return std::uint8_t(std::min_element(colours.begin(), colours.end(),
                                         [&](const Colour &a, const Colour &b) {
                                             return distance(a) < distance(b);
                                         }) -
                        colours.begin());
}

/// A fixed pattern of small differences that mixes neighbouring colours of the palette. Unlike
/// spread errors it does not crawl from frame to frame.
int Dither(int x, int y) {
    constexpr int kPattern[4][4] = {{0, 8, 2, 10}, {12, 4, 14, 6}, {3, 11, 1, 9}, {15, 7, 13, 5}};
    return kPattern[y % 4][x % 4] / 2 - 4;
}

Colour PixelAt(const AVFrame &picture, int x, int y) {
    const std::uint8_t *pixel = picture.data[0] + std::ptrdiff_t(y) * picture.linesize[0] + 4 * x;
    return {pixel[0], pixel[1], pixel[2]};
}

} // namespace

Frame ToPalette(const AVFrame &picture) {
    std::vector<Bin> bins(kBins);
    for (int y = 0; y < picture.height; ++y)
        for (int x = 0; x < picture.width; ++x) {
            const Colour colour = PixelAt(picture, x, y);
            Bin &bin = bins[BinOf(colour)];
            for (int c = 0; c < kChannels; ++c)
                bin.sum[c] += colour[c];
            ++bin.count;
        }
    const std::vector<Colour> colours = Choose(std::move(bins));

    Frame frame = NewPicture(AV_PIX_FMT_PAL8, picture.width, picture.height);
    auto *palette = reinterpret_cast<std::uint32_t *>(frame->data[1]);
    for (int i = 0; i < kColours; ++i) {
        const Colour colour = i < int(colours.size()) ? colours[i] : Colour{};
        palette[i] = 0xff000000u | unsigned(colour[2] << 16 | colour[1] << 8 | colour[0]);
    }
    std::vector<int> known(kBins, -1); // entries of the palette already looked for
    for (int y = 0; y < picture.height; ++y)
        for (int x = 0; x < picture.width; ++x) {
            Colour colour = PixelAt(picture, x, y);
            for (int &value : colour)
                value = std::clamp(value + Dither(x, y), 0, 255);
            int &entry = known[BinOf(colour)];
            if (entry < 0)
                entry = Nearest(colours, colour);
            frame->data[0][std::ptrdiff_t(y) * frame->linesize[0] + x] = std::uint8_t(entry);
        }
    return frame;
}

} // namespace host
