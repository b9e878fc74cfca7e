// The module's entry point: the engine loads the module and asks it what it offers.

#include "Service.h"
#include "Services.h"

#include <exception>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

std::unique_ptr<hostkit::Plugin> loaded;

const hostkit::Transition *FindService(const std::string &name) {
    for (const hostkit::Transition &transition : loaded->Transitions())
        if (mlt::ServiceName(transition) == name)
            return &transition;
    return nullptr;
}

/// The engine is written in C: what goes wrong is told and answered with a null.
template<class Call>
auto Guarded(const char *name, Call call) -> decltype(call()) {
    try {
        return call();
    } catch (const std::exception &error) {
        mlt_log_error(nullptr, "%s: %s\n", name, error.what());
        return nullptr;
    }
}

void *Create(mlt_profile, mlt_service_type, const char *name, const void *) {
    return Guarded(name, [&]() -> void * {
        const hostkit::Transition *transition = FindService(name);
        return transition ? mlt::NewService(*transition) : nullptr;
    });
}

/// Appends a list or record to a list or record, which closes it in the end.
mlt_properties Append(mlt_properties parent, const std::string &key) {
    const mlt_properties child = mlt_properties_new();
    mlt_properties_set_data(parent, key.c_str(), child, 0,
                            reinterpret_cast<mlt_destructor>(mlt_properties_close), nullptr);
    return child;
}

mlt_properties AppendItem(mlt_properties list) {
    return Append(list, std::to_string(mlt_properties_count(list)));
}

void Describe(mlt_properties list, const mlt::Parameter &parameter) {
    constexpr const char *kTypes[] = {"boolean", "integer", "string"};
    constexpr const char *kWidgets[] = {"checkbox", "spinner", "dropdown"};
    const mlt_properties item = AppendItem(list);
    mlt_properties_set(item, "identifier", parameter.name);
    mlt_properties_set(item, "title", parameter.title);
    mlt_properties_set(item, "type", kTypes[int(parameter.kind)]);
    mlt_properties_set(item, "description", parameter.description);
    mlt_properties_set(item, "mutable", "yes");
    mlt_properties_set(item, "widget", kWidgets[int(parameter.kind)]);
    mlt_properties_set(item, "default", parameter.preset);
    if (parameter.kind == mlt::Kind::Integer)
        mlt_properties_set(item, "minimum", "0");
    if (parameter.kind == mlt::Kind::Choice) {
        const mlt_properties values = Append(item, "values");
        for (const std::string &value : parameter.values)
            mlt_properties_set(values, std::to_string(mlt_properties_count(values)).c_str(),
                               value.c_str());
    }
}

mlt_properties MetadataOf(const hostkit::Transition &transition, const char *name) {
    const mlt_properties metadata = mlt_properties_new();
    mlt_properties_set(metadata, "schema_version", "7.0");
    mlt_properties_set(metadata, "type", "transition");
    mlt_properties_set(metadata, "identifier", name);
    mlt_properties_set(metadata, "title", mlt::Title(transition).c_str());
    mlt_properties_set(metadata, "version", TP_VERSION);
    mlt_properties_set(metadata, "creator", "The tp_Erase maintainers");
    mlt_properties_set(metadata, "copyright", "The tp_Erase maintainers");
    mlt_properties_set(metadata, "language", "en");
    mlt_properties_set(Append(metadata, "tags"), "0", "Video");
    mlt_properties_set(metadata, "description", mlt::Description(transition).c_str());
    if (const std::string notes = mlt::Notes(transition); !notes.empty())
        mlt_properties_set(metadata, "notes", notes.c_str());
    const mlt_properties parameters = Append(metadata, "parameters");
    for (const mlt::Parameter &parameter : mlt::Parameters(transition))
        Describe(parameters, parameter);
    return metadata;
}

mlt_properties Metadata(mlt_service_type, const char *name, void *) {
    return Guarded(name, [&]() -> mlt_properties {
        const hostkit::Transition *transition = FindService(name);
        return transition ? MetadataOf(*transition, name) : nullptr;
    });
}

} // namespace

extern "C" __attribute__((visibility("default"))) void mlt_register(mlt_repository repository) {
    try {
        loaded = std::make_unique<hostkit::Plugin>(
            hostkit::PluginOf(reinterpret_cast<const void *>(&FindService), TP_INSTALLED_PLUGIN));
        for (const hostkit::Transition &transition : loaded->Transitions()) {
            if (!transition.yuv && !transition.rgb)
                continue;
            const std::string name = mlt::ServiceName(transition);
            mlt_repository_register(repository, mlt_service_transition_type, name.c_str(), Create);
            mlt_repository_register_metadata(repository, mlt_service_transition_type, name.c_str(),
                                             Metadata, nullptr);
        }
    } catch (const std::exception &error) {
        // The engine goes on without the services.
        mlt_log_error(nullptr, "tp_erase: %s; there are no tp_erase transitions\n", error.what());
    }
}
