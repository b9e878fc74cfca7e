/// \file Json.h
/// The few pieces of JSON that the program writes.
#pragma once

#include <string>
#include <string_view>

namespace host {

/// A JSON string. Everything the program writes is ASCII without control characters, but for paths,
/// which pass through as the bytes they are.
inline std::string Json(std::string_view text) {
    std::string result = "\"";
    for (const char c : text) {
        if (c == '"' || c == '\\')
            result += '\\';
        result += c;
    }
    return result + '"';
}

inline std::string Json(bool value) {
    return value ? "true" : "false";
}

/// A pointer would otherwise become a bool.
inline std::string Json(const char *text) {
    return Json(std::string_view(text));
}

} // namespace host
