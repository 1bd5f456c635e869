/// Rows and pixels: the one road between callers and a bitmap's pixels, whatever their placement.
///
/// Rows are stored rows: row N is the N-th stored one in every view perspective. Packed rows of less than 8 bits and
/// of 12 bits are one stream, most significant bit first.
#ifndef R_ROWS_H
#define R_ROWS_H

#include "R_Bitmap.h"

/// Move uBytes bytes between a buffer and a row, from its first byte (RowCol: from the byte that holds column nCol).
/// They trust their caller: row, column and count are not checked against the bitmap.
/// Return the number of bytes moved, or a negative status: ERROR_INV_PARAMETER null; ERROR_INV_STRUCT_SIZE;
/// ERROR_INV_BITMAP no pixels; a store's own. A row callback's answer other than 0 is returned unchanged.
/// On disk: ERROR_FILE_LSEEK a place that the file does not have, ERROR_FILE_READ, ERROR_FILE_WRITE,
/// ERROR_NO_DISK_SPACE. Rows that were written may wait in memory until the last access is released; when they cannot
/// be put in their place, the call that tried says so, and they go on waiting.
R_API R_SSIZE R_GetBitmapRow(BITMAPHANDLE* pBitmap, void* pBuffer, R_INT nRow, R_SIZE uBytes) R_NOEXCEPT;
R_API R_SSIZE R_PutBitmapRow(BITMAPHANDLE* pBitmap, void* pBuffer, R_INT nRow, R_SIZE uBytes) R_NOEXCEPT;
R_API R_SSIZE R_GetBitmapRowCol(BITMAPHANDLE* pBitmap, void* pBuffer, R_INT nRow, R_INT nCol, R_SIZE uBytes) R_NOEXCEPT;
R_API R_SSIZE R_PutBitmapRowCol(BITMAPHANDLE* pBitmap, void* pBuffer, R_INT nRow, R_INT nCol, R_SIZE uBytes) R_NOEXCEPT;

/// Writes pieces of a row; pixels between the pieces keep their value, at every depth.
/// pRow       pixels packed as in the bitmap; the first is that of column nCol
/// pSegments  uSegments pieces in columns of the bitmap; each is cut to the row and to columns from nCol on
/// Returns SUCCESS; ERROR_INV_PARAMETER null pointers, a row outside or a negative column; ERROR_INV_STRUCT_SIZE;
/// ERROR_INV_SIZE a record whose rows cannot hold its width; ERROR_INV_BITS_PER_PIXEL; ERROR_INV_BITMAP no pixels;
/// ERROR_FAILURE no memory.
R_API R_INT R_PutBitmapRowSegments(BITMAPHANDLE* pBitmap, const void* pRow, R_INT nRow, R_INT nCol,
                                   const R_SEGMENT* pSegments, R_UINT uSegments) R_NOEXCEPT;

/// One pixel's stored bits. pData has uBytes bytes, at least the pixel's own (1 below 9 bits, 2 up to 16, then 3, 4,
/// 6 or 8); the bits of a pixel of less than 8 or of 12 bits stand right-aligned in a byte or a 16-bit word.
/// Return SUCCESS; ERROR_INV_PARAMETER null, too few bytes, or a position outside the bitmap;
/// ERROR_INV_STRUCT_SIZE; ERROR_INV_BITMAP no pixels; ERROR_INV_SIZE.
R_API R_INT R_GetPixelData(BITMAPHANDLE* pBitmap, void* pData, R_INT nRow, R_INT nCol, R_SIZE uBytes) R_NOEXCEPT;
R_API R_INT R_PutPixelData(BITMAPHANDLE* pBitmap, void* pData, R_INT nRow, R_INT nCol, R_SIZE uBytes) R_NOEXCEPT;

/// One pixel as a colour value: RGB above 8 bits, 0x01000000 | index for palette bitmaps, 0x04000000 | level for
/// gray of 9 to 16 bits. Get returns 0 when it fails. Put takes any colour value and stores the nearest this bitmap
/// has; alpha keeps its value.
R_API COLORREF R_GetPixelColor(BITMAPHANDLE* pBitmap, R_INT nRow, R_INT nCol) R_NOEXCEPT;
R_API R_INT R_PutPixelColor(BITMAPHANDLE* pBitmap, R_INT nRow, R_INT nCol, COLORREF crColor) R_NOEXCEPT;

#endif
