/// \file Messages.h
/// What the user should know beside errors.
#pragma once

#include <cstdint>
#include <string>

namespace host {

/// Says a line on standard error unless the user wants quiet. From any thread; a line of progress
/// gives way to it.
void Tell(const std::string &line);
/// From now on Tell says nothing.
void BeQuiet();
bool IsQuiet();

/// "1 frame", "2 frames".
inline std::string Counted(std::int64_t count, const std::string &thing) {
    return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

} // namespace host
