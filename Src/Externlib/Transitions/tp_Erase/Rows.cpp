#include "Rows.h"

#include "Pixels.h"

namespace tp::TP_ISA {

static void BlendYuvRow(std::uint8_t *__restrict out, const std::uint8_t *__restrict a,
                        const std::uint8_t *__restrict b, const std::uint8_t *__restrict weights,
                        std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i)
        out[i] = BlendYuv(a[i], b[i], weights[i]);
}

static void BlendRgbRow(std::uint8_t *__restrict out, const std::uint8_t *__restrict a,
                        const std::uint8_t *__restrict b, const std::uint8_t *__restrict weights,
                        std::ptrdiff_t count) {
    for (std::ptrdiff_t i = 0; i < count; ++i)
        out[i] = BlendRgb(a[i], b[i], weights[i]);
}

const RowKernels kRows = {BlendYuvRow, BlendRgbRow};

} // namespace tp::TP_ISA
