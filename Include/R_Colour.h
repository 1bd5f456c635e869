/// Palettes, colour look-up and translation.
///
/// A colour value is 32 bits: red in bits 0 to 7, green 8 to 15, blue 16 to 23; the top byte says what it is:
/// 0x00 RGB, 0x01 a palette index, 0x04 a gray level of 9 to 16 bits. Palettes are arrays of at most 256 entries;
/// their reserved byte is 0 in every built-in one and ignored by comparisons. "Bitmap checks": ERROR_INV_BITMAP for
/// a null bitmap, ERROR_INV_STRUCT_SIZE for a record of another size.
#ifndef R_COLOUR_H
#define R_COLOUR_H

#include "R_Bitmap.h"

#define COLOUR_KIND_MASK 0xFF000000u
#define COLOUR_RGB 0x00000000u
#define COLOUR_PALETTE_INDEX 0x01000000u
#define COLOUR_GRAY_LEVEL 0x04000000u

// --- Built-in palettes

/// The fixed palette of 1 to 8 bits, 2^nBitsPerPixel constant entries; null for other depths. Not to be freed.
R_API const RGBQUAD* R_IntGetFixedPalette(R_INT nBitsPerPixel) R_NOEXCEPT;
/// The 256-entry web-safe palette: 216 colours of a 6 x 6 x 6 cube, red slowest, then black. Not to be freed.
R_API const RGBQUAD* R_IntGetNetscapePalette(void) R_NOEXCEPT;
/// Copies a fixed palette to pPalette: 0 the 256-level gray ramp, 1 to 8 the depth's 2^n entries.
/// ERROR_INV_PARAMETER for a null array or any other depth.
R_API R_INT R_GetFixedPalette(RGBQUAD* pPalette, R_INT nBitsPerPixel) R_NOEXCEPT;
/// A new fixed palette (0 and 1: black and white; 2 to 8), freed with R_HeapTerm. Null above 8 or without memory.
R_API RGBQUAD* R_CreateFixedPalette(R_INT nBitsPerPixel) R_NOEXCEPT;
/// A new gray ramp of 2^nBits entries (0 means 8), freed with R_HeapTerm. Null without memory, and for numbers of bits
/// that no count can follow: negative or above 31.
R_API RGBQUAD* R_CreateGrayPalette(R_INT nBits) R_NOEXCEPT;
/// Gives a bitmap of 1 to 8 bits the gray ramp of its depth.
/// ERROR_INV_PARAMETER null; ERROR_INV_BITS_PER_PIXEL; ERROR_FAILURE no memory.
R_API R_INT R_CreateBitmapGrayPalette(BITMAPHANDLE* pBitmap) R_NOEXCEPT;
/// Gives a bitmap the fixed palette of its present number of colours; four colours become black, white, black,
/// black. FAILURE, and no palette, for a number that is no power of two from 2 to 256.
R_API R_INT R_CreateBitmapFixedPalette(BITMAPHANDLE* pBitmap) R_NOEXCEPT;

// --- A bitmap's palette

/// Copies entries nFirst to nFirst + uCount - 1 out. Bitmap checks; ERROR_INV_PARAMETER for a null array, no entries
/// asked for, more than 8 bits, and, after copying what there is, where there are fewer.
R_API R_INT R_GetBitmapColors(BITMAPHANDLE* pBitmap, R_INT nFirst, R_UINT uCount, RGBQUAD* pPalette) R_NOEXCEPT;
/// Overwrites entries of the palette, which is made, of nColors entries, if there is none.
/// ERROR_INV_BITMAP null or no pixels; ERROR_INV_STRUCT_SIZE; ERROR_INV_PARAMETER a null array, more than 8 bits, or
/// entries past nColors; ERROR_FAILURE no memory.
R_API R_INT R_PutBitmapColors(BITMAPHANDLE* pBitmap, R_INT nFirst, R_UINT uCount, const RGBQUAD* pPalette) R_NOEXCEPT;
/// Copies entries out; returns how many there were.
R_API R_UINT R_GetBitmapPaletteEntries(BITMAPHANDLE* pBitmap, R_INT nFirst, R_UINT uCount,
                                       RGBQUAD* pPalette) R_NOEXCEPT;
/// Replaces the palette by a copy of uCount entries, which may be its own. The record's size is not checked. A null
/// array frees the palette and leaves nColors. ERROR_INV_BITMAP null bitmap; ERROR_FAILURE, with uCount stored and no
/// palette, for a count outside 1 to 256 or without memory.
R_API R_INT R_SetBitmapNewPalette(BITMAPHANDLE* pBitmap, const RGBQUAD* pPalette, R_UINT uCount) R_NOEXCEPT;
/// Gives pDst a copy of pSrc's palette, or none and nColors 0 where pSrc has none.
/// ERROR_INV_PARAMETER null; ERROR_INV_STRUCT_SIZE; ERROR_FAILURE, with pSrc's count and no palette, as above.
R_API R_INT R_CopyBitmapPalette(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc) R_NOEXCEPT;
/// 1 when the entries that both have agree in red, green and blue, else 0.
R_API R_INT R_CompareBitmapToPalette(BITMAPHANDLE* pBitmap, const RGBQUAD* pPalette, R_UINT uCount) R_NOEXCEPT;
/// 0 not gray, 1 an even ramp from black, 2 an even ramp from white, 3 gray but no such ramp;
/// ERROR_INV_PARAMETER for null.
R_API R_INT R_IsGrayScalePalette(const RGBQUAD* pPalette, R_UINT uCount) R_NOEXCEPT;

// --- Look-up and translation

/// The nearest entry by squared distance; equal distances go to the later entry of the request's hue class.
/// Black prefers the first entry, white the last. 0xFFFFFFFF for a count of 0, 0 for a null palette.
R_API R_UINT R_FindPaletteIndex(const RGBQUAD* pPalette, R_UINT uCount, R_INT nRed, R_INT nGreen,
                                R_INT nBlue) R_NOEXCEPT;
/// The index the platform's palette objects answer for an RGB colour in this bitmap's palette; 0 when they cannot.
R_API R_UINT R_GetNearestPaletteIndex(BITMAPHANDLE* pBitmap, COLORREF crColor) R_NOEXCEPT;
/// Turns a colour value meant for pSrc, which may be null, into one for pDst: RGB above 8 bits, else the index that
/// R_GetNearestPaletteIndex gives. A palette index stands for pSrc's entry, or for black where there is none; it stays
/// as it is where pDst has the same entry there. A gray level stays one in gray bitmaps, or becomes the index of its
/// value in the look-up table that is in use; elsewhere it is the gray of its bits 8 to 15. A null pDst changes
/// nothing.
R_API COLORREF R_TranslateBitmapColor(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, COLORREF crColor) R_NOEXCEPT;
/// The RGB colour that a colour value stands for in this bitmap; 0 for a null bitmap or a record of another size.
R_API COLORREF R_GetTrueColorValue(BITMAPHANDLE* pBitmap, COLORREF crColor) R_NOEXCEPT;

// --- Platform palette objects; freed with R_DeletePalette

/// A new object of uCount entries; null for a null array, more than 256 entries or no memory.
R_API HPALETTE R_CreatePalette(const RGBQUAD* pPalette, R_UINT uCount) R_NOEXCEPT;
/// A copy of 1 to 256 entries, freed with R_HeapTerm; else null.
R_API RGBQUAD* R_CreateNewPalette(const RGBQUAD* pPalette, R_UINT uCount) R_NOEXCEPT;
R_API R_UINT R_GetPaletteSize(HPALETTE hPalette) R_NOEXCEPT;
/// Return the number of entries moved; 0 for a null array or a negative start.
R_API R_UINT R_GetPaletteEntries(HPALETTE hPalette, R_INT nStart, R_UINT uCount, RGBQUAD* pPalette) R_NOEXCEPT;
R_API R_UINT R_SetPaletteEntries(HPALETTE hPalette, R_INT nStart, R_UINT uCount, const RGBQUAD* pPalette) R_NOEXCEPT;
R_API HPALETTE R_DupPalette(HPALETTE hPalette) R_NOEXCEPT;
R_API HPALETTE R_DupBitmapPalette(BITMAPHANDLE* pBitmap) R_NOEXCEPT;
/// Gives the bitmap the entries of an object of 2 to 256. Bitmap checks; ERROR_INV_PARAMETER another object;
/// ERROR_FAILURE no memory, and no palette then.
R_API R_INT R_SetBitmapPalette(BITMAPHANDLE* pBitmap, HPALETTE hPalette) R_NOEXCEPT;
/// The screen's own palette where the screen has one, else null.
R_API HPALETTE R_CreateSystemPalette(void) R_NOEXCEPT;
R_API void R_DeletePalette(HPALETTE hPalette) R_NOEXCEPT;

#endif
