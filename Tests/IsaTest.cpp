// Which kernels are chosen. Run once as it is and once for every instruction set by name.

#include "Isa.h"
#include "MachineIsa.h"

#include <gtest/gtest.h>

namespace {

struct Probe {
    const char *isa;
};

} // namespace

template<>
const Probe tp::KernelsFor<Probe>::baseline = {"baseline"};
template<>
const Probe tp::KernelsFor<Probe>::avx2 = {"avx2"};
template<>
const Probe tp::KernelsFor<Probe>::avx512 = {"avx512"};

namespace {

TEST(Isa, IsTheOneAskedForElseTheWidest) {
    std::string expected = WantedIsa();
    if (expected.empty())
        expected = MachineHas("avx512") ? "avx512" : MachineHas("avx2") ? "avx2" : "baseline";
    EXPECT_EQ(tp::KernelsFor<Probe>::Chosen().isa, expected);
    EXPECT_EQ(tp::ChosenIsa(), expected == "avx512" ? tp::Isa::Avx512
                               : expected == "avx2" ? tp::Isa::Avx2
                                                    : tp::Isa::Baseline);
}

} // namespace
