#include "Info.h"

#include <algorithm>

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

constexpr char kWhole[] = "A whole, B whole";
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

constexpr Info kInfos[] = {
    {"Erase", "Erase", "B wipes in from the left behind a soft edge.", Curve::Eased, Curve::Linear,
     kWhole, false,
     "The edge is 100 pixels wide at every frame size. Packed path: nothing shows until the edge "
     "is "
     "all inside the frame, and it narrows at the right."},
    {"Erase_slide", "Erase slide", "B slides in from the left over a still A, with a hard edge.",
     Curve::Eased, Curve::Eased, kWhole, false, "Packed path: B stands still and is uncovered."},
    {"Bar", "Bars", "B wipes in from the left in bars, each a step behind the one above it.",
     Curve::Eased, Curve::Linear, kWhole, false, kBars},
    {"Drop", "Drop", "Bands of A fall out of the picture, the lowest first, and leave B.",
     Curve::Eased, Curve::Linear,
     "A whole (but for the lowest band when the height is a multiple of the band's), B whole",
     false,
     "Planar path: bands are 32 rows high. Packed path: 32 in 360 rows of the frame's height."},
    {"Blind", "Blind", "Slats of A and B that grow thinner and more, B's share growing.",
     Curve::Eased, Curve::Eased, kWhole, false,
     "The top row can be left as it was in the output frame. Planar path: so can the whole frame "
     "for an instant before the end."},
    {"Turn", "Turn",
     "A flips over about its horizontal middle like a card on black, and B is on the other side.",
     Curve::Eased, Curve::Eased, "A whole, B whole; planar path: the lowest row or two are black",
     false,
     "Half-way the picture is all black. The edge that comes forward is the upper one of A in the "
     "planar path and the lower one in the packed path."},
    {"Roll", "Roll", "A rolls up from left to right like a sheet of paper and uncovers B.",
     Curve::Eased, Curve::Eased, kWhole, false,
     "The roll is 32 to 78 pixels wide, by the frame's width. Planar path: it shows A mirrored; "
     "packed path: A in place, shaded."},
    {"Roll_right_top", "Roll to the top right",
     "A peels off from the bottom left corner towards the top right and casts a shadow.",
     Curve::Eased, Curve::Eased,
     "A whole, B whole; packed path: at some sizes the last corner pixel is dark", false,
     "Planar path: works on chroma of full resolution, so programs that call it directly must pass "
     "such planes. Packed path: the flap shows A upside down."},
    {"Wind", "Wind", "A is blown out to the right, row by row and ragged, and leaves B.",
     Curve::Eased, Curve::Eased,
     "A whole, B whole (at an odd width but for the last pixel of some rows)", true,
     "The ragged edge flickers: every frame draws anew."},
    {"MoveRect_1", "Moving rectangles 1", "A breaks into cells that shrink and fly outward over B.",
     Curve::Linear, Curve::Linear,
     "A whole (packed path: but for strips when the width is no multiple of 9 or the height none "
     "of 7), B whole",
     false, "Planar path: 10 by 10 cells, scaled down. Packed path: 9 by 7 cells, cut smaller."},
    {"MoveRect_2", "Moving rectangles 2",
     "A breaks into small cells that shrink and drift outward, faster and faster, over B.",
     Curve::Linear, Curve::Linear,
     "A whole (but for strips when the width is no multiple of 10 or, in the packed path, the "
     "height none of 8), B whole",
     false, "Planar path: cells are scaled down. Packed path: they are cut smaller."},
    {"Linear Wipe", "Linear wipe",
     "B wipes in from the top left corner behind a wide soft diagonal edge.", Curve::Linear,
     Curve::Linear, kWhole, false, "The edge is 400 pixels deep at every frame size."},
    {"Push", "Push", "B comes in from the left and pushes A out to the right.", Curve::Eased,
     Curve::Linear, kWhole, false, ""},
    {"Flash", "Flash", "The picture brightens to a flash, A fades to B in it, and it dims again.",
     Curve::Smooth, Curve::Smooth, "A and B, each 10 levels brighter", false,
     "Planar path: the brightest 10 levels (246 to 255) turn dark. Packed path: alpha is "
     "brightened "
     "too."},
    {"DoorWay", "Doorway",
     "A opens like two doors, and B comes nearer behind them, its mirror image on black.",
     Curve::Smooth, Curve::Smooth, "A whole (but for the middle column of an even width), B whole",
     false,
     "Planar path: the mirror image is above B, in false colours. Packed path: it is below B, and "
     "frames above 10,000 pixels are drawn by several threads."},
    {"CrossZoom", "Cross zoom",
     "A zooms into a blur whose centre moves from left to right, and comes out of it as B.",
     Curve::Smooth, Curve::Smooth, "A and B, at places a level darker", true,
     "Grainy by random numbers. Packed path: frames above 1,000 pixels are drawn by several "
     "threads, "
     "with five samples a pixel instead of six."},
    {"TrRect2", "Falling rectangles",
     "Cells of A shrink a little, then fall, the outer ones faster, and leave B.", Curve::Linear,
     Curve::Linear, kPlanarWhole, false, kSqueezedCells},
    {"TrRect4", "Swinging rectangles",
     "Cells of A shrink, swing outward and close on the vertical middle, over B.", Curve::Linear,
     Curve::Linear,
     "planar path: A whole but for a strip when the width is no multiple of 10, B whole", false,
     kSqueezedCells},
    {"TrRect5", "Collapsing columns",
     "Tall narrow cells of A shrink and close on the middle, over B.", Curve::Linear, Curve::Linear,
     kPlanarWhole, false, kSqueezedCells},
    {"TrRect6", "Scattering tiles",
     "A becomes ten rows of ten small pictures of itself that shrink and scatter over B.",
     Curve::Linear, Curve::Linear, kWhole, false, kSqueezedCells},
    {"Tr4Triangle", "Four triangles",
     "A is cut along a diagonal of either half, and its triangles slide apart sideways over B.",
     Curve::Linear, Curve::Linear, kPlanarWhole, false, kSqueezedShapes},
    {"TrNTriangle", "Saw teeth",
     "Saw teeth of A, hanging from the top and standing at the bottom, shrink and leave B.",
     Curve::Linear, Curve::Linear,
     "planar path: A whole, B whole; frames narrower than 10 pixels are not drawn", false,
     kSqueezedShapes},
    {"TrTriangle2", "Retreating triangles",
     "A is cut along both diagonals, and its four triangles draw back from the centre over B.",
     Curve::Eased, Curve::Eased, "planar path: A whole, B whole but for a pixel of the top row",
     false, kSqueezedShapes},
    {"TrTriangle3", "Bouncing triangles",
     "Four triangles of B close on the centre from the edges and bounce back twice.", Curve::Bounce,
     Curve::Bounce, "A whole (planar path: but for a pixel of the top row), B whole", false,
     kSqueezedShapes},
    {"TrCirque", "Rings",
     "Every other ring around the centre turns to B inside a growing circle, then the rest from "
     "outside in.",
     Curve::Linear, Curve::Linear, kPlanarWhole, false, kSqueezedShapes},
    {"TrEraseShift", "Erase, steep", "Erase with a slower start and end.", Curve::Steep,
     Curve::Absent, kWhole, false, kHundredPixels},
    {"TrBarShift", "Bars, steep", "Bar with a slower start and end.", Curve::Steep, Curve::Absent,
     kWhole, false, kBars},
    {"TrDropShift", "Drop, steep", "Drop with a slower start and end.", Curve::Steep, Curve::Absent,
     "A whole (but for the lowest band when the height is a multiple of 32), B whole", false,
     "Bands are 32 rows high."},
};

} // namespace

const char *CurveName(Curve curve) {
    return kCurves[int(curve)].name;
}

const char *CurveDescription(Curve curve) {
    return kCurves[int(curve)].description;
}

std::span<const Info> Infos() {
    return kInfos;
}

const Info *FindInfo(std::string_view name) {
    const auto found = std::find_if(std::begin(kInfos), std::end(kInfos),
                                    [&](const Info &info) { return info.name == name; });
    return found == std::end(kInfos) ? nullptr : found;
}

} // namespace hostkit
