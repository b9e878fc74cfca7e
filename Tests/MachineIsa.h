/// \file MachineIsa.h
/// The instruction set that a run of the tests is about.
#pragma once

#include <string>

/// What TP_ERASE_ISA asks for: baseline, avx2 or avx512; empty when it asks for nothing.
std::string WantedIsa();

/// Whether this machine can run the kernels of that name.
bool MachineHas(const std::string &isa);
