/// Lists of bitmaps: pages or frames behind one handle. The list owns its items' pixels. Indexes are from 0.
#ifndef R_LISTS_H
#define R_LISTS_H

#include "R_Bitmap.h"

typedef struct BITMAPLIST* HBITMAPLIST;
#define LIST_END 0xFFFFFFFFu ///< insert: append; replace: the last item

/// 1; ERROR_INV_PARAMETER null; ERROR_FAILURE no memory.
R_API R_INT R_CreateBitmapList(HBITMAPLIST* phList) R_NOEXCEPT;
/// Frees every item and the list. ERROR_INV_PARAMETER for null.
R_API R_INT R_DestroyBitmapList(HBITMAPLIST hList) R_NOEXCEPT;
R_API R_INT R_GetBitmapListCount(HBITMAPLIST hList, R_UINT* puCount) R_NOEXCEPT;
/// Copies an item out as a record of uStructSize (284 or 228); the list still owns the pixels.
R_API R_INT R_GetBitmapListItem(HBITMAPLIST hList, R_UINT uIndex, BITMAPHANDLE* pBitmap, R_UINT uStructSize) R_NOEXCEPT;
/// Stores a copy of a record in a slot; the slot's former pixels are not freed.
R_API R_INT R_SetBitmapListItem(HBITMAPLIST hList, R_UINT uIndex, BITMAPHANDLE* pBitmap) R_NOEXCEPT;
/// Stores a record in place of an item, which goes to pOldBitmap (uOldSize bytes) or is freed.
R_API R_INT R_ReplaceBitmapListItem(HBITMAPLIST hList, R_UINT uIndex, BITMAPHANDLE* pBitmap, BITMAPHANDLE* pOldBitmap,
                                    R_UINT uOldSize) R_NOEXCEPT;
/// Takes an item out of the list; it goes to pBitmap, whose owner then has the pixels, or is freed.
R_API R_INT R_RemoveBitmapListItem(HBITMAPLIST hList, R_UINT uIndex, BITMAPHANDLE* pBitmap) R_NOEXCEPT;
/// Frees uCount items from uStart on; fewer where there are fewer.
R_API R_INT R_DeleteBitmapListItems(HBITMAPLIST hList, R_UINT uStart, R_UINT uCount) R_NOEXCEPT;
/// Puts a copy of a record before an item; the list takes the pixels over.
R_API R_INT R_InsertBitmapListItem(HBITMAPLIST hList, R_UINT uIndex, BITMAPHANDLE* pBitmap) R_NOEXCEPT;
/// Makes a new list of items that leave this one.
R_API R_INT R_MoveBitmapListItems(HBITMAPLIST* phNew, HBITMAPLIST hList, R_UINT uStart, R_UINT uCount) R_NOEXCEPT;

#endif
