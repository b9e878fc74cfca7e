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
#include <iosfwd>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// The plug-in under test, loaded once.
const hostkit::Plugin &TestedPlugin();

/// The instruction set that TP_ERASE_ISA asks for, else the widest one of this machine; empty when
/// it lacks that: the library draws with another one, and tests named after this one must not pass.
std::string TestedIsa();

/// Fills bytes with the top bytes of SplitMix64 from this state on (S. Vigna's generator).
void FillRandom(std::span<std::uint8_t> bytes, std::uint64_t state);
/// Bytes so filled.
std::string RandomBytes(std::size_t size, std::uint64_t state);

/// The bytes of a record, with those that no member covers.
template<class Record>
std::string_view RecordBytes(const Record &record) {
    return {reinterpret_cast<const char *>(&record), sizeof record};
}

TransParam MakeParam(double total, double current);

using TransFunc = std::variant<TransFuncYUV, TransFuncRGB>;

/// An exported transition function.
struct ExportedFunction {
    std::string name;
    TransFunc function;
    bool fullChroma; ///< chroma planes as large as luma's, as roll_RT wants them
};
void PrintTo(const ExportedFunction &function, std::ostream *out);

/// All those of a plug-in.
std::vector<ExportedFunction> ExportedFunctions(const hostkit::Plugin &plugin);

/// The geometry of a call. A packed frame has rows of width * 4 bytes and no other planes.
struct Geometry {
    int width, height;
    int pitch = 0;           ///< luma
    int pitchUV = 0;         ///< chroma
    bool fullChroma = false; ///< chroma planes of pitch * height bytes
};

/// One plane of a call: bytes of a row that show, bytes from row to row, rows.
struct PlaneShape {
    int visible, pitch, rows;
};

/// A call's three frames: image 0 is the output, 1 and 2 the inputs. Their planes lie right before
/// inaccessible pages, and right behind others when their size is a whole number of pages or
/// `atStart` is asked for: reading or writing past them ends the test.
class FrameCall {
public:
    /// Contents depend on the seed, the image and the plane; the output has random contents too.
    FrameCall(TransFunc function, const Geometry &geometry, std::uint64_t seed,
              bool atStart = false);
    /// Throws std::logic_error when a record of the call changes.
    void Draw(const TransParam &param);
    std::span<const PlaneShape> Planes() const { return shapes; }
    std::span<std::uint8_t> Plane(int image, int plane = 0) const;
    YUVImage &Record(int image) { return records[image]; }
    /// Makes a packed image one of other pixels or of another size.
    void Claim(int image, std::uint8_t *bits, int width, int height);

private:
    struct Buffer {
        std::shared_ptr<void> mapping;
        std::span<std::uint8_t> bytes;
    };
    static Buffer MakeBuffer(std::size_t size, bool atStart);

    TransFunc function;
    std::vector<PlaneShape> shapes;
    std::vector<Buffer> buffers; ///< the first image's planes, the second's, the third's
    std::array<YUVImage, 3> records;
    std::array<std::shared_ptr<void>, 3> handles; ///< of the packed images
};
