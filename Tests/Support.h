/// \file Support.h
/// What the tests share: memory that ends at an inaccessible page, test contents, hashes, one call
/// of a transition in either layout.
#pragma once

#include "Plugin.h"
#include "tp_Erase.h"

#include <Ozmu_ImageProc.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

/// The plug-in under test, loaded once.
const hostkit::Plugin &TestedPlugin();

/// Bytes that lie right before an inaccessible page, and right behind another when the size is a
/// whole number of pages or `atStart` is asked for: reading or writing past them ends the test.
class GuardedBuffer {
public:
    explicit GuardedBuffer(std::size_t size, bool atStart = false);
    ~GuardedBuffer();
    GuardedBuffer(GuardedBuffer &&other) noexcept;
    GuardedBuffer &operator=(GuardedBuffer &&) = delete;

    std::uint8_t *Data() const { return data; }
    std::size_t Size() const { return size; }
    std::span<std::uint8_t> Bytes() const { return {data, size}; }

private:
    void *mapping;
    std::size_t mappingSize;
    std::uint8_t *data;
    std::size_t size;
};

/// Fills bytes with the top bytes of SplitMix64 from this state on (S. Vigna's generator).
void FillRandom(std::span<std::uint8_t> bytes, std::uint64_t state);
/// Bytes so filled.
std::string RandomBytes(std::size_t size, std::uint64_t state);

/// The bytes of a record, with those that no member covers.
template<class Record>
std::string_view RecordBytes(const Record &record) {
    return {reinterpret_cast<const char *>(&record), sizeof record};
}

/// 64-bit FNV-1a.
std::uint64_t Fnv1a(std::span<const std::uint8_t> bytes);

/// The geometry of a call. A packed frame has rows of width * 4 bytes and no other planes.
struct Geometry {
    int width;
    int height;
    int pitch;               ///< luma
    int pitchUV;             ///< chroma
    bool fullChroma = false; ///< chroma planes of pitch * height bytes, as roll_RT wants them
};

TransParam MakeParam(double total, double current);

/// One call's three frames in either layout: image 0 is the output, 1 and 2 the inputs. Drawing
/// throws std::logic_error when a record of the call changes.
class PlanarCall {
public:
    /// Contents depend on the seed, the image and the plane; the output has random contents too.
    PlanarCall(const Geometry &geometry, std::uint64_t seed, bool atStart = false);
    void Draw(TransFuncYUV function, const TransParam &param);
    std::span<std::uint8_t> Plane(int image, int plane) const;
    YUVImage &Record(int image) { return records[image]; }

private:
    std::array<std::array<GuardedBuffer, 3>, 3> planes;
    std::array<YUVImage, 3> records;
};

class PackedCall {
public:
    PackedCall(int width, int height, std::uint64_t seed, bool atStart = false);
    ~PackedCall();
    PackedCall(const PackedCall &) = delete;
    PackedCall &operator=(const PackedCall &) = delete;
    void Draw(TransFuncRGB function, const TransParam &param);
    std::span<std::uint8_t> Pixels(int image) const { return buffers[image].Bytes(); }

private:
    std::array<GuardedBuffer, 3> buffers;
    std::array<void *, 3> handles;
};
