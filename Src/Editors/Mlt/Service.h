/// \file Service.h
/// One transition of the engine that draws with the plug-in.
#pragma once

#include "Plugin.h"

#include <framework/mlt.h>

namespace mlt {

/// A new service that draws this transition, which outlives it; null when memory is short.
mlt_transition NewService(const hostkit::Transition &transition);

} // namespace mlt
