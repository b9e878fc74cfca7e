#include "Reference.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace {

std::string Hex(std::uint64_t hash) {
    char text[17];
    std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
    return text;
}

template<class Function>
Function Exported(const std::string &symbol) {
    return reinterpret_cast<Function>(TestedPlugin().Symbol(symbol.c_str()));
}

} // namespace

bool HasFullChroma(const std::string &function) {
    for (const hostkit::Info &info : hostkit::Infos())
        if (info.function == function)
            return info.chroma == hostkit::Chroma::Full;
    return false;
}

std::map<std::string, std::vector<Reference>> ReadReferences() {
    std::map<std::string, std::vector<Reference>> result;
    std::ifstream file(kReferenceFile);
    std::string text;
    std::getline(file, text); // column names
    for (int line = 2; std::getline(file, text); ++line) {
        std::istringstream columns(text);
        std::vector<std::string> cells(11);
        for (std::string &cell : cells)
            std::getline(columns, cell, ',');
        const auto number = [&](std::size_t i) {
            return cells.at(i).empty() ? 0 : std::stoi(cells[i]);
        };
        result[cells[0]].push_back(
            {cells[0],
             {number(1), number(2), number(3), number(4), HasFullChroma(cells[0])},
             std::stod(cells[5]),
             std::stod(cells[6]),
             static_cast<unsigned>(number(7)),
             {cells[8], cells[9], cells[10]},
             line});
    }
    if (result.empty())
        throw std::runtime_error(std::string("no reference frames in ") + kReferenceFile);
    return result;
}

std::array<std::string, 3> DrawnHashes(const Reference &reference) {
    const TransParam param = MakeParam(reference.total, reference.current);
    const auto yuv = Exported<TransFuncYUV>(hostkit::MangledYUV(reference.function));
    const auto rgb = Exported<TransFuncRGB>(hostkit::MangledRGB(reference.function));
    if (rgb) {
        PackedCall call(reference.geometry.width, reference.geometry.height, reference.seed);
        std::srand(reference.seed);
        call.Draw(rgb, param);
        return {Hex(Fnv1a(call.Pixels(0)))};
    }
    if (!yuv)
        throw std::runtime_error(reference.function + " is not exported");
    PlanarCall call(reference.geometry, reference.seed);
    std::srand(reference.seed);
    call.Draw(yuv, param);
    return {Hex(Fnv1a(call.Plane(0, 0))), Hex(Fnv1a(call.Plane(0, 1))),
            Hex(Fnv1a(call.Plane(0, 2)))};
}
