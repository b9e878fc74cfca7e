// The entry point: GStreamer loads the module and asks it what it offers.

#include "Element.h"

#include <exception>

namespace {

gboolean Initialise(GstPlugin *module) {
    try {
        const auto file =
            hostkit::PluginOf(reinterpret_cast<const void *>(&Initialise), TP_INSTALLED_PLUGIN);
        // GStreamer keeps what it found until one of these changes.
        gst_plugin_add_dependency_simple(module, "TP_ERASE_PLUGIN", file.parent_path().c_str(),
                                         file.filename().c_str(), GST_PLUGIN_DEPENDENCY_FLAG_NONE);
        // Elements point into it as long as the process lives.
        const auto *plugin = new hostkit::Plugin(file);
        return gstreamer::RegisterElement(module, plugin->Transitions());
    } catch (const std::exception &error) {
        // A module that fails is never looked at again; one without elements is, once there is a
        // plug-in.
        g_warning("tp_erase: %s; there is no tp_transition", error.what());
        return TRUE;
    }
}

} // namespace

#define PACKAGE "tp_Erase"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, tp_erase, "Video transitions", Initialise,
                  TP_VERSION, "Proprietary", "tp_Erase", "https://example.org/tp_Erase")
