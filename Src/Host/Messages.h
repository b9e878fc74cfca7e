/// \file Messages.h
/// What the user should know beside errors.
#pragma once

#include <string>

namespace host {

/// Says a line on standard error unless the user wants quiet. From any thread; a line of progress
/// gives way to it.
void Tell(const std::string &line);
/// From now on Tell says nothing.
void BeQuiet();
bool IsQuiet();

} // namespace host
