/// \file Isa.h
/// The instruction sets that the row kernels are built for, and the choice among them.
///
/// A kernel file is compiled once per instruction set, its contents in a namespace of that name,
/// and offers a table of function pointers. Every variant gives the same bytes. Such a file calls
/// nothing that could be emitted out of line and shared with the others: only its own static
/// functions, Pixels.h and the C library.
#pragma once

namespace tp {

/// Avx2 includes fused multiply-adds.
enum class Isa { Baseline, Avx2, Avx512 };

/// The widest instruction set that this build and the machine have. The environment variable
/// TP_ERASE_ISA (baseline, avx2 or avx512), read once, lowers it.
Isa ChosenIsa();

/// A family's kernel tables, one for each instruction set of the build. The family's header
/// declares them, and its kernel file defines the one that it is compiled for.
template<class Kernels>
struct KernelsFor {
    static const Kernels baseline;
    static const Kernels avx2;
    static const Kernels avx512;

    static const Kernels &Chosen() {
#ifdef TP_WIDE_ISAS
        const Isa isa = ChosenIsa();
        return isa == Isa::Avx512 ? avx512 : isa == Isa::Avx2 ? avx2 : baseline;
#else
        return baseline;
#endif
    }
};

} // namespace tp
