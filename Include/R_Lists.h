/// Lists of bitmaps: pages or frames behind one handle. The list stores whole records by value and owns what they point
/// to: a record that has gone into a list may be used on, but not freed. Indexes are from 0. Records of both sizes are
/// taken and keep theirs. One thread at a time may work on a list.
///
/// The records' memory, 284 bytes for an item, counts as conventional memory of the process; its limit holds for what
/// grows by more than 16,000,000 bytes at once. A call that fails leaves the list and the caller's records as they
/// were, but for what R_DeleteBitmapListItems says. Besides those named below, a call that adds items answers
/// ERROR_FAILURE without memory, ERROR_MEMORY_LIMIT past the limit.
#ifndef R_LISTS_H
#define R_LISTS_H

#include "R_Bitmap.h"

typedef struct BITMAPLIST* HBITMAPLIST;
#define LIST_END 0xFFFFFFFFu ///< insert: append; replace: the last item

/// ERROR_INV_PARAMETER null; ERROR_FAILURE no memory.
R_API R_INT R_CreateBitmapList(HBITMAPLIST* phList) R_NOEXCEPT;
/// Frees every item and the list. ERROR_INV_PARAMETER for null.
R_API R_INT R_DestroyBitmapList(HBITMAPLIST hList) R_NOEXCEPT;
/// ERROR_INV_PARAMETER for a null pointer.
R_API R_INT R_GetBitmapListCount(HBITMAPLIST hList, R_UINT* puCount) R_NOEXCEPT;
/// Copies an item out as a record of uStructSize (284 or 228), whatever size the item has; the list still owns the
/// pixels. Errors: ERROR_INV_PARAMETER a null pointer or an index past the items; ERROR_INV_STRUCT_SIZE.
R_API R_INT R_GetBitmapListItem(HBITMAPLIST hList, R_UINT uIndex, BITMAPHANDLE* pBitmap, R_UINT uStructSize) R_NOEXCEPT;
/// Stores a copy of a record in a slot. The slot's former pixels are not freed: they may be the record's own.
/// Errors: ERROR_INV_PARAMETER a null pointer or an index past the items; ERROR_INV_STRUCT_SIZE.
R_API R_INT R_SetBitmapListItem(HBITMAPLIST hList, R_UINT uIndex, BITMAPHANDLE* pBitmap) R_NOEXCEPT;
/// Stores a record in place of an item (LIST_END: the last), which goes to pOldBitmap as a record of uOldSize (284 or
/// 228), or is freed where that is null. Errors: ERROR_INV_PARAMETER a null pointer, an empty list or an index past the
/// items; ERROR_INV_STRUCT_SIZE either size, or an item that was stored as a 228-byte record.
R_API R_INT R_ReplaceBitmapListItem(HBITMAPLIST hList, R_UINT uIndex, BITMAPHANDLE* pBitmap, BITMAPHANDLE* pOldBitmap,
                                    R_UINT uOldSize) R_NOEXCEPT;
/// Takes an item out of the list; it goes to pBitmap, 284 bytes whose owner then has the pixels, or is freed where that
/// is null. Errors: ERROR_INV_PARAMETER a null list or an index past the items; ERROR_INV_STRUCT_SIZE an item that was
/// stored as a 228-byte record, which cannot be taken out.
R_API R_INT R_RemoveBitmapListItem(HBITMAPLIST hList, R_UINT uIndex, BITMAPHANDLE* pBitmap) R_NOEXCEPT;
/// Frees uCount items from uStart on; fewer where there are fewer. At an item that cannot be taken out it ends with
/// ERROR_INV_STRUCT_SIZE, and those before it are gone. ERROR_INV_PARAMETER a null list, no count, uStart past the
/// items.
R_API R_INT R_DeleteBitmapListItems(HBITMAPLIST hList, R_UINT uStart, R_UINT uCount) R_NOEXCEPT;
/// Puts a copy of a record before an item, or behind the last (the count, or LIST_END); the list takes the pixels over.
/// Errors: ERROR_INV_PARAMETER a null pointer or an index past the end; ERROR_INV_STRUCT_SIZE.
R_API R_INT R_InsertBitmapListItem(HBITMAPLIST hList, R_UINT uIndex, BITMAPHANDLE* pBitmap) R_NOEXCEPT;
/// Makes a new list of copies of uCount items from uStart on (fewer where there are fewer), each with pixels of its own
/// and as R_CopyBitmap makes them; an item without pixels is a record with a palette of its own.
/// Errors: ERROR_INV_PARAMETER a null pointer, no count, uStart past the items; those of R_CopyBitmap.
R_API R_INT R_CopyBitmapListItems(HBITMAPLIST* phNew, HBITMAPLIST hList, R_UINT uStart, R_UINT uCount) R_NOEXCEPT;
/// Makes a new list of uCount items from uStart on (fewer where there are fewer), which leave this one.
/// ERROR_INV_PARAMETER a null pointer, no count, uStart past the items.
R_API R_INT R_MoveBitmapListItems(HBITMAPLIST* phNew, HBITMAPLIST hList, R_UINT uStart, R_UINT uCount) R_NOEXCEPT;

/// R_CreateBitmapOptPal for all bitmaps of a list at once. An empty list has no entries and succeeds; an item without
/// pixels is ERROR_INV_BITMAP. ERROR_INV_PARAMETER also for a null list.
R_API R_INT R_CreateBitmapListOptPal(HBITMAPLIST hList, RGBQUAD* pPalette, R_UINT* puColors, R_UINT** ppMatchTable,
                                     R_UINT uFlags) R_NOEXCEPT;

#endif
