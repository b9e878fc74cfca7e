// A plug-in whose transitions are known to be slow, random or wrong, for the tests of `bench`. As
// in the real one, the kernels are picked from the environment at the first draw.

#include "tp_Erase.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <thread>

namespace {

bool HasBaselineKernels() {
    static const char *const isa = std::getenv("TP_ERASE_ISA");
    static const bool has = isa && !std::strcmp(isa, "baseline");
    return has;
}

void Copy(YUVImage *out, const YUVImage *in1, const YUVImage *, const TransParam *) {
    HasBaselineKernels();
    const std::size_t chroma = std::size_t(out->nPitchUV) * ((out->nHeight + 1) / 2);
    std::memcpy(out->pY, in1->pY, std::size_t(out->nPitchY) * out->nHeight);
    std::memcpy(out->pU, in1->pU, chroma);
    std::memcpy(out->pV, in1->pV, chroma);
}

void Random(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    Copy(out, in1, in2, param);
    for (int i = 0; i < 2 * out->nWidth * out->nHeight; ++i)
        out->pY[0] = static_cast<std::uint8_t>(std::rand());
}

void SlowBaseline(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                  const TransParam *param) {
    Copy(out, in1, in2, param);
    if (HasBaselineKernels())
        std::this_thread::sleep_for(std::chrono::milliseconds(60));
}

/// One level off in the last byte of the frame, towards the end, with wide kernels.
void WrongLate(YUVImage *out, const YUVImage *in1, const YUVImage *in2, const TransParam *param) {
    Copy(out, in1, in2, param);
    const int last = out->nPitchUV * ((out->nHeight + 1) / 2) - 1;
    if (!HasBaselineKernels() && param->dCurrent > 0.8 * param->dTotal)
        out->pV[last] ^= 1;
}

void Crash(YUVImage *, const YUVImage *, const YUVImage *, const TransParam *) {
    std::abort();
}

TransInfo rows[] = {{2, L"Copy", Copy, nullptr, L"", {}},
                    {2, L"Random", Random, nullptr, L"", {}},
                    {2, L"SlowBaseline", SlowBaseline, nullptr, L"", {}},
                    {2, L"WrongLate", WrongLate, nullptr, L"", {}},
                    {2, L"Crash", Crash, nullptr, L"", {}}};

} // namespace

const char *GetTransType() {
    return "bench type";
}
std::int32_t GetTransCount() {
    return std::size(rows);
}
const TransInfo *GetTransInfo(std::int32_t index) {
    return index < GetTransCount() ? &rows[index] : nullptr;
}
