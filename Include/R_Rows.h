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
/// Super-compressed: ERROR_MEMORY_LIMIT or ERROR_FAILURE when there is no memory to pack rows that were written before,
/// which make room for this one. They are kept, and packed by a later call.
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

/// Rows of 1 bit as runs: lengths that alternate in colour, the first one of zeros, and so 0 where a row begins with a
/// one. They sum to the row's pixels. A run of more than 65,535 pixels goes on after a run of 0 of the other colour: it
/// is closed at the last byte border of the row that it can reach, so that 70,000 zeros from column 0 are 65,528, 0,
/// 4,472 and from column 3 65,533, 0, 4,467. A row of n pixels has at most n + 1 runs, where it begins with a one and
/// every pixel differs from the last; there is no end mark. Runs need not be aligned.
///
/// pRow     packed rows, most significant bit first
/// nCol     the column of the first pixel, counted from *pRow
/// nPixels  the pixels of a row
///
/// R_CompressRow writes the row's runs and nothing past them. R_ExpandRow writes nPixels pixels; bits outside them keep
/// their value. Runs that hold more are cut; what runs lack, their room or n + 1 of them being used up, becomes zeros,
/// and the call fails.
/// The plural forms do so for nRows rows: runs uRunBytesPerRow bytes apart, which are a row's room, and packed rows
/// uBytesPerRow bytes apart. Rows before the one that fails are done.
/// Return nPixels; ERROR_INV_PARAMETER null, a negative column or count, or runs that end too soon;
/// ERROR_BUFFER_TOO_SMALL runs that do not fit in uRunBytesPerRow, or uBytesPerRow that cannot hold the columns.
R_API R_INT R_CompressRow(R_UINT16* pRuns, R_UCHAR* pRow, R_INT nCol, R_INT nPixels) R_NOEXCEPT;
R_API R_INT R_ExpandRow(const R_UINT16* pRuns, R_UCHAR* pRow, R_INT nCol, R_INT nPixels) R_NOEXCEPT;
R_API R_INT R_CompressRows(R_UINT16* pRuns, R_UCHAR* pRow, R_INT nCol, R_INT nPixels, R_INT nRows,
                           R_SIZE uRunBytesPerRow, R_SIZE uBytesPerRow) R_NOEXCEPT;
R_API R_INT R_ExpandRows(const R_UINT16* pRuns, R_UCHAR* pRow, R_INT nCol, R_INT nPixels, R_INT nRows,
                         R_SIZE uRunBytesPerRow, R_SIZE uBytesPerRow) R_NOEXCEPT;

/// Turns the runs of a row of nPixels pixels round in place: the last pixel becomes the first. A row that ends in ones
/// and does not begin with one gets a run more, for which there must be room; one the other way round has one less.
/// Parts of a long run stay as long as they are.
/// Returns SUCCESS; ERROR_INV_PARAMETER null, a negative count, or runs that do not sum to nPixels: they are unchanged.
R_API R_INT R_MirrorCompressedBuffer(R_UINT16* pRuns, R_INT nPixels) R_NOEXCEPT;

/// Turns the order of nRows rows of runs round in place. Rows are uRunBytesPerRow bytes apart and move whole.
/// Returns SUCCESS; ERROR_INV_PARAMETER null, a negative count.
R_API R_INT R_FlipCompressedBuffer(R_UINT16* pRuns, R_SIZE uRunBytesPerRow, R_INT nRows) R_NOEXCEPT;

/// Rows of a 1-bit bitmap in run form, wherever its pixels live: the lengths of its runs, the first of them zeros. Row
/// i is at pRuns + i x uRunBytes bytes and ends where its runs make its width; a compressed bitmap's runs are moved as
/// they are.
/// Return the number of rows moved, nLines; ERROR_INV_PARAMETER null, a row outside, or runs that make another width;
/// ERROR_INV_STRUCT_SIZE; ERROR_INV_SIZE; ERROR_INV_BITMAP no pixels; ERROR_INV_BITS_PER_PIXEL more than 1 bit;
/// ERROR_BUFFER_TOO_SMALL a row of more than uRunBytes bytes of runs, and with Put nothing is written;
/// ERROR_FAILURE no memory, and each row is the old or the new one.
R_API R_INT R_GetBitmapRowCompressed(BITMAPHANDLE* pBitmap, R_UINT16* pRuns, R_SIZE uRunBytes, R_INT nRow,
                                     R_INT nLines) R_NOEXCEPT;
R_API R_INT R_PutBitmapRowCompressed(BITMAPHANDLE* pBitmap, R_UINT16* pRuns, R_SIZE uRunBytes, R_INT nRow,
                                     R_INT nLines) R_NOEXCEPT;
/// The same for nPixels pixels of one row from column nCol on. pRuns has room for uRunBytes bytes of runs, which make
/// nPixels. They return SUCCESS, for the one row, or an error of those above; a column outside is ERROR_INV_PARAMETER.
R_API R_INT R_GetBitmapRowColCompressed(BITMAPHANDLE* pBitmap, R_UINT16* pRuns, R_SIZE uRunBytes, R_INT nRow,
                                        R_INT nCol, R_INT nPixels) R_NOEXCEPT;
R_API R_INT R_PutBitmapRowColCompressed(BITMAPHANDLE* pBitmap, R_UINT16* pRuns, R_SIZE uRunBytes, R_INT nRow,
                                        R_INT nCol, R_INT nPixels) R_NOEXCEPT;

/// Moves a 1-bit bitmap's pixels into run form (bCompress not 0) or out of it, to where new pixels would go; Toggle
/// does what has not been done. A bitmap that is so already stays as it is.
/// Return SUCCESS; ERROR_INV_BITMAP null or no pixels; ERROR_INV_STRUCT_SIZE; ERROR_INV_SIZE; ERROR_INV_BITS_PER_PIXEL;
/// ERROR_INV_PARAMETER locked or borrowed pixels; ERROR_FAILURE or ERROR_MEMORY_LIMIT no memory, and the bitmap is as
/// it was.
R_API R_INT R_ChangeBitmapCompression(BITMAPHANDLE* pBitmap, R_INT bCompress) R_NOEXCEPT;
R_API R_INT R_ToggleBitmapCompression(BITMAPHANDLE* pBitmap) R_NOEXCEPT;

// A compressed bitmap's Addr.Pointer is an array of bands of 32,768 rows. A band is four 64-bit words, of which the
// last is the address of the heap with its runs, and two for each row: the offset of the row's block in that heap, 48
// bytes before its runs (0: a blank row without any), and the number of runs.

/// Gives a block back to the heap of a band. A null heap, or an offset that is no allocated block's, does nothing.
R_API void R_HeapFree(void* pHeap, R_UINT64 uOffset) R_NOEXCEPT;
/// Adds room for uBytes bytes to the heaps of a compressed bitmap, the same to each. 1; 0 one could not grow, those of
/// later bands have; ERROR_INV_PARAMETER null, without pixels or not compressed; ERROR_INV_BITMAP pixels that are not
/// the kernel's. The record's size is not checked.
R_API R_INT R_GrowBitmapHeap(BITMAPHANDLE* pBitmap, R_UINT64 uBytes) R_NOEXCEPT;
/// Gives the unused ends of the heaps back to the system, from the last band to the first. 1; 0 one had no more than
/// 128 bytes, and the bands before it stay as they are; errors as above, then ERROR_INV_STRUCT_SIZE.
R_API R_INT R_TrimBitmapHeap(BITMAPHANDLE* pBitmap) R_NOEXCEPT;

#endif
