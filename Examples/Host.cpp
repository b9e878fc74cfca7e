// The smallest host: loads the plug-in, takes its first transition and draws the frame half-way
// between a black and a white picture.
#include <algorithm>
#include <cstdio>
#include <dlfcn.h>
#include <tp_Erase.h>

constexpr int kWidth = 640, kHeight = 360, kLuma = kWidth * kHeight;

struct Picture {
    unsigned char samples[kLuma * 3 / 2];
    YUVImage image = {.pY = samples,
                      .pU = samples + kLuma,
                      .pV = samples + kLuma * 5 / 4,
                      .nWidth = kWidth,
                      .nHeight = kHeight,
                      .nPitchY = kWidth,
                      .nPitchUV = kWidth / 2,
                      .nPitchV = kWidth / 2};
    explicit Picture(unsigned char luma) {
        std::fill_n(std::fill_n(samples, kLuma, luma), kLuma / 2, 128);
    }
};

int main(int argc, char **argv) {
    void *plugin = dlopen(argc > 1 ? argv[1] : "libtp_Erase.so", RTLD_NOW);
    if (!plugin)
        return std::fprintf(stderr, "%s\n", dlerror()), 1;
    auto getTransInfo = reinterpret_cast<decltype(&GetTransInfo)>(dlsym(plugin, "GetTransInfo"));
    const TransInfo *transition = getTransInfo(0);

    static Picture out(0), black(16), white(235);
    TransParam param = {};
    param.dTotal = 2;   // in seconds, frames or whatever the host counts in
    param.dCurrent = 1; // half-way
    transition->pfnTransYUV(&out.image, &black.image, &white.image, &param);
    std::printf("%ls: %d at the left, %d at the right\n", transition->szName, out.samples[0],
                out.samples[kWidth - 1]);
}
