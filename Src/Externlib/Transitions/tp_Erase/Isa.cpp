#include "Isa.h"

#include <cstdlib>
#include <cstring>

namespace tp {

namespace {

Isa WidestIsa() {
#ifdef TP_WIDE_ISAS
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
        __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl"))
        return Isa::Avx512;
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma"))
        return Isa::Avx2;
#endif
    return Isa::Baseline;
}

Isa LowerByEnvironment(Isa widest) {
    const char *wish = std::getenv("TP_ERASE_ISA");
    if (!wish)
        return widest;
    const Isa wanted = !std::strcmp(wish, "baseline") ? Isa::Baseline
                       : !std::strcmp(wish, "avx2")   ? Isa::Avx2
                                                      : widest;
    return wanted < widest ? wanted : widest;
}

} // namespace

Isa ChosenIsa() {
    static const Isa chosen = LowerByEnvironment(WidestIsa());
    return chosen;
}

} // namespace tp
