/// Entries that the kernel's folders and the toolkit's sibling modules share. They check less than the public calls.
#ifndef R_INT_H
#define R_INT_H

#include "../R_Kernel.h"

/// R_AccessBitmap that also tells through pbAccessed whether there is something to release.
/// ERROR_NULL_PTR for a null bitmap or pbAccessed.
R_API R_INT R_IntAccessBitmap(BITMAPHANDLE* pBitmap, R_INT* pbAccessed) R_NOEXCEPT;
/// Passes nStatus through; with bRelease it releases first, and a failing release speaks where nStatus is SUCCESS.
/// ERROR_NULL_PTR for a null bitmap.
R_API R_INT R_IntReleaseBitmap(BITMAPHANDLE* pBitmap, R_INT bRelease, R_INT nStatus) R_NOEXCEPT;

/// The bracket around a copy of a bitmap that has callbacks. pInfo is filled for the source's callback, which may
/// install callbacks in the destination.
R_API R_INT R_IntBeginCopyBitmap(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uFlags,
                                 ALLOCATIONINFO* pInfo) R_NOEXCEPT;
/// Tells the source's callback that the copy has ended with nStatus; returns nStatus, or the callback's failure
/// where nStatus is SUCCESS.
R_API R_INT R_IntEndCopyBitmap(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_INT nStatus) R_NOEXCEPT;

/// Flush what start-up has left pending; 1 when there is nothing left.
R_API R_INT R_IntFlushStartupBuffers(R_UINT uFlags) R_NOEXCEPT;

/// Flip the stored rows, mirror each stored row; the perspective's field alone. ERROR_INV_BITMAP for null (the first
/// two: or without pixels).
R_API R_INT R_IntFlipBitmap(BITMAPHANDLE* pBitmap) R_NOEXCEPT;
R_API R_INT R_IntReverseBitmap(BITMAPHANDLE* pBitmap) R_NOEXCEPT;
R_API R_INT R_IntFlipBitmapViewPerspective(BITMAPHANDLE* pBitmap) R_NOEXCEPT;
R_API R_INT R_IntReverseBitmapViewPerspective(BITMAPHANDLE* pBitmap) R_NOEXCEPT;

/// R_ChangeBitmapViewPerspective for callers that know their bitmaps. uFlags: 0 changes pSrc in place (pDst is null);
/// else the flags of R_DupBitmapNewDim for the new bitmap in pDst, 0xBF as a rule.
R_API R_INT R_IntChangeBitmapViewPerspective(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uStructSize,
                                             R_INT nViewPerspective, R_UINT uFlags) R_NOEXCEPT;

/// R_RotateBitmap whose progress runs from nFirst to nLast percent, for a part of a larger operation; ROTATE_CENTER is
/// about the point (fX, fY) of the stored rows and columns, which may lie anywhere: ERROR_INV_PARAMETER where it is no
/// number, or further away than rows and columns can be.
R_API R_INT R_IntRotateBitmap(BITMAPHANDLE* pBitmap, R_INT nAngle, R_UINT uFlags, COLORREF crFill, R_INT nFirst,
                              R_INT nLast, float fX, float fY) R_NOEXCEPT;
/// R_ResizeBitmap for bitmaps of one depth and perspectives that need no turn; 1 bit into 8 makes levels of gray, as
/// SIZE_TO_GRAY does. ERROR_INV_BITS_PER_PIXEL for other depths.
R_API R_INT R_IntResizeBitmap(BITMAPHANDLE* pSrc, BITMAPHANDLE* pDst, R_UINT uFlags) R_NOEXCEPT;

/// R_IsGrayScaleBitmap for callers that know their bitmap.
R_API R_INT R_IntIsGrayScaleBitmap(BITMAPHANDLE* pBitmap) R_NOEXCEPT;

/// Frees a bitmap that R_DupBitmapNewDim has made of pSrc; a palette that the two share stays pSrc's. Null is ignored.
R_API void R_FreeDuplicateBitmap(BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc) R_NOEXCEPT;

/// Where the files of R_IntCopyFile live, one source and one target; of several the first named counts.
#define COPYFILE_FAIL_IF_EXISTS 0x01u
#define COPYFILE_FROM_DISK 0x02u
#define COPYFILE_FROM_REDIRECTED 0x04u
#define COPYFILE_FROM_TEMPFILE 0x08u
#define COPYFILE_TO_DISK 0x10u
#define COPYFILE_TO_REDIRECTED 0x20u
#define COPYFILE_TO_TEMPFILE 0x40u
/// Copies a file. 1; 0 with the native error set: 80 the target exists, 30 it could not be read, 29 not written;
/// ERROR_INV_PARAMETER without a source or a target kind.
R_API R_INT R_IntCopyFile(const R_WCHAR* pszSource, const R_WCHAR* pszTarget, R_UINT uFlags) R_NOEXCEPT;

#endif
