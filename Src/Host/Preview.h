/// \file Preview.h
/// The joints of a film alone, small, to look at before it is rendered.
#pragma once

#include "Render.h"

namespace host {

/// Renders what lies around each joint for this long on either side, at most 640 pixels wide unless
/// the options name a size: into the options' file, or without one for a player to show.
void Preview(RenderOptions options, const Time &around, const hostkit::Plugin &plugin);

} // namespace host
