/// \file Registry.h
/// What the registry's source file tells the others.
#pragma once

namespace tp {

/// The path that tp_Erase.cpp, the registry's source file, is compiled from.
extern const wchar_t kRegistrySource[];

} // namespace tp
