/// \file Failure.h
/// How a user is told that something cannot be done.
#pragma once

#include <stdexcept>

namespace host {

/// Anything that the user is told in one line, after which the program ends with status 1.
struct Failure : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// A clip's packets are not what its index made them out to be.
struct CopyFailure : Failure {
    using Failure::Failure;
};

} // namespace host
