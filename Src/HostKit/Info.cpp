#include "Info.h"

namespace hostkit {

namespace {

/// In the order of Curve.
constexpr struct {
    const char *name;
    const char *description;
} kCurves[] = {
    {"-", ""},
    {"linear", "at an even speed"},
    {"smooth", "starts and ends slowly"},
    {"eased", "starts and ends very slowly"},
    {"steep", "nearly all of the motion lies around the middle"},
    {"bounce", "arrives early and springs back twice"},
};

/// In the order of Kind.
constexpr const char *kKinds[] = {"other", "wipe", "push", "page turn", "shapes", "light", "depth"};

constexpr char kBothWhole[] = "A whole, B whole";
constexpr char kPlanarWhole[] = "planar path: A whole, B whole";
constexpr char kHundredPixels[] = "The edge is 100 pixels wide at every frame size.";
constexpr char kBars[] = "Bars are 32 rows high and lag 32 pixels at every frame size.";
// The packed paths of the transitions that are exported by name only.
constexpr char kSqueezedCells[] =
    "Packed path: the column counts as a byte offset, so the cells are squeezed into the lower "
    "left corner, a quarter wide and high and in false colours; the rest shows B.";
constexpr char kSqueezedShapes[] =
    "Packed path: the column counts as a byte offset, so the shapes are squeezed into the left "
    "quarter of the picture; the rest keeps what the output frame held (in this program, B).";

} // namespace

std::string Info::PackedFunction() const {
    return function + packedSuffix;
}

const char *CurveName(Curve curve) {
    return kCurves[int(curve)].name;
}

const char *CurveDescription(Curve curve) {
    return kCurves[int(curve)].description;
}

std::span<const char *const> KindNames() {
    return kKinds;
}

const char *KindName(Kind kind) {
    return kKinds[int(kind)];
}

// A table, within a function so that it is there for whoever asks before main.
std::span<const Info> Infos() { // NOLINT(readability-function-size)
    static const Info infos[] = {
        {.name = "Erase",
         .function = "TrErase",
         .title = "Erase",
         .kind = Kind::Wipe,
         .motion = "B wipes in from the left behind a soft edge.",
         .yuv = Curve::Eased,
         .rgb = Curve::Linear,
         .anyRowOrder = true,
         .ends = kBothWhole,
         .remarks = "The edge is 100 pixels wide at every frame size. Packed path: nothing shows "
                    "until the edge is all inside the frame, and it narrows at the right."},
        {.name = "Erase_slide",
         .function = "TrEraseSlide",
         .title = "Erase slide",
         .kind = Kind::Push,
         .motion = "B slides in from the left over a still A, with a hard edge.",
         .yuv = Curve::Eased,
         .rgb = Curve::Eased,
         .anyRowOrder = true,
         .ends = kBothWhole,
         .remarks = "Packed path: B stands still and is uncovered."},
        {.name = "Bar",
         .function = "TrBar",
         .title = "Bars",
         .kind = Kind::Wipe,
         .motion = "B wipes in from the left in bars, each a step behind the one above it.",
         .yuv = Curve::Eased,
         .rgb = Curve::Linear,
         .ends = kBothWhole,
         .remarks = kBars},
        {.name = "Drop",
         .function = "TrDrop",
         .title = "Drop",
         .kind = Kind::Push,
         .motion = "Bands of A fall out of the picture, the lowest first, and leave B.",
         .yuv = Curve::Eased,
         .rgb = Curve::Linear,
         .ends = "A whole (but for the lowest band when the height is a multiple of the band's), B "
                 "whole",
         .remarks = "Planar path: bands are 32 rows high. Packed path: 32 in 360 rows of the "
                    "frame's height."},
        {.name = "Blind",
         .function = "TrBlind",
         .title = "Blind",
         .kind = Kind::Wipe,
         .motion = "Slats of A and B that grow thinner and more, B's share growing.",
         .yuv = Curve::Eased,
         .rgb = Curve::Eased,
         .leavesYuv = true,
         .leavesRgb = true,
         .ends = kBothWhole,
         .remarks = "The top row can be left as it was in the output frame. Planar path: so can "
                    "the whole frame for an instant before the end."},
        {.name = "Turn",
         .function = "TrTurn",
         .title = "Turn",
         .kind = Kind::Depth,
         .motion = "A flips over about its horizontal middle like a card on black, and B is on the "
                   "other side.",
         .yuv = Curve::Eased,
         .rgb = Curve::Eased,
         .ends = "A whole, B whole; planar path: the lowest row or two are black",
         .remarks = "Half-way the picture is all black. The edge that comes forward is the upper "
                    "one of A in the planar path and the lower one in the packed path."},
        {.name = "Roll",
         .function = "TrRoll",
         .title = "Roll",
         .kind = Kind::PageTurn,
         .motion = "A rolls up from left to right like a sheet of paper and uncovers B.",
         .yuv = Curve::Eased,
         .rgb = Curve::Eased,
         .leavesYuv = true,
         .anyRowOrder = true,
         .ends = kBothWhole,
         .remarks = "The roll is 32 to 78 pixels wide, by the frame's width. Planar path: it shows "
                    "A mirrored; packed path: A in place, shaded."},
        {.name = "Roll_right_top",
         .function = "roll_RT",
         .packedSuffix = "_RGB",
         .title = "Roll to the top right",
         .kind = Kind::PageTurn,
         .motion =
             "A peels off from the bottom left corner towards the top right and casts a shadow.",
         .yuv = Curve::Eased,
         .rgb = Curve::Eased,
         .chroma = Chroma::Full,
         .ends = "A whole, B whole; packed path: at some sizes the last corner pixel is dark",
         .remarks = "Planar path: works on chroma of full resolution, so programs that call it "
                    "directly must pass such planes. Packed path: the flap shows A upside down."},
        {.name = "Wind",
         .function = "TrWind",
         .title = "Wind",
         .kind = Kind::Push,
         .motion = "A is blown out to the right, row by row and ragged, and leaves B.",
         .yuv = Curve::Eased,
         .rgb = Curve::Eased,
         .random = true,
         .ends = "A whole, B whole (at an odd width but for the last pixel of some rows)",
         .remarks = "The ragged edge flickers: every frame draws anew."},
        {.name = "MoveRect_1",
         .function = "TrRect",
         .title = "Moving rectangles 1",
         .kind = Kind::Shapes,
         .motion = "A breaks into cells that shrink and fly outward over B.",
         .yuv = Curve::Linear,
         .rgb = Curve::Linear,
         .ends = "A whole (packed path: but for strips when the width is no multiple of 9 or the "
                 "height none of 7), B whole",
         .remarks =
             "Planar path: 10 by 10 cells, scaled down. Packed path: 9 by 7 cells, cut smaller."},
        {.name = "MoveRect_2",
         .function = "TrRect3",
         .title = "Moving rectangles 2",
         .kind = Kind::Shapes,
         .motion =
             "A breaks into small cells that shrink and drift outward, faster and faster, over B.",
         .yuv = Curve::Linear,
         .rgb = Curve::Linear,
         .ends = "A whole (but for strips when the width is no multiple of 10 or, in the packed "
                 "path, the height none of 8), B whole",
         .remarks = "Planar path: cells are scaled down. Packed path: they are cut smaller."},
        {.name = "Linear Wipe",
         .function = "TrLinearWipe",
         .title = "Linear wipe",
         .kind = Kind::Wipe,
         .motion = "B wipes in from the top left corner behind a wide soft diagonal edge.",
         .yuv = Curve::Linear,
         .rgb = Curve::Linear,
         .ends = kBothWhole,
         .remarks = "The edge is 400 pixels deep at every frame size."},
        {.name = "Push",
         .function = "TrPush",
         .title = "Push",
         .kind = Kind::Push,
         .motion = "B comes in from the left and pushes A out to the right.",
         .yuv = Curve::Eased,
         .rgb = Curve::Linear,
         .anyRowOrder = true,
         .ends = kBothWhole},
        {.name = "Flash",
         .function = "TrFlash",
         .title = "Flash",
         .kind = Kind::Light,
         .motion = "The picture brightens to a flash, A fades to B in it, and it dims again.",
         .yuv = Curve::Smooth,
         .rgb = Curve::Smooth,
         .anyRowOrder = true,
         .ends = "A and B, each 10 levels brighter",
         .remarks = "Planar path: the brightest 10 levels (246 to 255) turn dark. Packed path: "
                    "alpha is brightened too."},
        {.name = "DoorWay",
         .function = "TrDoorWay",
         .title = "Doorway",
         .kind = Kind::Depth,
         .motion =
             "A opens like two doors, and B comes nearer behind them, its mirror image on black.",
         .yuv = Curve::Smooth,
         .rgb = Curve::Smooth,
         .ends = "A whole (but for the middle column of an even width), B whole",
         .remarks = "Planar path: the mirror image is above B, in false colours. Packed path: it "
                    "is below B, and frames above 10,000 pixels are drawn by several threads."},
        {.name = "CrossZoom",
         .function = "TrCrossZoom",
         .title = "Cross zoom",
         .kind = Kind::Depth,
         .motion =
             "A zooms into a blur whose centre moves from left to right, and comes out of it as B.",
         .yuv = Curve::Smooth,
         .rgb = Curve::Smooth,
         .random = true,
         .ends = "A and B, at places a level darker",
         .remarks = "Grainy by random numbers. Packed path: frames above 1,000 pixels are drawn by "
                    "several threads, with five samples a pixel instead of six."},
        {.name = "TrRect2",
         .function = "TrRect2",
         .title = "Falling rectangles",
         .kind = Kind::Shapes,
         .motion = "Cells of A shrink a little, then fall, the outer ones faster, and leave B.",
         .yuv = Curve::Linear,
         .rgb = Curve::Linear,
         .countsBytes = true,
         .ends = kPlanarWhole,
         .remarks = kSqueezedCells},
        {.name = "TrRect4",
         .function = "TrRect4",
         .title = "Swinging rectangles",
         .kind = Kind::Shapes,
         .motion = "Cells of A shrink, swing outward and close on the vertical middle, over B.",
         .yuv = Curve::Linear,
         .rgb = Curve::Linear,
         .countsBytes = true,
         .ends =
             "planar path: A whole but for a strip when the width is no multiple of 10, B whole",
         .remarks = kSqueezedCells},
        {.name = "TrRect5",
         .function = "TrRect5",
         .title = "Collapsing columns",
         .kind = Kind::Shapes,
         .motion = "Tall narrow cells of A shrink and close on the middle, over B.",
         .yuv = Curve::Linear,
         .rgb = Curve::Linear,
         .countsBytes = true,
         .ends = kPlanarWhole,
         .remarks = kSqueezedCells},
        {.name = "TrRect6",
         .function = "TrRect6",
         .title = "Scattering tiles",
         .kind = Kind::Shapes,
         .motion =
             "A becomes ten rows of ten small pictures of itself that shrink and scatter over B.",
         .yuv = Curve::Linear,
         .rgb = Curve::Linear,
         .countsBytes = true,
         .ends = kBothWhole,
         .remarks = kSqueezedCells},
        {.name = "Tr4Triangle",
         .function = "Tr4Triangle",
         .title = "Four triangles",
         .kind = Kind::Shapes,
         .motion = "A is cut along a diagonal of either half, and its triangles slide apart "
                   "sideways over B.",
         .yuv = Curve::Linear,
         .rgb = Curve::Linear,
         .countsBytes = true,
         .leavesRgb = true,
         .ends = kPlanarWhole,
         .remarks = kSqueezedShapes},
        {.name = "TrNTriangle",
         .function = "TrNTriangle",
         .title = "Saw teeth",
         .kind = Kind::Shapes,
         .motion =
             "Saw teeth of A, hanging from the top and standing at the bottom, shrink and leave B.",
         .yuv = Curve::Linear,
         .rgb = Curve::Linear,
         .countsBytes = true,
         .leavesYuv = true,
         .leavesRgb = true,
         .ends = "planar path: A whole, B whole; frames narrower than 10 pixels are not drawn",
         .remarks = kSqueezedShapes},
        {.name = "TrTriangle2",
         .function = "TrTriangle2",
         .title = "Retreating triangles",
         .kind = Kind::Shapes,
         .motion = "A is cut along both diagonals, and its four triangles draw back from the "
                   "centre over B.",
         .yuv = Curve::Eased,
         .rgb = Curve::Eased,
         .countsBytes = true,
         .leavesRgb = true,
         .ends = "planar path: A whole, B whole but for a pixel of the top row",
         .remarks = kSqueezedShapes},
        {.name = "TrTriangle3",
         .function = "TrTriangle3",
         .title = "Bouncing triangles",
         .kind = Kind::Shapes,
         .motion = "Four triangles of B close on the centre from the edges and bounce back twice.",
         .yuv = Curve::Bounce,
         .rgb = Curve::Bounce,
         .countsBytes = true,
         .leavesRgb = true,
         .ends = "A whole (planar path: but for a pixel of the top row), B whole",
         .remarks = kSqueezedShapes},
        {.name = "TrCirque",
         .function = "TrCirque",
         .title = "Rings",
         .kind = Kind::Shapes,
         .motion = "Every other ring around the centre turns to B inside a growing circle, then "
                   "the rest from outside in.",
         .yuv = Curve::Linear,
         .rgb = Curve::Linear,
         .countsBytes = true,
         .leavesRgb = true,
         .ends = kPlanarWhole,
         .remarks = kSqueezedShapes},
        {.name = "TrEraseShift",
         .function = "TrEraseShift",
         .title = "Erase, steep",
         .kind = Kind::Wipe,
         .motion = "Erase with a slower start and end.",
         .yuv = Curve::Steep,
         .ends = kBothWhole,
         .remarks = kHundredPixels},
        {.name = "TrBarShift",
         .function = "TrBarShift",
         .title = "Bars, steep",
         .kind = Kind::Wipe,
         .motion = "Bar with a slower start and end.",
         .yuv = Curve::Steep,
         .ends = kBothWhole,
         .remarks = kBars},
        {.name = "TrDropShift",
         .function = "TrDropShift",
         .title = "Drop, steep",
         .kind = Kind::Push,
         .motion = "Drop with a slower start and end.",
         .yuv = Curve::Steep,
         .ends = "A whole (but for the lowest band when the height is a multiple of 32), B whole",
         .remarks = "Bands are 32 rows high."},
    };
    return infos;
}

Info InfoFor(std::string_view name) {
    for (const Info &info : Infos())
        if (info.name == name)
            return info;
    Info unknown;
    unknown.name = unknown.function = unknown.title = name;
    unknown.leavesYuv = unknown.leavesRgb = true; // for all that is known
    return unknown;
}

std::string Stem(std::string_view name) {
    std::string stem;
    for (const char c : name) {
        if ((c >= 'a' && c <= 'z') || (c >= '0' && c <= '9'))
            stem += c;
        else
            stem += c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : '_';
    }
    return stem;
}

} // namespace hostkit
