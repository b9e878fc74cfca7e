/// \file Draw.h
/// One frame of a transition drawn between two others.
#pragma once

#include "Frame.h"
#include "Motion.h"
#include "Plugin.h"

namespace hostkit {

/// The length that the plug-in is told of every transition. Positions count from 0 to it.
///
/// Why 1, and not the number of frames: the plug-in's eased curves end exactly at their length for
/// some lengths only. 1 is one of them; at 15, 30, 47 the last frame of TrTriangle2 keeps a line of
/// the outgoing picture. And a picture then depends on how far the transition has come alone, not
/// on how many frames it is spread over.
constexpr double kLength = 1;

/// Draws one frame by the path of its layout, which the transition must have. The three frames must
/// be of one layout and size; the output shares no memory with the inputs. Whatever the plug-in
/// cannot be handed as it lies is copied: planes with padding, packed rows from the top down,
/// planes of half resolution for a function that works on full ones.
///
/// The same arguments give the same picture. Output bytes that a function leaves alone show the
/// incoming picture. Packed pixels that the blends, which treat alpha as a colour and lose a level
/// or two, left a little transparent are opaque again: all of them when both inputs are opaque
/// throughout, otherwise those at which both inputs are opaque and the output nearly so.
///
/// May be called from several threads: they take turns at paths that ease or draw random numbers,
/// for the plug-in keeps the last position and takes the process's rand(). What others get of
/// rand() is undisturbed but while such a frame is drawn, and so is the frame by them.
void Draw(const Transition &transition, const Motion &motion, const Moment &moment, Frame &out,
          const Frame &in1, const Frame &in2);

/// The same but for the opacity, for hosts that see to it while they copy.
void DrawBare(const Transition &transition, const Motion &motion, const Moment &moment, Frame &out,
              const Frame &in1, const Frame &in2);

/// From which alpha on a pixel between opaque ones is opaque.
constexpr std::uint8_t kNearlyOpaque = 253;

/// Whether the transition has this path.
bool HasPath(const Transition &transition, Path path);

/// The path's function and nothing else: no seed, no opacity. The frames must lie as the plug-in
/// takes them, with the transition's chroma.
void CallPlugin(const Transition &transition, Frame &out, const Frame &in1, const Frame &in2,
                const TransParam &param);

} // namespace hostkit
