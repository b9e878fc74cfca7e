// Which kernels are chosen. Run once as it is and once for every instruction set by name.

#include "Isa.h"
#include "Support.h"

#include <gtest/gtest.h>

struct Probe {
    const char *isa;
};

template<>
const Probe tp::KernelsFor<Probe>::baseline = {"baseline"};
template<>
const Probe tp::KernelsFor<Probe>::avx2 = {"avx2"};
template<>
const Probe tp::KernelsFor<Probe>::avx512 = {"avx512"};

TEST(Isa, IsTheOneAskedForElseTheWidest) {
    if (TestedIsa().empty())
        GTEST_SKIP() << "this machine has no such kernels";
    EXPECT_EQ(tp::KernelsFor<Probe>::Chosen().isa, TestedIsa());
}
