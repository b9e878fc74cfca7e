/// \file Isa.h
/// The instruction sets that the row kernels are built for, and the choice among them.
///
/// A kernel file is compiled once per instruction set, its contents in a namespace of that name,
/// and offers a table of function pointers. Every variant gives the same bytes. Such a file calls
/// nothing that could be emitted out of line and shared with the others: only its own static
/// functions, Pixels.h and the C library.
#pragma once

namespace tp {

enum class Isa { Baseline, Avx2, Avx512 };

/// The widest instruction set that this build and the machine have. The environment variable
/// TP_ERASE_ISA (baseline, avx2 or avx512), read once, lowers it.
Isa ChosenIsa();

#ifdef TP_WIDE_ISAS
/// The chosen one of a kernel table's variants.
template<class Kernels>
const Kernels &ChooseKernels(const Kernels &baseline, const Kernels &avx2, const Kernels &avx512) {
    const Isa isa = ChosenIsa();
    return isa == Isa::Avx512 ? avx512 : isa == Isa::Avx2 ? avx2 : baseline;
}
#endif

} // namespace tp
