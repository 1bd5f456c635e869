/// Operations on whole bitmaps that move pixels, and the progress of long operations.
#ifndef R_GEOMETRY_H
#define R_GEOMETRY_H

#include "R_Bitmap.h"

/// Progress of a long operation in percent; any answer but 1 ends the operation and is its result.
typedef R_INT (*STATUSCALLBACK)(R_INT nPercent, void* pUserData);

/// The calling thread's progress callback (null: none). The former pair goes to the pointers that are not null.
R_API R_INT R_SetStatusCallBack(STATUSCALLBACK pfnCallback, void* pUserData, STATUSCALLBACK* ppfnOld,
                                void** ppOldUserData) R_NOEXCEPT;
R_API STATUSCALLBACK R_GetStatusCallBack(void** ppUserData) R_NOEXCEPT;
/// The same for the copy family alone.
R_API R_INT R_SetCopyStatusCallBack(STATUSCALLBACK pfnCallback, void* pUserData, STATUSCALLBACK* ppfnOld,
                                    void** ppOldUserData) R_NOEXCEPT;
R_API STATUSCALLBACK R_GetCopyStatusCallBack(void** ppUserData) R_NOEXCEPT;

// --- Copies

// uFlags of R_DupBitmapNewDim.
#define DUP_ALLOCATE 0x01u        ///< places the pixels, which start as zeros, as the source's are placed
#define DUP_PALETTE 0x02u         ///< a palette of its own; without it the source's is shared
#define DUP_REPLACES_SOURCE 0x40u ///< begins a copy of a bitmap with callbacks, which will take the source's place
#define DUP_NEW_BITMAP 0x80u      ///< begins such a copy, which will stand beside the source

/// Makes pDst a bitmap shaped like pSrc with other dimensions: nBitsPerPixel one of the fourteen depths, nWidth and
/// nHeight in pixels. It takes over perspective, order (24 bits of a gray source: ORDER_BGR), resolution, gray range,
/// look-up tables (shared), palette, transparent and background colour, animation fields and the flags that describe
/// pixels. Region, overlays, extra data and dither state stay behind; the lock count is 0. Bits 0x04 to 0x20 are
/// accepted and change nothing.
/// Undone with R_FreeDuplicateBitmap.
/// Errors: ERROR_INV_BITMAP null or a source without pixels; ERROR_INV_PARAMETER the source itself;
/// ERROR_INV_STRUCT_SIZE; those of R_InitBitmap and R_AllocateBitmap; ERROR_FAILURE no memory; what the source's
/// callback answers. pDst then owns nothing.
R_API R_INT R_DupBitmapNewDim(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize, R_INT nWidth, R_INT nHeight,
                              R_INT nBitsPerPixel, R_UINT uFlags) R_NOEXCEPT;

/// A new bitmap in pDst with pSrc's pixels, format and placement; R_CopyBitmap2: placed as the MEM_ flags say. pDst is
/// an empty record, or one whose content may be lost; pSrc itself changes nothing and succeeds.
/// Errors: ERROR_INV_PARAMETER null or a source without pixels; ERROR_INV_STRUCT_SIZE; those of R_DupBitmapNewDim and
/// R_CopyBitmapData: pDst owns nothing then.
R_API R_INT R_CopyBitmap(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize) R_NOEXCEPT;
R_API R_INT R_CopyBitmap2(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize, R_UINT uMemory) R_NOEXCEPT;

/// Copies the rows that both bitmaps have, bytes as they are: the two are of one format. Shorter rows of pDst take what
/// they have room for; what longer ones have more becomes zeros. Progress goes to the copy status callback.
/// Errors: ERROR_INV_BITMAP null or no pixels; ERROR_INV_STRUCT_SIZE; ERROR_INV_SIZE; ERROR_INV_BITS_PER_PIXEL;
/// ERROR_FAILURE no memory; a store's own; a progress callback's answer. Rows that were copied stay.
R_API R_INT R_CopyBitmapData(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc) R_NOEXCEPT;

/// A new bitmap in pDst with the pixels of a rectangle in stored rows and columns, which lies inside pSrc. Where pDst
/// is null or pSrc itself, the rectangle takes pSrc's place. R_CopyBitmapRect2: placed as the MEM_ flags say. Errors:
/// ERROR_INV_PARAMETER null or a source without pixels, a rectangle not inside; ERROR_INV_STRUCT_SIZE; those of
/// R_DupBitmapNewDim, ERROR_INV_SIZE for an empty rectangle; a progress callback's answer. pSrc is as it was then.
/// Callbacks that hold the rows of pSrc are given its new ones last: where they refuse, it is the new image all the
/// same, and their answer is the result.
R_API R_INT R_CopyBitmapRect(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize, R_INT nCol, R_INT nRow,
                             R_UINT uWidth, R_UINT uHeight) R_NOEXCEPT;
R_API R_INT R_CopyBitmapRect2(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize, R_INT nCol, R_INT nRow,
                              R_UINT uWidth, R_UINT uHeight, R_UINT uMemory) R_NOEXCEPT;
/// Replaces the bitmap by what of the rectangle lies inside it.
/// Errors: ERROR_INV_PARAMETER null or no pixels; ERROR_INV_SIZE nothing lies inside; those of R_CopyBitmapRect.
R_API R_INT R_TrimBitmap(BITMAPHANDLE* pBitmap, R_INT nCol, R_INT nRow, R_UINT uWidth, R_UINT uHeight) R_NOEXCEPT;

/// Copies what tells which bits of a gray sample count, its range of values and its look-up tables (shared).
/// Errors: ERROR_INV_PARAMETER null; ERROR_INV_STRUCT_SIZE.
R_API R_INT R_CopyGrayParams(BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc) R_NOEXCEPT;

// --- Combining

// uFlags of R_CombineBitmapKrn: a source, a destination, an operation and a result.
#define COMBINE_SRC_NOP 0x0000u
#define COMBINE_SRC_NOT 0x0001u
#define COMBINE_SRC_0 0x0002u ///< all bits 0
#define COMBINE_SRC_1 0x0003u ///< all bits 1
#define COMBINE_DST_NOP 0x0000u
#define COMBINE_DST_NOT 0x0010u
#define COMBINE_DST_0 0x0020u
#define COMBINE_DST_1 0x0030u
#define COMBINE_AND 0x0000u
#define COMBINE_OR 0x0100u
#define COMBINE_XOR 0x0200u
#define COMBINE_ADD 0x0300u     ///< saturating
#define COMBINE_SUB_SRC 0x0400u ///< destination - source, at least 0
#define COMBINE_SUB_DST 0x0500u ///< source - destination, at least 0
#define COMBINE_MUL 0x0600u     ///< destination * source / maximum
#define COMBINE_DIV_SRC 0x0700u ///< destination * maximum / source
#define COMBINE_DIV_DST 0x0800u ///< source * maximum / destination
#define COMBINE_AVG 0x0900u
#define COMBINE_MIN 0x0A00u
#define COMBINE_MAX 0x0B00u
#define COMBINE_SRC_OVER 0x0D00u ///< copy; where pixels carry alpha, source over destination
#define COMBINE_RES_NOP 0x0000u
#define COMBINE_RES_NOT 0x1000u
#define COMBINE_RES_0 0x2000u
#define COMBINE_RES_1 0x3000u

/// Combines the rectangle of pSrc at (nXSrc, nYSrc) into that of pDst at (nXDst, nYDst), which is as large. Positions
/// are on the displayed images; a rectangle that reaches outside its bitmap is cut, and the other one alike. Both
/// bitmaps are of one depth, and their pixels are taken as they are stored: orders and palettes are not compared. pSrc
/// may be pDst or share its pixels: all are read as they were before the call. Where the flags leave the source out,
/// pSrc may be null, and no more than its structure size is looked at. AND, OR and XOR and every operation on 1-bit
/// bitmaps work on the stored bits: samples, indices and alpha alike. The others work on samples: palette indices, the
/// 5-bit components of 16-bit colour (whose spare bit becomes 0), gray samples up to 2^(HighBit + 1) - 1, bytes, or
/// 16-bit words; dividing by 0 gives the maximum. There NOT inverts before the operation all bits of the byte or word
/// that a sample is taken into, of which the sample's low bits are kept in the end, and after it all bits of the pixel;
/// 0 and 1 count only where they leave nothing else to look at. COMBINE_SRC_OVER leaves the alpha of pDst as it is.
/// Memory is taken before the first pixel changes; an aborted or failed call leaves whole rows, old or new. Where pDst
/// has a region, only pixels inside it change. Progress goes by the rectangle's rows, after that of turning a source
/// whose rows are pDst's columns; flags that change nothing report 0 and 100.
/// Errors: ERROR_INV_PARAMETER null or no pixels, unknown flags, nothing left of the rectangle, different depths, a
/// source that is needed and missing; ERROR_INV_STRUCT_SIZE; ERROR_INV_SIZE; ERROR_INV_BITS_PER_PIXEL; ERROR_FAILURE no
/// memory; a store's own; a progress callback's or a region hook's answer.
R_API R_INT R_CombineBitmapKrn(BITMAPHANDLE* pDst, R_INT nXDst, R_INT nYDst, R_INT nWidth, R_INT nHeight,
                               BITMAPHANDLE* pSrc, R_INT nXSrc, R_INT nYSrc, R_UINT uFlags) R_NOEXCEPT;

// --- Painting

/// Gives every pixel of the bitmap, or of its region, a colour: any colour value; the nearest that the bitmap has is
/// stored. R_FillBitmap2: with this alpha where pixels carry alpha; R_FillBitmap with 255. R_ClearBitmap: zero bytes.
/// Without a region whole rows are written: what they have behind their last pixel becomes zeros. An empty region is no
/// work, and no progress is told. Otherwise it is by rows where FLAG_DISK_MEMORY is set, else 0 and 100.
/// Errors: ERROR_INV_PARAMETER null or no pixels; ERROR_INV_STRUCT_SIZE; ERROR_INV_SIZE; ERROR_INV_BITS_PER_PIXEL;
/// ERROR_FAILURE no memory, and nothing has changed; a store's own; a progress callback's or a region hook's answer.
R_API R_INT R_FillBitmap(BITMAPHANDLE* pBitmap, COLORREF crFill) R_NOEXCEPT;
R_API R_INT R_FillBitmap2(BITMAPHANDLE* pBitmap, COLORREF crFill, R_UCHAR uAlpha) R_NOEXCEPT;
R_API R_INT R_ClearBitmap(BITMAPHANDLE* pBitmap) R_NOEXCEPT;

// --- Turns

/// Turn the displayed image upside down, or mirror it left to right, by moving pixels in place. All memory is taken
/// before the first pixel moves; an aborted or failed call leaves whole rows, old or new.
/// Errors: ERROR_INV_PARAMETER null (R_FlipBitmap: or no pixels); ERROR_INV_BITMAP no pixels; ERROR_INV_STRUCT_SIZE;
/// ERROR_INV_SIZE rows that cannot hold the width; ERROR_INV_BITS_PER_PIXEL; ERROR_FAILURE no memory; a progress
/// callback's answer; a region hook's, when the pixels have moved and the region could not.
R_API R_INT R_FlipBitmap(BITMAPHANDLE* pBitmap) R_NOEXCEPT;
R_API R_INT R_ReverseBitmap(BITMAPHANDLE* pBitmap) R_NOEXCEPT;

/// The same turns without moving a pixel: only ViewPerspective changes; a value outside 1 to 8 stays.
R_API R_INT R_FlipBitmapViewPerspective(BITMAPHANDLE* pBitmap) R_NOEXCEPT;
R_API R_INT R_ReverseBitmapViewPerspective(BITMAPHANDLE* pBitmap) R_NOEXCEPT;

/// How an image in perspective nFrom becomes one in nTo: turned upside down where *pbFlip is 1, then clockwise by
/// *pnAngle degrees, 0 to 270. ERROR_INV_PARAMETER null, or a perspective outside 1 to 8.
R_API R_INT R_GetChangeViewPerspectiveParams(R_INT nFrom, R_INT nTo, R_INT* pbFlip, R_INT* pnAngle) R_NOEXCEPT;

/// Converts a rectangle (right and bottom exclusive) of an image of nWidth x nHeight from one perspective to another.
/// Perspectives outside 1 to 8 leave it as it is. ERROR_INV_PARAMETER null.
R_API R_INT R_ChangeRectViewPerspective(R_INT nFrom, R_INT nWidth, R_INT nHeight, R_INT nTo, RECT* pRect) R_NOEXCEPT;

/// Convert a point or a rectangle between a given perspective and the bitmap's.
/// To: from nViewPerspective into the bitmap's, by the displayed width and height, which for 6 and 8 are exchanged once
/// more (not for 5 and 7: kept). From: the other way, by the stored width and height.
/// Errors: ERROR_INV_PARAMETER null, and for points a perspective outside 1 to 8; ERROR_INV_STRUCT_SIZE.
R_API R_INT R_PointToBitmap(BITMAPHANDLE* pBitmap, R_INT nViewPerspective, R_INT* px, R_INT* py) R_NOEXCEPT;
R_API R_INT R_PointFromBitmap(BITMAPHANDLE* pBitmap, R_INT nViewPerspective, R_INT* px, R_INT* py) R_NOEXCEPT;
R_API R_INT R_RectToBitmap(BITMAPHANDLE* pBitmap, R_INT nViewPerspective, RECT* pRect) R_NOEXCEPT;
R_API R_INT R_RectFromBitmap(BITMAPHANDLE* pBitmap, R_INT nViewPerspective, RECT* pRect) R_NOEXCEPT;

/// Rearranges the pixels so that the bitmap shows the same image in another perspective: in pDst, a new bitmap, or
/// where pDst is null or pSrc itself, in place of the old pixels (uStructSize does not count then). Where rows become
/// columns, width and height change places, and so do the resolutions, which go with the stored pixels. Rows that lie
/// in memory and stay rows are turned where they are, the others into new pixels, placed as the old ones.
/// Errors: ERROR_INV_PARAMETER null or no pixels, a perspective outside 1 to 8; ERROR_INV_STRUCT_SIZE; ERROR_INV_SIZE;
/// ERROR_INV_BITS_PER_PIXEL; those of R_DupBitmapNewDim; a progress callback's answer. pSrc is as it was then, but for
/// bits behind a row's last pixel. In place a mere flip of the rows flips the region too; what its hook answers counts.
R_API R_INT R_ChangeBitmapViewPerspective(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize,
                                          R_INT nViewPerspective) R_NOEXCEPT;

/// Reverses the order of the first uWidth pixels of a row, in place; bits behind them in the last byte become 0.
/// ERROR_INV_PARAMETER for null; any other depth than the fourteen does nothing and succeeds.
R_API R_INT R_MirrorLine(void* pRow, R_UINT uWidth, R_INT nBitsPerPixel) R_NOEXCEPT;

// --- Rotation
//
// Angles are hundredths of a degree, 36000 to the turn.

/// Sine and cosine x 16384, rounded to the nearest integer. The angle is not checked: 0 to 35999.
R_API R_INT R_SinValue(R_INT nAngle) R_NOEXCEPT;
R_API R_INT R_CosValue(R_INT nAngle) R_NOEXCEPT;

// uFlags of R_RotateBitmap.
#define ROTATE_RESIZE 0x01u ///< the bitmap becomes as large as the turned image is
#define ROTATE_BILINEAR                                                                                                \
    0x02u                   ///< pixels between four others are weighed; without it the one that holds the point counts
#define ROTATE_CENTER 0x08u ///< about the given point, and resized as with ROTATE_RESIZE
#define ROTATE_ALPHA 0x10u  ///< the fill's top byte is its alpha and the rest is RGB; without it alpha is 255

/// Turns the displayed image about its centre, positive angles clockwise. Perspectives other than top-left and
/// bottom-left become one of these. Without ROTATE_RESIZE the stored size stays and corners are cut off. Quarter turns
/// that fit and half turns are exact; otherwise each new pixel's centre is turned back, in 14-bit fixed point, and the
/// old pixel that holds the point is taken. New pixels whose point no old one holds are crFill, any colour value.
/// With ROTATE_BILINEAR the four pixels whose centres lie around the point are weighed, at the picture's edge those
/// that there are: indices as colours, which become the nearest entries, colours by their alpha unless it is multiplied
/// into them, gray by its significant bits, with their sign. Indices without a palette are never weighed. A region
/// turns along where the display module can turn it (DISDISPATCH.RotateRegion). Errors: ERROR_INV_STRUCT_SIZE;
/// ERROR_INV_BITMAP null or no pixels; ERROR_INV_PARAMETER unknown flags, a perspective that is none, LowBit above
/// HighBit where gray is weighed; ERROR_INV_SIZE; ERROR_INV_BITS_PER_PIXEL; ERROR_FLOAT_NOT_SUPPORTED pixels of
/// floating point to be weighed; those of R_DupBitmapNewDim; a region hook's or a progress callback's answer. The
/// bitmap is as it was then.
R_API R_INT R_RotateBitmap(BITMAPHANDLE* pBitmap, R_INT nAngle, R_UINT uFlags, COLORREF crFill) R_NOEXCEPT;

/// A quarter turn of the displayed image: nDirection 0 counter-clockwise, 1 clockwise. Width and height change places,
/// and so do the resolutions; the perspective stays. Progress runs from nFirst to nLast percent. Errors as above;
/// ERROR_INV_PARAMETER another direction.
R_API R_INT R_RotateBitmap90(BITMAPHANDLE* pBitmap, R_INT nDirection, R_INT nFirst, R_INT nLast) R_NOEXCEPT;

/// The same turn, by multiples of 9000, without moving a pixel: only ViewPerspective changes.
/// Errors: ERROR_INV_BITMAP null; ERROR_INV_STRUCT_SIZE; ERROR_INV_PARAMETER another angle or perspective.
R_API R_INT R_RotateBitmapViewPerspective(BITMAPHANDLE* pBitmap, R_INT nAngle) R_NOEXCEPT;

/// Turn nHeight rows of nWidth pixels in memory, uSrcBytesPerRow apart, by a quarter (nDirection 0 counter-clockwise, 1
/// clockwise) into nWidth rows of nHeight pixels, or by a half into as many as before. Bits behind the last pixel of a
/// new row become 0. The blocks lie apart; for the half turn they may be one, with the same pitch.
/// Errors: ERROR_INV_PARAMETER null, a size below 1, another direction, a pitch that cannot hold a row;
/// ERROR_INV_BITS_PER_PIXEL.
R_API R_INT R_RotateBuffer90(void* pDst, R_SIZE uDstBytesPerRow, const void* pSrc, R_SIZE uSrcBytesPerRow, R_INT nWidth,
                             R_INT nHeight, R_INT nBitsPerPixel, R_INT nDirection) R_NOEXCEPT;
R_API R_INT R_RotateBuffer180(void* pDst, R_SIZE uDstBytesPerRow, const void* pSrc, R_SIZE uSrcBytesPerRow,
                              R_INT nWidth, R_INT nHeight, R_INT nBitsPerPixel) R_NOEXCEPT;

// --- Shear and warp

// uFlags of R_ShearBitmap and R_WarpBitmap.
#define SHEAR_VERTICAL 0x01u ///< columns move up or down; without it rows move sideways
#define SHEAR_BILINEAR 0x02u
#define SHEAR_ALPHA 0x10u ///< as ROTATE_ALPHA
#define WARP_BILINEAR 0x02u
#define WARP_ALPHA 0x10u

/// Shears the displayed image by an angle between -8900 and 8900: a positive one moves the upper rows to the right, or
/// the right columns down. The bitmap grows by what the outermost row moves; uncovered pixels are crFill.
/// Errors: ERROR_INV_PARAMETER null or no pixels, another angle, unknown flags or perspective; else as R_RotateBitmap.
R_API R_INT R_ShearBitmap(BITMAPHANDLE* pBitmap, R_INT nAngle, R_UINT uFlags, COLORREF crFill) R_NOEXCEPT;

/// A point on a picture; pixel (0, 0) reaches from 0.0 to 1.0.
typedef struct R_POINTF {
    double x;
    double y;
} R_POINTF;

/// Takes the picture inside a quadrilateral of the displayed image, such as a sheet that was photographed at an angle,
/// as a rectangle of nWidth x nHeight: in pDst, or, where pDst is null or pSrc itself, in the place of the old pixels.
/// Straight lines stay straight (the projective mapping of four points: P. Heckbert, "Fundamentals of Texture Mapping
/// and Image Warping", 1989, section 2.2.3).
/// pCorners  top left, top right, bottom right, bottom left of the sheet; they may lie outside, where pixels are crFill
/// nWidth, nHeight  as displayed; 0: the longer of the two sides of the sheet, rounded
/// Errors: ERROR_INV_PARAMETER null or no pixels, unknown flags or perspective, corners that are no convex
/// quadrilateral or 2^30 away; ERROR_INV_STRUCT_SIZE; ERROR_INV_SIZE, also a negative size; ERROR_INV_BITS_PER_PIXEL;
/// those of R_DupBitmapNewDim; a progress callback's answer. pSrc is as it was then.
R_API R_INT R_WarpBitmap(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize, const R_POINTF* pCorners,
                         R_INT nWidth, R_INT nHeight, R_UINT uFlags, COLORREF crFill) R_NOEXCEPT;

// --- Resizing

// uFlags of R_SizeBitmap. 0 repeats and leaves out pixels: column x is the old one floor(x * old width / new width),
// and old row r is there floor((r + 1) * new height / old height) - floor(r * new height / old height) times. Flags
// that make no sense of a bitmap do not count: the first and SIZE_TO_GRAY are for gray 1-bit bitmaps, and leave
// SIZE_BILINEAR out there. Of several ways SIZE_AREA goes before SIZE_BICUBIC, both before SIZE_BILINEAR, and all
// before those for pages.
#define SIZE_FAVOR_BLACK                                                                                               \
    0x01u                   ///< 1-bit pages: black strokes survive shrinking, as a pixel is black that covers a
                            ///< black pixel for each of its box's side, the square root of its area, cut
#define SIZE_BILINEAR 0x02u ///< weighs the four pixels around each point
#define SIZE_BICUBIC 0x04u  ///< natural cubic splines through the pixels, where the bitmap grows; else SIZE_BILINEAR
#define SIZE_TO_GRAY 0x08u  ///< 1-bit pages become 8-bit gray: how black the covered area is
#define SIZE_AREA 0x10u     ///< weighs all pixels that a new one covers; bilinear in a direction that grows
#define SIZE_ALPHA 0x20u    ///< 32 and 64 bits: colours are weighed by their alpha

/// Gives a bitmap other dimensions, of its stored rows and columns. With one of the weighing flags indices are weighed
/// as colours and become the nearest entries, and gray, 48 and 64 bits keep their full precision.
/// Where the display module can (DISDISPATCH.ScaleRegion), a region is scaled.
/// Errors: ERROR_INV_PARAMETER null or no pixels, a size below 1; ERROR_INV_STRUCT_SIZE; ERROR_INV_SIZE;
/// ERROR_INV_BITS_PER_PIXEL; ERROR_FLOAT_NOT_SUPPORTED samples of floating point that would be weighed; those of
/// R_DupBitmapNewDim; a region hook's or a progress callback's answer. The bitmap is as it was then.
R_API R_INT R_SizeBitmap(BITMAPHANDLE* pBitmap, R_INT nNewWidth, R_INT nNewHeight, R_UINT uFlags) R_NOEXCEPT;
/// Fills an allocated bitmap of another size, perspective or depth with the image of pSrc. Pixels of the same depth are
/// taken as they are stored: orders and palettes are not compared, but what has been weighed is looked up in pDst's
/// palette. Where the depths differ, SIZE_TO_GRAY counts as SIZE_BILINEAR above 1 bit. Each step, of turning,
/// converting and resizing, tells its own progress; a failure leaves whole rows of pDst, old or new. Its region is
/// scaled last. Errors as above, and ERROR_INV_PARAMETER null; ERROR_FLOAT_NOT_SUPPORTED: pixels of floating point that
/// would need another depth.
R_API R_INT R_ResizeBitmap(BITMAPHANDLE* pSrc, BITMAPHANDLE* pDst, R_UINT uFlags) R_NOEXCEPT;

// A source that gives its rows one at a time.

/// Begins to resize rows; *ppState is given to the other calls and ends with R_StopResize. A new width or height of 0
/// keeps the picture's proportions, rounded to nearest, ties to even.
/// Errors: ERROR_INV_PARAMETER null, sizes that make no picture; ERROR_FAILURE no memory.
R_API R_INT R_StartResize(R_INT nOldWidth, R_INT nOldHeight, R_INT nNewWidth, R_INT nNewHeight,
                          void** ppState) R_NOEXCEPT;
/// Resizes a row in its own buffer, which has room for the longer one. *pnRepeat, and the answer, tell how many times
/// it is to be written: 0 for one that is left out, and is not touched then. Rows come in any order; from the last one
/// upwards it can be one row more in all, so that callers stop at the new height.
/// Errors: ERROR_INV_PARAMETER null, a row that is none, a state that is none; ERROR_INV_BITS_PER_PIXEL.
R_API R_INT R_Resize(void* pRow, R_INT nRow, R_INT nBitsPerPixel, R_INT* pnNewWidth, R_INT* pnRepeat,
                     void* pState) R_NOEXCEPT;
/// SUCCESS; null is ignored. ERROR_INV_PARAMETER a state that is none.
R_API R_INT R_StopResize(void* pState) R_NOEXCEPT;

/// Picks pixels of a row: from pixel uFirst on, by nStep and, whenever the error, which begins with uError and grows by
/// uIncrement, reaches uDenominator, by one more. uUnitStep, bGrows: nStep counts as 0. The two rows may be one: a row
/// that shrinks, and, with the reverse one and bGrows, which goes from the last new pixel to the first, a row that
/// grows. Where pixels are smaller than bytes or have 12 bits, what of uRowBytes lies behind the new pixels becomes 0.
/// Nothing happens for a null row or a depth that is none.
R_API void R_GetResizedScanLine(R_INT nBitsPerPixel, R_UINT uRowBytes, R_UINT uFirst, R_INT nStep, R_UINT uError,
                                R_UINT uIncrement, const void* pSrc, void* pDst, R_UINT uPixels, R_UINT uDenominator,
                                R_UINT uUnitStep) R_NOEXCEPT;
R_API void R_ReverseGetResizedScanLine(R_INT nBitsPerPixel, R_UINT uRowBytes, R_UINT uFirst, R_INT nStep, R_UINT uError,
                                       R_UINT uIncrement, const void* pSrc, void* pDst, R_UINT uPixels,
                                       R_UINT uDenominator, R_UINT bGrows) R_NOEXCEPT;

// A resized bitmap that is never made as a whole.

/// Begins to read a bitmap as R_SizeBitmap would make it, with the same flags. R_StartResizeBitmap2: only a rectangle
/// of its stored rows and columns, null for all of them; where pFormat is not null it becomes a bitmap without pixels
/// in the format and size of the new rows (freed with R_FreeBitmap). The bitmap stays as it is, and stays, until
/// R_StopResizeBitmap. Memory: some rows of either size; splines keep a block of rows as floats.
/// Errors: ERROR_INV_PARAMETER null or no pixels, sizes below 1, a rectangle not inside; ERROR_INV_STRUCT_SIZE;
/// ERROR_INV_SIZE; ERROR_INV_BITS_PER_PIXEL; ERROR_FAILURE no memory.
R_API R_INT R_StartResizeBitmap(BITMAPHANDLE* pBitmap, R_INT nNewWidth, R_INT nNewHeight, R_UINT uFlags,
                                void** ppState) R_NOEXCEPT;
R_API R_INT R_StartResizeBitmap2(BITMAPHANDLE* pBitmap, const RECT* pSource, R_INT nNewWidth, R_INT nNewHeight,
                                 R_UINT uFlags, BITMAPHANDLE* pFormat, R_UINT uStructSize, void** ppState) R_NOEXCEPT;
/// Reads uBytes bytes of a new row, from the byte that holds column nCol on, or as many as there are; a row has as many
/// as one of a bitmap of that format. Rows in order are fastest; any order gives the same pixels. Returns the number of
/// bytes. Errors: ERROR_INV_PARAMETER null, a row or column that is not there, a state that is none; a store's own.
R_API R_SSIZE R_GetResizedRowCol(void* pState, void* pBuffer, R_INT nRow, R_INT nCol, R_SIZE uBytes) R_NOEXCEPT;
/// SUCCESS, or what releasing the bitmap answers; null is ignored. ERROR_INV_PARAMETER a state that is none.
R_API R_INT R_StopResizeBitmap(void* pState) R_NOEXCEPT;

#endif
