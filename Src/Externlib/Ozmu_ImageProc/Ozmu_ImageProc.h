/// \file Ozmu_ImageProc.h
/// A stand-in for the host's imaging library: the four accessors that the plug-in calls on opaque
/// image handles, over a small image object of 4 bytes per pixel and rows of width * 4 bytes.
#pragma once

#include <stdint.h>
#ifdef __cplusplus
#include <cstdint>
#endif

#define OZMU_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif
/// The pixel bytes, row 0 first; null for a null handle.
OZMU_API uint8_t *DIGetBits(void *image);
/// Width in pixels; 0 for a null handle.
OZMU_API int32_t DIGetWidth(void *image);
/// Height in rows; 0 for a null handle.
OZMU_API int32_t DIGetHeight(void *image);
/// Bytes from one row to the next; 0 for a null handle.
OZMU_API int32_t DIGetPitch(void *image);

/// A new black image that owns its pixels; null when a size is negative or memory is short.
/// Release it with DIDestroy.
OZMU_API void *DICreate(int32_t width, int32_t height);
/// A new image over width * height * 4 bytes of the caller, who keeps them alive until DIDestroy.
OZMU_API void *DIWrap(uint8_t *bits, int32_t width, int32_t height);
/// Releases an image made by DICreate or DIWrap; null is allowed.
OZMU_API void DIDestroy(void *image);
#ifdef __cplusplus
}
#endif
