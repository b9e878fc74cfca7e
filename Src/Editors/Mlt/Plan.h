/// \file Plan.h
/// What a service draws into one frame, as its properties say when the engine asks for the frame.
#pragma once

#include "Motion.h"
#include "Plugin.h"

#include <framework/mlt.h>

namespace mlt {

/// Which of a transition's two pictures is drawn.
enum class Look { Auto, Yuv, Rgb };

/// All that is read of the service, at once: afterwards its owner may change it or close it.
struct Plan {
    const hostkit::Transition *transition;
    hostkit::Motion motion;
    Look look;
    bool swapped; ///< the second track's clip is the outgoing one
    hostkit::Moment moment;
    hostkit::Moment fields[2]; ///< of an interlaced frame, the earlier one first

    /// A word of the properties that has no meaning counts as not set and is told once in the log.
    /// To be called while the engine fetches frames: it holds the service's lock then, which
    /// editors take to set properties.
    Plan(mlt_transition service, mlt_frame frame);
};

} // namespace mlt
