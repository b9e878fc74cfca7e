#include "Support.h"

#include <cstring>
#include <new>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

const hostkit::Plugin &TestedPlugin() {
    static const hostkit::Plugin plugin(TP_PLUGIN_FILE);
    return plugin;
}

GuardedBuffer::GuardedBuffer(std::size_t bytes, bool atStart) : size(bytes) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t inside = (size + page - 1) / page * page;
    mappingSize = inside + 2 * page;
    mapping = mmap(nullptr, mappingSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapping == MAP_FAILED)
        throw std::bad_alloc();
    auto *first = static_cast<std::uint8_t *>(mapping) + page;
    if (inside && mprotect(first, inside, PROT_READ | PROT_WRITE) != 0)
        throw std::bad_alloc();
    data = atStart ? first : first + (inside - size);
}

GuardedBuffer::GuardedBuffer(GuardedBuffer &&other) noexcept
    : mapping(std::exchange(other.mapping, nullptr)), mappingSize(other.mappingSize),
      data(other.data), size(other.size) {}

GuardedBuffer::~GuardedBuffer() {
    if (mapping)
        munmap(mapping, mappingSize);
}

void FillRandom(std::span<std::uint8_t> bytes, std::uint64_t state) {
    for (std::uint8_t &byte : bytes) {
        state += 0x9e3779b97f4a7c15U;
        std::uint64_t z = state;
        z = (z ^ z >> 30) * 0xbf58476d1ce4e5b9U;
        z = (z ^ z >> 27) * 0x94d049bb133111ebU;
        byte = static_cast<std::uint8_t>((z ^ z >> 31) >> 56);
    }
}

std::string RandomBytes(std::size_t size, std::uint64_t state) {
    std::string bytes(size, '\0');
    FillRandom({reinterpret_cast<std::uint8_t *>(bytes.data()), size}, state);
    return bytes;
}

std::uint64_t Fnv1a(std::span<const std::uint8_t> bytes) {
    std::uint64_t hash = 0xcbf29ce484222325U;
    for (const std::uint8_t byte : bytes)
        hash = (hash ^ byte) * 0x100000001b3U;
    return hash;
}

TransParam MakeParam(double total, double current) {
    TransParam param{};
    param.dTotal = total;
    param.dCurrent = current;
    return param;
}

namespace {

void ExpectUnchanged(const TransParam &before, const TransParam &after) {
    if (RecordBytes(before) != RecordBytes(after))
        throw std::logic_error("the parameters changed");
}

std::array<GuardedBuffer, 3> MakePlanes(const Geometry &g, bool atStart) {
    const auto luma = std::size_t(g.pitch) * std::size_t(g.height);
    const auto chroma = g.fullChroma ? luma : std::size_t(g.pitchUV) * ((g.height + 1) / 2);
    return {GuardedBuffer(luma, atStart), GuardedBuffer(chroma, atStart),
            GuardedBuffer(chroma, atStart)};
}

} // namespace

PlanarCall::PlanarCall(const Geometry &g, std::uint64_t seed, bool atStart)
    : planes{MakePlanes(g, atStart), MakePlanes(g, atStart), MakePlanes(g, atStart)} {
    // All bytes of a record are compared, so those that no member covers must have a value too.
    std::memset(records.data(), 0, sizeof records);
    for (std::size_t image = 0; image < 3; ++image) {
        for (std::size_t plane = 0; plane < 3; ++plane)
            FillRandom(planes[image][plane].Bytes(), seed * 16 + image * 4 + plane);
        YUVImage &record = records[image];
        record.pY = planes[image][0].Data();
        record.pU = planes[image][1].Data();
        record.pV = planes[image][2].Data();
        record.nWidth = g.width;
        record.nHeight = g.height;
        record.nPitchY = g.pitch;
        record.nPitchUV = record.nPitchV = g.pitchUV;
    }
}

void PlanarCall::Draw(TransFuncYUV function, const TransParam &param) {
    const std::string before(RecordBytes(records));
    const TransParam given = param;
    function(records.data(), &records[1], &records[2], &param);
    if (before != RecordBytes(records))
        throw std::logic_error("a record changed");
    ExpectUnchanged(given, param);
}

std::span<std::uint8_t> PlanarCall::Plane(int image, int plane) const {
    return planes[std::size_t(image)][std::size_t(plane)].Bytes();
}

PackedCall::PackedCall(int width, int height, std::uint64_t seed, bool atStart)
    : buffers{GuardedBuffer(std::size_t(width) * height * 4, atStart),
              GuardedBuffer(std::size_t(width) * height * 4, atStart),
              GuardedBuffer(std::size_t(width) * height * 4, atStart)} {
    for (std::size_t image = 0; image < 3; ++image) {
        FillRandom(buffers[image].Bytes(), seed * 16 + image * 4);
        handles[image] = DIWrap(buffers[image].Data(), width, height);
    }
}

PackedCall::~PackedCall() {
    for (void *handle : handles)
        DIDestroy(handle);
}

void PackedCall::Draw(TransFuncRGB function, const TransParam &param) {
    const TransParam given = param;
    function(handles[0], handles[1], handles[2], &param);
    ExpectUnchanged(given, param);
}
