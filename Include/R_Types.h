/// Basic types of the kernel: integers, text units, colours, rectangles, palette objects.
///
/// Compiles as C11 and C++20. On Windows the system's own types are used; elsewhere the same layouts are
/// declared here, so that records and arrays have the same bytes on both platforms.
#ifndef R_TYPES_H
#define R_TYPES_H

#include <stddef.h>
#include <stdint.h>

#if defined(_WIN32)
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#elif !defined(__cplusplus)
#include <uchar.h>
#endif

typedef int32_t R_INT;     ///< signed 32-bit
typedef uint32_t R_UINT;   ///< unsigned 32-bit
typedef int64_t R_INT64;   ///< signed 64-bit
typedef uint64_t R_UINT64; ///< unsigned 64-bit
typedef uint16_t R_UINT16; ///< unsigned 16-bit
typedef uint64_t R_SIZE;   ///< byte count
typedef int64_t R_SSIZE;   ///< byte count, or a negative status
typedef unsigned char R_UCHAR;

#if defined(_WIN32)
typedef wchar_t R_WCHAR; ///< one UTF-16 unit; text buffer sizes count these
#else
typedef char16_t R_WCHAR; ///< one UTF-16 unit; text buffer sizes count these

/// A colour value: red in bits 0 to 7, green 8 to 15, blue 16 to 23; the top byte selects the meaning.
typedef uint32_t COLORREF;

/// A palette entry, as stored in bitmaps.
typedef struct tagRGBQUAD {
    uint8_t rgbBlue;
    uint8_t rgbGreen;
    uint8_t rgbRed;
    uint8_t rgbReserved;
} RGBQUAD;

/// A rectangle; right and bottom are exclusive.
typedef struct tagRECT {
    R_INT left;
    R_INT top;
    R_INT right;
    R_INT bottom;
} RECT;

/// An entry of a platform palette object.
typedef struct tagPALETTEENTRY {
    uint8_t peRed;
    uint8_t peGreen;
    uint8_t peBlue;
    uint8_t peFlags;
} PALETTEENTRY;

typedef struct HPALETTE__* HPALETTE; ///< a platform palette object
#endif

/// An entry of a 16-bit look-up table.
typedef struct RGBQUAD16 {
    uint16_t rgbBlue;
    uint16_t rgbGreen;
    uint16_t rgbRed;
    uint16_t rgbReserved;
} RGBQUAD16;

/// Columns of a row, right exclusive.
typedef struct R_SEGMENT {
    R_INT nLeft;
    R_INT nRight;
} R_SEGMENT;

// A packed record has no padding, and its fields may stand at any address: read and write them by value.
#if defined(__GNUC__) || defined(__clang__)
#define R_PACKED __attribute__((packed))
#define R_PACK_BEGIN
#define R_PACK_END
#else
#define R_PACKED
#define R_PACK_BEGIN __pragma(pack(push, 1))
#define R_PACK_END __pragma(pack(pop))
#endif

#if defined(_WIN32)
#if defined(RV_BUILDING_KERNEL)
#define R_EXPORT __declspec(dllexport)
#elif defined(RV_STATIC_KERNEL)
#define R_EXPORT
#else
#define R_EXPORT __declspec(dllimport)
#endif
#else
#define R_EXPORT __attribute__((visibility("default")))
#endif

#if defined(__cplusplus)
#define R_API extern "C" R_EXPORT
#define R_NOEXCEPT noexcept
#define R_STATIC_ASSERT(condition, text) static_assert(condition, text)
#else
#define R_API extern R_EXPORT
#define R_NOEXCEPT
#define R_STATIC_ASSERT(condition, text) _Static_assert(condition, text)
#endif

#endif
