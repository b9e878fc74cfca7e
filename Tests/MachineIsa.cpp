#include "MachineIsa.h"

#include <gtest/gtest.h>

#include <cstdlib>

std::string WantedIsa() {
    const char *wish = std::getenv("TP_ERASE_ISA");
    return wish ? wish : "";
}

bool MachineHas(const std::string &isa) {
#ifdef __x86_64__
    if (isa == "avx512")
        return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
               __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl");
    if (isa == "avx2")
        return __builtin_cpu_supports("avx2");
#endif
    return isa == "baseline" || isa.empty();
}

namespace {

/// On a machine that lacks the instruction set, the library would draw with another one, and tests
/// named after this one would pass without it.
class Skipping : public testing::EmptyTestEventListener {
    void OnTestStart(const testing::TestInfo &) override {
        if (!MachineHas(WantedIsa()))
            GTEST_SKIP() << "this machine has no " << WantedIsa();
    }
};

[[maybe_unused]] const bool added = [] {
    testing::UnitTest::GetInstance()->listeners().Append(new Skipping);
    return true;
}();

} // namespace
