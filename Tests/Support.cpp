#include "Support.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <ostream>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>

const hostkit::Plugin &TestedPlugin() {
    static const hostkit::Plugin plugin(TP_PLUGIN_FILE);
    return plugin;
}

std::string TestedIsa() {
    std::vector<std::string> isas = {"baseline"};
#ifdef __x86_64__
    if (__builtin_cpu_supports("avx2"))
        isas.push_back("avx2");
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
        __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl"))
        isas.push_back("avx512");
#endif
    const char *wish = std::getenv("TP_ERASE_ISA");
    return !wish ? isas.back() : std::ranges::count(isas, wish) ? wish : "";
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

TransParam MakeParam(double total, double current) {
    TransParam param{};
    param.dTotal = total;
    param.dCurrent = current;
    return param;
}

void PrintTo(const ExportedFunction &function, std::ostream *out) {
    *out << function.name;
}

std::vector<ExportedFunction> ExportedFunctions(const hostkit::Plugin &plugin) {
    std::vector<ExportedFunction> functions;
    for (const hostkit::Transition &t : plugin.Transitions()) {
        if (t.yuv)
            functions.push_back({t.info.function, t.yuv, t.info.chroma == hostkit::Chroma::Full});
        if (t.rgb)
            functions.push_back({t.info.PackedFunction(), t.rgb, false});
    }
    return functions;
}

FrameCall::Buffer FrameCall::MakeBuffer(std::size_t size, bool atStart) {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    const std::size_t inside = (size + page - 1) / page * page, all = inside + 2 * page;
    void *mapped = mmap(nullptr, all, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED)
        throw std::bad_alloc();
    const std::shared_ptr<void> mapping(mapped, [all](void *pages) { munmap(pages, all); });
    const std::span writable(static_cast<std::uint8_t *>(mapped) + page, inside);
    if (inside && mprotect(writable.data(), inside, PROT_READ | PROT_WRITE) != 0)
        throw std::bad_alloc();
    std::ranges::fill(writable, std::uint8_t(0xa5));
    return {mapping, writable.subspan(atStart ? 0 : inside - size, size)};
}

FrameCall::FrameCall(TransFunc called, const Geometry &g, std::uint64_t seed, bool atStart)
    : function(called) {
    const bool isPlanar = std::holds_alternative<TransFuncYUV>(function);
    shapes.push_back(
        {isPlanar ? g.width : g.width * 4, isPlanar ? g.pitch : g.width * 4, g.height});
    if (isPlanar && g.fullChroma)
        shapes.insert(shapes.end(), 2, shapes[0]);
    else if (isPlanar)
        shapes.insert(shapes.end(), 2, {(g.width + 1) / 2, g.pitchUV, (g.height + 1) / 2});
    // All bytes of a record are compared, so those that no member covers must have a value too.
    std::memset(records.data(), 0, sizeof records);
    for (int image = 0; image < 3; ++image) {
        for (std::size_t plane = 0; plane < shapes.size(); ++plane) {
            const auto size = std::size_t(shapes[plane].pitch) * shapes[plane].rows;
            buffers.push_back(MakeBuffer(size, atStart));
            FillRandom(buffers.back().bytes, seed * 16 + image * 4 + plane);
        }
        YUVImage &record = records[image];
        record.pY = Plane(image).data();
        record.pU = Plane(image, isPlanar).data();
        record.pV = Plane(image, isPlanar * 2).data();
        record.nWidth = g.width;
        record.nHeight = g.height;
        record.nPitchY = image == 0 ? g.pitch : 0; // the output's count alone
        record.nPitchUV = record.nPitchV = image == 0 ? g.pitchUV : 0;
        Claim(image, record.pY, g.width, g.height);
    }
}

void FrameCall::Claim(int image, std::uint8_t *bits, int width, int height) {
    handles[image].reset(DIWrap(bits, width, height), DIDestroy);
}

void FrameCall::Draw(const TransParam &param) {
    const std::string before(RecordBytes(records));
    const TransParam given = param;
    if (const auto *yuv = std::get_if<TransFuncYUV>(&function))
        (*yuv)(records.data(), &records[1], &records[2], &param);
    else
        std::get<TransFuncRGB>(function)(handles[0].get(), handles[1].get(), handles[2].get(),
                                         &param);
    if (before != RecordBytes(records))
        throw std::logic_error("a record changed");
    if (RecordBytes(given) != RecordBytes(param))
        throw std::logic_error("the parameters changed");
}

std::span<std::uint8_t> FrameCall::Plane(int image, int plane) const {
    return buffers[std::size_t(image) * shapes.size() + std::size_t(plane)].bytes;
}
