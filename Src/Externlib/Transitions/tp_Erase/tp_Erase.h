/// \file tp_Erase.h
/// The public interface of libtp_Erase: video transitions, most of them registered, some exported
/// by name only, each for planar 8-bit YUV 4:2:0 frames and (but for the eased variants) for packed
/// 4-byte RGB frames.
///
/// A host loads the library, asks GetTransType, GetTransCount and GetTransInfo once, and then calls
/// a record's functions once per output frame. There is no initialisation and no shutdown call.
///
/// Rules for every transition function:
/// - The output and both inputs share one geometry; the output never shares memory with an input.
/// - Nothing is validated and nothing is reported, but for one log line of TrPushRGB. Frames belong
///   to the host; a function writes only into the output's planes or buffer, never into a record.
/// - Position 0 shows the first input, position dTotal the second; positions in between draw the
///   transition. dTotal must be positive and finite. At any other length or position, NaN included,
///   a call shows what its arithmetic gives and still touches nothing outside the frames.
/// - Every size from 1 x 1 on is allowed. A height below 1 draws nothing; a width below 1 draws no
///   pixel, but where a function clears or copies whole planes, padding included, it still does.
/// - One call at a time: the functions share a scratch record, the tables of Flash and the
///   process's rand(). Different processes are independent of each other.
///
/// C hosts see the records and the registry; the functions that are exported by name are C++'s. The
/// offsets below are part of the interface and do not change.
#pragma once

#include <assert.h>
#include <stddef.h>
#include <stdint.h>
#ifdef __cplusplus
#include <cstddef>
#include <cstdint>
#endif

#define TP_ERASE_API __attribute__((visibility("default")))

/// A planar 8-bit Y'CbCr 4:2:0 frame of the host. The chroma sample of pixel (x, y) is at
/// (x >> 1) + (y >> 1) * nPitchUV; a chroma plane has (nHeight + 1) / 2 rows. The functions read
/// the geometry from the output's record and apply it to all three frames (TrCirque alone takes
/// width and height from the first input). roll_RT alone needs chroma planes of full resolution:
/// nPitchY * nHeight bytes each.
typedef struct YUVImage {
    void *pHost0;     ///< the host's, never read
    uint8_t *pY;      ///< luma, row 0 first; nPitchY * nHeight bytes
    uint8_t *pU;      ///< Cb; nPitchUV * ((nHeight + 1) / 2) bytes
    uint8_t *pV;      ///< Cr; the same size as pU
    void *pHost1;     ///< the host's, never read
    int32_t nWidth;   ///< pixels
    int32_t nHeight;  ///< rows
    int32_t nPitchY;  ///< bytes from one luma row to the next, at least nWidth
    int32_t nPitchUV; ///< bytes from one chroma row to the next, at least (nWidth + 1) / 2
    int32_t nPitchV;  ///< bytes from one Cr row to the next; read by TrRoll alone
} YUVImage;
static_assert(offsetof(YUVImage, pY) == 8, "hosts find pY at this offset");
static_assert(offsetof(YUVImage, pU) == 16, "hosts find pU at this offset");
static_assert(offsetof(YUVImage, pV) == 24, "hosts find pV at this offset");
static_assert(offsetof(YUVImage, nWidth) == 40, "hosts find nWidth at this offset");
static_assert(offsetof(YUVImage, nHeight) == 44, "hosts find nHeight at this offset");
static_assert(offsetof(YUVImage, nPitchY) == 48, "hosts find nPitchY at this offset");
static_assert(offsetof(YUVImage, nPitchUV) == 52, "hosts find nPitchUV at this offset");
static_assert(offsetof(YUVImage, nPitchV) == 56, "hosts find nPitchV at this offset");

/// The host's parameter record. Two fields are read; none is written.
typedef struct TransParam {
    unsigned char host0[416]; ///< the host's, never read
    double dTotal;            ///< length of the transition in the host's unit, above 0
    double dCurrent;          ///< position, 0 to dTotal in the same unit
    unsigned char host1[48];  ///< the host's, never read
} TransParam;
static_assert(offsetof(TransParam, dTotal) == 416, "hosts find dTotal at this offset");
static_assert(offsetof(TransParam, dCurrent) == 424, "hosts find dCurrent at this offset");
static_assert(sizeof(TransParam) == 480, "hosts lay TransParam out in this size");

/// Draws one frame of a transition in the planar layout.
typedef void (*TransFuncYUV)(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                             const TransParam *param);
/// Draws one frame of a transition in the packed layout. The frames are image handles of the host's
/// imaging library: 4 bytes per pixel, rows of exactly width * 4 bytes. The channel order is not
/// interpreted.
typedef void (*TransFuncRGB)(void *out, void *in1, void *in2, const TransParam *param);

static_assert(sizeof(wchar_t) == 4, "the records hold 4-byte wide characters");

/// One row of the registry. Strings are NUL-terminated and zero-filled.
typedef struct TransInfo {
    uint32_t nType;               ///< kind of plug-in; 2 in every row
    wchar_t szName[64];           ///< name shown to users
    TransFuncYUV pfnTransYUV;     ///< planar path
    TransFuncRGB pfnTransRGB;     ///< packed path
    wchar_t szGUID[37];           ///< what hosts know the transition by; the spelling is fixed
    unsigned char reserved[2420]; ///< zero
} TransInfo;
static_assert(offsetof(TransInfo, szName) == 4, "hosts find szName at this offset");
static_assert(offsetof(TransInfo, pfnTransYUV) == 264, "hosts find pfnTransYUV at this offset");
static_assert(offsetof(TransInfo, pfnTransRGB) == 272, "hosts find pfnTransRGB at this offset");
static_assert(offsetof(TransInfo, szGUID) == 280, "hosts find szGUID at this offset");
static_assert(offsetof(TransInfo, reserved) == 428, "hosts find reserved at this offset");
static_assert(sizeof(TransInfo) == 2848, "hosts lay TransInfo out in this size");

/// One cell of the moving rectangles. Centred coordinates have their origin in the middle of the
/// frame, x to the right and y upward.
typedef struct RectInfo {
    int32_t bHidden; ///< 1: wholly outside the frame (row-copied cells only)
    double dOrgX;    ///< home x, centred (row-copied cells: pixels)
    double dOrgY;    ///< home y, centred (row-copied cells: pixels)
    double dPosX;    ///< current left edge, centred (row-copied cells: clipped, pixels)
    double dPosY;    ///< current top edge, centred (row-copied cells: clipped, pixels)
    int32_t nCopyW;  ///< pixels per row left after clipping (row-copied cells only)
    int32_t nCopyH;  ///< rows left after clipping (row-copied cells only)
} RectInfo;
static_assert(offsetof(RectInfo, dOrgX) == 8, "hosts find dOrgX at this offset");
static_assert(offsetof(RectInfo, dOrgY) == 16, "hosts find dOrgY at this offset");
static_assert(offsetof(RectInfo, dPosX) == 24, "hosts find dPosX at this offset");
static_assert(offsetof(RectInfo, dPosY) == 32, "hosts find dPosY at this offset");
static_assert(offsetof(RectInfo, nCopyW) == 40, "hosts find nCopyW at this offset");
static_assert(offsetof(RectInfo, nCopyH) == 44, "hosts find nCopyH at this offset");
static_assert(sizeof(RectInfo) == 48, "hosts lay RectInfo out in this size");

/// A point in single precision: x is a column, y a row in buffer order.
typedef struct Point2f {
    float x;
    float y;
} Point2f;
static_assert(sizeof(Point2f) == 8, "hosts lay Point2f out in this size");

// ---------------------------------------------------------------------------------------------
// The registry
// ---------------------------------------------------------------------------------------------

#ifdef __cplusplus
extern "C" {
#endif
/// The category of every transition here: "erase type". The same pointer on every call.
TP_ERASE_API const char *GetTransType(void);
/// The number of registered transitions.
TP_ERASE_API int32_t GetTransCount(void);
/// The record at index 0 .. GetTransCount() - 1, null for any other index.
TP_ERASE_API const TransInfo *GetTransInfo(int32_t index);

/// The registered transitions, GetTransCount() of them; what GetTransInfo points into. Writable,
/// never written here.
extern TP_ERASE_API TransInfo g_arTransInfo[];
#ifdef __cplusplus
} // extern "C"

// ---------------------------------------------------------------------------------------------
// Functions exported by name, C++ alone
// ---------------------------------------------------------------------------------------------

/// A transition exported by its function name alone.
struct NamedTrans {
    const char *szName; ///< name of the planar function; the packed one appends "RGB"
    bool bRGB;          ///< whether the packed function exists
};

/// The transitions that the registry does not list.
constexpr NamedTrans g_arNamedTrans[] = {
    {"TrRect2", true},     {"TrRect4", true},       {"TrRect5", true},     {"TrRect6", true},
    {"Tr4Triangle", true}, {"TrNTriangle", true},   {"TrTriangle2", true}, {"TrTriangle3", true},
    {"TrCirque", true},    {"TrEraseShift", false}, {"TrBarShift", false}, {"TrDropShift", false},
};

// ---------------------------------------------------------------------------------------------
// Transition functions, registered
// ---------------------------------------------------------------------------------------------

/// A soft edge wipes in from the left.
TP_ERASE_API void TrErase(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                          const TransParam *param);
TP_ERASE_API void TrEraseRGB(void *out, void *in1, void *in2, const TransParam *param);

/// Hard edge from the left; the planar path slides the incoming frame in.
TP_ERASE_API void TrEraseSlide(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                               const TransParam *param);
TP_ERASE_API void TrEraseSlideRGB(void *out, void *in1, void *in2, const TransParam *param);

/// Bars wipe in from the left, each lagging the one above.
TP_ERASE_API void TrBar(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                        const TransParam *param);
TP_ERASE_API void TrBarRGB(void *out, void *in1, void *in2, const TransParam *param);

/// Bands of the outgoing frame fall out of the picture.
TP_ERASE_API void TrDrop(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                         const TransParam *param);
TP_ERASE_API void TrDropRGB(void *out, void *in1, void *in2, const TransParam *param);

/// Slats that grow thinner.
TP_ERASE_API void TrBlind(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                          const TransParam *param);
TP_ERASE_API void TrBlindRGB(void *out, void *in1, void *in2, const TransParam *param);

/// The picture turns over like a card.
TP_ERASE_API void TrTurn(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                         const TransParam *param);
TP_ERASE_API void TrTurnRGB(void *out, void *in1, void *in2, const TransParam *param);

/// The outgoing frame rolls up from the left.
TP_ERASE_API void TrRoll(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                         const TransParam *param);
TP_ERASE_API void TrRollRGB(void *out, void *in1, void *in2, const TransParam *param);

/// "Roll_right_top": a corner peels away; the planar path addresses chroma at full resolution.
TP_ERASE_API void roll_RT(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                          const TransParam *param);
TP_ERASE_API void roll_RT_RGB(void *out, void *in1, void *in2, const TransParam *param);

/// Rows pushed out to the right with a ragged edge; draws rand() once per row pair.
TP_ERASE_API void TrWind(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                         const TransParam *param);
TP_ERASE_API void TrWindRGB(void *out, void *in1, void *in2, const TransParam *param);

/// "MoveRect_1": cells shrink and fly outward.
TP_ERASE_API void TrRect(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                         const TransParam *param);
TP_ERASE_API void TrRectRGB(void *out, void *in1, void *in2, const TransParam *param);

/// "MoveRect_2": a finer grid, accelerating.
TP_ERASE_API void TrRect3(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                          const TransParam *param);
TP_ERASE_API void TrRect3RGB(void *out, void *in1, void *in2, const TransParam *param);

/// A soft diagonal front.
TP_ERASE_API void TrLinearWipe(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                               const TransParam *param);
TP_ERASE_API void TrLinearWipeRGB(void *out, void *in1, void *in2, const TransParam *param);

/// The incoming frame pushes the other out to the right. TrPushRGB logs
/// and draws nothing when the inputs' pixel counts differ.
TP_ERASE_API void TrPush(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                         const TransParam *param);
TP_ERASE_API void TrPushRGB(void *out, void *in1, void *in2, const TransParam *param);

/// Cross-fade under a flash of light.
TP_ERASE_API void TrFlash(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                          const TransParam *param);
TP_ERASE_API void TrFlashRGB(void *out, void *in1, void *in2, const TransParam *param);

/// Doors open on the approaching frame; packed frames above 10,000 pixels use worker threads.
TP_ERASE_API void TrDoorWay(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                            const TransParam *param);
TP_ERASE_API void TrDoorWayRGB(void *out, void *in1, void *in2, const TransParam *param);

/// Zoom blur cross-fade; packed first inputs above 1,000 pixels use worker threads.
TP_ERASE_API void TrCrossZoom(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                              const TransParam *param);
TP_ERASE_API void TrCrossZoomRGB(void *out, void *in1, void *in2, const TransParam *param);

// ---------------------------------------------------------------------------------------------
// Transition functions, exported by name only
// ---------------------------------------------------------------------------------------------

/// Cells shrink a little, then fall, the outer ones faster. The packed path uses the column as a
/// byte offset.
TP_ERASE_API void TrRect2(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                          const TransParam *param);
TP_ERASE_API void TrRect2RGB(void *out, void *in1, void *in2, const TransParam *param);

/// Cells shrink, swing outward and close on the centre line. Packed addressing as TrRect2RGB.
TP_ERASE_API void TrRect4(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                          const TransParam *param);
TP_ERASE_API void TrRect4RGB(void *out, void *in1, void *in2, const TransParam *param);

/// Tall cells collapse on the centre line. Packed addressing as TrRect2RGB.
TP_ERASE_API void TrRect5(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                          const TransParam *param);
TP_ERASE_API void TrRect5RGB(void *out, void *in1, void *in2, const TransParam *param);

/// Tiles with the whole outgoing frame scatter. Packed addressing as TrRect2RGB.
TP_ERASE_API void TrRect6(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                          const TransParam *param);
TP_ERASE_API void TrRect6RGB(void *out, void *in1, void *in2, const TransParam *param);

/// Four triangles slide apart. The packed path uses the column as a byte offset and takes the
/// fourth byte from the first input, as do all packed paths below.
TP_ERASE_API void Tr4Triangle(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                              const TransParam *param);
TP_ERASE_API void Tr4TriangleRGB(void *out, void *in1, void *in2, const TransParam *param);

/// A saw-tooth of triangles shrinks to the edges. Frames narrower than 10 pixels are not drawn.
TP_ERASE_API void TrNTriangle(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                              const TransParam *param);
TP_ERASE_API void TrNTriangleRGB(void *out, void *in1, void *in2, const TransParam *param);

/// Four triangles retreat from the centre.
TP_ERASE_API void TrTriangle2(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                              const TransParam *param);
TP_ERASE_API void TrTriangle2RGB(void *out, void *in1, void *in2, const TransParam *param);

/// Four triangles close on the centre and bounce.
TP_ERASE_API void TrTriangle3(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                              const TransParam *param);
TP_ERASE_API void TrTriangle3RGB(void *out, void *in1, void *in2, const TransParam *param);

/// Concentric rings. The planar path takes width and height from the first input.
TP_ERASE_API void TrCirque(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                           const TransParam *param);
TP_ERASE_API void TrCirqueRGB(void *out, void *in1, void *in2, const TransParam *param);

/// TrErase at a position eased once more beforehand.
TP_ERASE_API void TrEraseShift(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                               const TransParam *param);

/// TrBar at a position eased once more beforehand.
TP_ERASE_API void TrBarShift(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                             const TransParam *param);

/// TrDrop at a position eased once more beforehand.
TP_ERASE_API void TrDropShift(YUVImage *out, const YUVImage *in1, const YUVImage *in2,
                              const TransParam *param);

// ---------------------------------------------------------------------------------------------
// Helpers: shader arithmetic. Single and double precision exactly as described; pure functions.
// ---------------------------------------------------------------------------------------------

/// b * t + (1 - t) * a: the first product in float, the second and the sum in double.
TP_ERASE_API float mix(float a, float b, float t);
/// x - floor(x) in float.
TP_ERASE_API float fract(float x);
/// The sine hash common in shaders: fract(seed + 43758.5453 * sin(dot((fx, fy, 0) + seed, scale))).
TP_ERASE_API float random(float sx, float sy, float sz, float fx, float fy, float seed);
/// Easings in the (begin, change, duration, time) convention of R. Penner's equations.
TP_ERASE_API float Linear_ease(float b, float c, float d, float t);
TP_ERASE_API float Exponential_easeInOut(float b, float c, float d, float t);
TP_ERASE_API float Sinusoidal_easeInOut(float b, float c, float d, float t);
/// Whether 0 <= x <= 1 and 0 <= y <= 1; false for NaN.
TP_ERASE_API bool inBounds(Point2f &p);
/// Whether 0 <= x <= width - 1 and 0 <= y <= height - 1; false for NaN. Height comes first.
TP_ERASE_API bool inBounds(Point2f &p, int height, int width);
/// The mirror point on the floor: (x, -1.2 * y - 0.02 * height), computed in double.
TP_ERASE_API Point2f project(Point2f &p, int height);
/// Replaces p by its mirror point and, when that lies inside the frame, adds the pixel of src
/// there, faded by reflection * (1 - y / height), onto the four bytes at dst: truncated, not
/// clamped. stride is the byte distance of src's rows.
TP_ERASE_API void bgColor(Point2f &p, const float &reflection, int height, int width, int stride,
                          const unsigned char *src, unsigned char *dst);

// ---------------------------------------------------------------------------------------------
// Helpers: coordinates of the moving rectangles. half is half the frame's width or height.
// ---------------------------------------------------------------------------------------------

/// Pixel column to centred x.
TP_ERASE_API double MappedX(double x, double half);
/// Pixel row to centred, upward y: the negated difference, so y = half gives -0.0.
TP_ERASE_API double MappedY(double y, double half);
/// Centred x to pixel column.
TP_ERASE_API double unMappedX(double x, double half);
/// Centred, upward y to pixel row.
TP_ERASE_API double unMappedY(double y, double half);
/// Whether one of the first count cells, each w x h with its top left corner at (dPosX, dPosY) in
/// centred coordinates, contains (x, y), edges included. The last argument is ignored.
TP_ERASE_API bool PointInRect(double x, double y, const RectInfo *cells, int count, double w,
                              double h, int ignored);

// ---------------------------------------------------------------------------------------------
// Helpers: point-in-shape tests for pixel (x, y), y counted from the first row
// ---------------------------------------------------------------------------------------------

/// A saw-tooth of triangles every n columns (n not 0), d * f rows tall: standing on row f, tallest
/// at a cell's left side.
TP_ERASE_API bool PtInTriangleBottom(int x, int y, int n, double d, int ignored, int f);
/// The same hanging from row 0, tallest at a cell's right side.
TP_ERASE_API bool PtInTriangleTop(int x, int y, int n, double d, int ignored, int f);
/// Either of the two.
TP_ERASE_API bool PtInTriangleCell(int x, int y, int n, double d, int ignored, int f);
/// Four triangles from the frame's edges whose tips point at (cx, cy) and stop short of it by a
/// columns and b rows. The left and right ones exclude their edges, the upper and lower include
/// them.
TP_ERASE_API bool PtInRegion(int x, int y, int a, int b, int cx, int cy);
#endif // __cplusplus
