// Feeds any bytes to the reader of edit lists. A Failure is its answer to broken input; what it
// reads must be written and read again as the same. Anything else that ends the run is a fault.

#include "EditList.h"
#include "Failure.h"

#include <cstdlib>
#include <sys/mman.h>
#include <unistd.h>

namespace {

host::Edit Read(const std::string &text) {
    const int file = memfd_create("fuzz", 0);
    if (file < 0 || write(file, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        std::abort();
    struct Close {
        int file;
        ~Close() { close(file); }
    } const closer{file};
    std::vector<std::string> warnings;
    return host::ReadEdit(
        "/proc/self/fd/" + std::to_string(file),
        [](const std::string &name) { return host::KnownJoint{name}; }, warnings);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t count) {
    const std::string list = "/proc/self/fd/list";
    std::string text;
    try {
        text = FormatEdit(Read({reinterpret_cast<const char *>(bytes), count}), list, {25, 1});
    } catch (const host::Failure &) {
        return 0;
    }
    if (FormatEdit(Read(text), list, {25, 1}) != text)
        std::abort();
    return 0;
}
