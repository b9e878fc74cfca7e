/// \file Reference.h
/// Reference frames: calls of the plug-in's functions and the hashes of all the bytes that each
/// leaves in the output, one call a line of Data/frames.csv.
#pragma once

#include "Support.h"

#include <array>
#include <map>
#include <string>
#include <vector>

/// One call. The contents of all frames follow from the seed, which rand() is seeded with too.
struct Reference {
    std::string function;
    Geometry geometry;
    double total;
    double current;
    unsigned seed;
    std::array<std::string, 3> hashes; ///< of luma, Cb and Cr, or of the pixels alone
    int line;
};

constexpr char kReferenceFile[] = TP_TEST_DATA "/frames.csv";

/// The references of each function, which must be one of the plug-in's.
std::map<std::string, std::vector<Reference>> ReadReferences();

/// What the plug-in leaves in the output now. Throws std::runtime_error when it has no such
/// function.
std::array<std::string, 3> DrawnHashes(const Reference &call);

/// Whether the function's chroma planes have full resolution.
bool HasFullChroma(const std::string &function);
