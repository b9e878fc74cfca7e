// Feeds any bytes to the program's YUV4MPEG2 reader, as a file and frame by frame. A Failure is the
// reader's answer to broken input; anything else that ends the run is a fault.

#include "Program.h"
#include "Y4m.h"

#include <sys/mman.h>
#include <unistd.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t count) {
    const int file = memfd_create("fuzz", 0);
    if (file < 0 || write(file, bytes, count) != static_cast<ssize_t>(count))
        return 0;
    try {
        const auto source = host::OpenY4m("/proc/self/fd/" + std::to_string(file));
        while (source && source->Read()) {
        }
    } catch (const host::Failure &) {
    }
    close(file);
    return 0;
}
