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

// --- Match tables and palettes made for pictures
//
// A 15-bit colour has the top five bits of red in bits 10 to 14, of green in 5 to 9, of blue in 0 to 4. A match table
// has 32,768 cells, one for each: 0, or 1 + the position of the palette entry that stands for the colour.

#define MATCH_TABLE_CELLS 32768u

/// A new table for uColors entries, each cell 1 + R_FindPaletteIndex for its colour, whose levels are multiples of 8;
/// without entries all of them are 0. Freed with R_FreeUserMatchTable. Null for a null palette and without memory.
R_API R_UINT* R_CreateUserMatchTable(const RGBQUAD* pPalette, R_UINT uColors) R_NOEXCEPT;
/// SUCCESS; null is ignored.
R_API R_INT R_FreeUserMatchTable(R_UINT* puTable) R_NOEXCEPT;
/// Makes a table the calling thread's current one, null for none; returns the former one. Tables stay the caller's.
R_API R_UINT* R_SetUserMatchTable(R_UINT* puTable) R_NOEXCEPT;

#define OPTPAL_SMALL_THRESHOLD 1u ///< a very frequent colour gets an entry of its own in small palettes too

/// The palette that suits the colours of a bitmap, or of all bitmaps of a list: boxes of 15-bit colours are divided
/// where their variance is largest, at the mean, after very frequent colours have been set apart (a variance-based
/// method of the family of Wan, Prusinkiewicz and Wong, "Variance-based color image quantization", 1990).
/// pPalette      out, *puColors entries: those in use ascending by red, green and blue, then zeros
/// puColors      in: entries wanted, 1 to 256; out: entries in use
/// ppMatchTable  out, the table of the colours that are there, to be freed with R_FreeUserMatchTable; may be null
/// Errors: ERROR_FAILURE no memory; ERROR_INV_BITMAP null or no pixels; ERROR_INV_STRUCT_SIZE; ERROR_INV_PARAMETER null
/// outputs, a count outside 1 to 256, unknown flags, significant bits of gray that are none; ERROR_INV_SIZE and
/// ERROR_INV_BITS_PER_PIXEL for a record that cannot be. The outputs are as they were then.
R_API R_INT R_CreateBitmapOptPal(BITMAPHANDLE* pBitmap, RGBQUAD* pPalette, R_UINT* puColors, R_UINT** ppMatchTable,
                                 R_UINT uFlags) R_NOEXCEPT;

// --- Dithering, a row at a time

// BITMAPHANDLE.DitheringMethod. The kernels of error diffusion are the published ones of these names; every row goes
// from left to right.
#define DITHER_NONE 0 ///< the nearest colour
#define DITHER_FLOYD_STEINBERG 1
#define DITHER_STUCKI 2
#define DITHER_BURKES 3
#define DITHER_SIERRA 4
#define DITHER_STEVENSON_ARCE 5
#define DITHER_JARVIS 6
#define DITHER_ORDERED 7   ///< 8 x 8 dispersed dots
#define DITHER_CLUSTERED 8 ///< 8 x 8 clustered dots

/// Starts turning the rows of a bitmap, by its DitheringMethod, into indices of a palette, packed in nDestBitsPerPixel
/// bits (R_StartDithering: the fewest that hold uColors). The state hangs in pDitherData until R_StopDithering, or
/// until the bitmap is freed or gets another image; one that was there at the start is not freed. Entries whose
/// reserved byte has bit 0 or 1 set are never chosen, unless all have.
/// pPalette        copied; null stands for the fixed palette of the number of colours
/// pUserMatchTable null, or a table of the caller's for this palette, used in place of any rule and filled where it
///                 has no answer; positions in it count the entries that can be chosen only
/// Both that table and the bitmap's look-up tables must stay where they are until then.
/// Errors: ERROR_INV_PARAMETER null, uColors outside 1 to 256, another depth, another method, no palette where one
/// is needed, LowBit above HighBit; ERROR_INV_STRUCT_SIZE; ERROR_INV_SIZE a negative width; ERROR_FAILURE no memory.
R_API R_INT R_StartDithering(BITMAPHANDLE* pBitmap, const RGBQUAD* pPalette, R_UINT uColors) R_NOEXCEPT;
R_API R_INT R_StartDitheringExt(BITMAPHANDLE* pBitmap, const RGBQUAD* pPalette, R_UINT uColors, R_INT nDestBitsPerPixel,
                                R_UINT* pUserMatchTable) R_NOEXCEPT;
/// The next row, from top to bottom: pSrcRow in the bitmap's format, pDstRow in the bytes that hold Width indices;
/// bits behind the last become 0. Errors: ERROR_INV_PARAMETER null or not started; ERROR_INV_STRUCT_SIZE.
R_API R_INT R_DitherLine(BITMAPHANDLE* pBitmap, const void* pSrcRow, void* pDstRow) R_NOEXCEPT;
R_API R_INT R_StopDithering(BITMAPHANDLE* pBitmap) R_NOEXCEPT;
/// The calling thread's method for new bitmaps, 7 at the start. ERROR_INV_PARAMETER outside 0 to 8.
R_API R_INT R_DefaultDithering(R_INT nMethod) R_NOEXCEPT;
R_API R_INT R_GetDefaultDithering(void) R_NOEXCEPT;

// --- Colour resolution

// uFlags of R_ColorResBitmap: the palette of a new bitmap of 1 to 8 bits, one of these, ...
#define COLORRES_FIXED 0x0001u     ///< the depth's fixed palette
#define COLORRES_USER 0x0002u      ///< the first uColors entries of pPalette; null: the fixed one
#define COLORRES_WEB_SAFE 0x0008u  ///< the web-safe palette; 8 bits
#define COLORRES_GRAY 0x0010u      ///< an even gray ramp of uColors entries
#define COLORRES_OPTIMIZED 0x0020u ///< made for the picture, of uColors entries at most
#define COLORRES_SOURCE 0x0040u    ///< the source's own entries, uColors at most; up to 8 bits
// ... or the order of one of more bits: neither flag is RGB, and 12 bits are always gray
#define COLORRES_ORDER_BGR 0x0004u
#define COLORRES_ORDER_GRAY 0x0080u ///< 8, 12 and 16 bits; of 8 with the gray palette
// How colours that are not there are made up. Without it the nearest entry is taken, and with gray samples or more than
// 8 bits it does not count.
#define COLORRES_DITHER 0x0100u ///< by the source's DitheringMethod, in the order in which rows are stored

/// A bitmap of another depth, order or palette with the same picture: in pDst, or, where pDst is null or pSrc itself,
/// in the place of the old pixels. Any of the fourteen depths, 1 to 64, from any other, each row as R_ConvertRow or
/// R_DitherLine makes it. Gray samples are read by LowBit and HighBit and through the look-up tables that the source
/// has, which the new bitmap has not; all its bits are significant. Background and Transparency become what pixels of
/// these colours become without dithering. The colours of premultiplied pixels stay so where alpha is lost.
/// uStructSize  pDst's; of no account in place
/// uFlags       0 is COLORRES_FIXED up to 8 bits, RGB above
/// pPalette     for COLORRES_USER; with COLORRES_DITHER the calling thread's current match table is taken to be for it
/// uColors      for COLORRES_USER 1 to all of the depth; else 0 and too many stand for all of the depth
/// Errors: ERROR_INV_PARAMETER null or no pixels, flags that make no sense, dithering indices without a palette, LowBit
/// above HighBit; ERROR_INV_STRUCT_SIZE; ERROR_INV_BITS_PER_PIXEL; ERROR_INV_SIZE; those of R_DupBitmapNewDim and
/// R_CreateBitmapOptPal; a progress callback's answer. pSrc is as it was then.
R_API R_INT R_ColorResBitmap(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize, R_INT nBitsPerPixel,
                             R_UINT uFlags, const RGBQUAD* pPalette, R_UINT uColors) R_NOEXCEPT;

/// Converts uPixels pixels of a row from one bitmap's format to another's, as their records say; neither needs pixels.
/// Samples lose their lower bits, or grow so that black and white stay what they are: v * 257 from 8 to 16 bits, from 5
/// by repeating their bits. Gray has the range of LowBit to HighBit; the source's tables count, the target's do not.
/// Indices are the nearest entries, in bitmaps of gray order those nearest to the luminance. Alpha is opaque where the
/// source has none. The rows are packed as bitmaps hold them and may not overlap; bits behind the last pixel become 0.
/// Errors: ERROR_INV_PARAMETER null, a destination of 1 to 8 bits without a palette, LowBit above HighBit;
/// ERROR_INV_STRUCT_SIZE; ERROR_INV_BITS_PER_PIXEL; ERROR_FAILURE no memory.
R_API R_INT R_ConvertRow(BITMAPHANDLE* pDstFormat, void* pDstRow, BITMAPHANDLE* pSrcFormat, const void* pSrcRow,
                         R_UINT uPixels) R_NOEXCEPT;

// --- Gray, look-up tables and alpha

/// 0 not gray; 1 gray from black to white; 2 from white to black; 3 gray in another order: by the palette up to 8 bits
/// (without one 0); 12 bits, and 16 of gray order, are 1, whatever a table makes of them, and other 16 bits 0; 24 and
/// more bits are 1 where the samples of every pixel are equal. ERROR_INV_BITMAP null or no pixels;
/// ERROR_INV_STRUCT_SIZE; ERROR_INV_SIZE; ERROR_FAILURE no memory.
R_API R_INT R_IsGrayScaleBitmap(BITMAPHANDLE* pBitmap) R_NOEXCEPT;
/// Makes the bitmap gray, of 8, 12 or 16 bits: luminance (2R + 5G + B + 4) >> 3 of 8-bit samples, and the same sum of
/// 16-bit ones for 12 and 16 bits. Gray is read through its tables, which are let go then; all bits are significant.
/// Background and Transparency become gray too.
/// Errors: ERROR_INV_PARAMETER null or no pixels, LowBit above HighBit; ERROR_INV_STRUCT_SIZE; ERROR_INV_SIZE;
/// ERROR_INV_BITS_PER_PIXEL; those of R_DupBitmapNewDim; a progress callback's answer. The bitmap is as it was then.
R_API R_INT R_GrayScaleBitmap(BITMAPHANDLE* pBitmap, R_INT nBitsPerPixel) R_NOEXCEPT;
/// Replaces the samples of a bitmap of gray order by what its look-up tables make of them: pLUT, and pLUT16 where that
/// has no entry; the tables are let go then. Samples past both stay what they are. 8-bit entries make a gray of 8 bits,
/// or 24 bits where an entry is a colour; 16-bit ones that count 16 bits or 48. ERROR_INV_PARAMETER null, no pixels, no
/// gray order or no entries; else as of R_GrayScaleBitmap.
R_API R_INT R_ApplyBitmapLUT(BITMAPHANDLE* pBitmap) R_NOEXCEPT;
/// Reads the alpha of a bitmap of 32 or 64 bits into a new gray bitmap of 8 or 16, and writes a bitmap of the same size
/// and of 8 bits, or 16 of gray order, as its alpha: the luminance that it shows, or its samples where 8 bits have no
/// palette. Rows are taken as they are stored; colours stay what they are, premultiplied or not.
/// Errors: ERROR_INV_PARAMETER null or no pixels, pDst is pSrc, other depths or sizes; ERROR_INV_STRUCT_SIZE;
/// ERROR_INV_SIZE; those of R_DupBitmapNewDim; ERROR_FAILURE no memory, and nothing is written; a progress callback's
/// answer, and whole rows are old or new.
R_API R_INT R_GetBitmapAlpha(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize) R_NOEXCEPT;
R_API R_INT R_SetBitmapAlpha(BITMAPHANDLE* pBitmap, BITMAPHANDLE* pAlpha) R_NOEXCEPT;
/// Multiplies the colours of a bitmap of 32 or 64 bits by its alpha, or divides them again, and sets
/// FLAG_PREMULTIPLY_ALPHA or clears it; a bitmap that is so already is left alone. Rounded to nearest; what has no
/// alpha becomes black, and a colour above its alpha white. In place: whole rows are old or new when it fails.
/// Errors: ERROR_INV_PARAMETER null or no pixels, another depth; ERROR_INV_STRUCT_SIZE; ERROR_INV_SIZE; ERROR_FAILURE
/// no memory; a progress callback's answer.
R_API R_INT R_PremultiplyBitmap(BITMAPHANDLE* pBitmap) R_NOEXCEPT;
R_API R_INT R_UnpremultiplyBitmap(BITMAPHANDLE* pBitmap) R_NOEXCEPT;

#endif
