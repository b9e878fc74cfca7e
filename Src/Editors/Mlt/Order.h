/// \file Order.h
/// Which of a transition's two tracks holds the clip that goes.
#pragma once

#include <framework/mlt.h>

namespace mlt {

/// Whether the picture goes from the second track to the first. Editors that keep one track's
/// neighbours on two tracks by turns, or lay a clip over others that ends before them, need both
/// directions but do not say which: the clip that shows before the overlap and not after it goes.
/// To be called while the engine fetches frames, when nobody changes the tracks.
bool GoesFromSecondTrack(mlt_transition service);

} // namespace mlt
