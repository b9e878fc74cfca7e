/// \file Element.h
/// The element tp_transition: draws between its two inputs with one of the plug-in's transitions.
#pragma once

#include "Plugin.h"

#include <gst/gst.h>

namespace gstreamer {

/// Registers the element. The transitions outlive the process's use of GStreamer.
bool RegisterElement(GstPlugin *module, const std::vector<hostkit::Transition> &transitions);

} // namespace gstreamer
