#include "Support/Calls.h"

namespace rv::test {

namespace {

/// A list of `count` bitmaps, given to f. They are copies of w.spare, of its size; only the first owns pixels.
template <class F> R_INT64 withList(World& w, R_UINT count, F f)
{
    HBITMAPLIST list = nullptr;
    R_INT64 status = R_CreateBitmapList(&list);
    if (status != SUCCESS) return status;
    status = R_CreateBitmap(w.spare, w.spare.structSize(), MEM_CONVENTIONAL, 5, 4, 8, ORDER_RGB, nullptr, TOP_LEFT,
                            nullptr, 0);
    if (status == SUCCESS && (status = R_InsertBitmapListItem(list, LIST_END, w.spare)) != SUCCESS)
        R_FreeBitmap(w.spare);
    R_InitBitmap(w.spare, w.spare.structSize(), 0, 0, 0);
    for (R_UINT item = 1; item < count && status == SUCCESS; ++item)
        status = R_InsertBitmapListItem(list, LIST_END, w.spare);
    if (status == SUCCESS) status = f(list);
    R_GetBitmapListCount(list, &w.answers.number[0]);
    R_DestroyBitmapList(list);
    return status;
}

/// A call that makes a list of the first two.
template <class F> R_INT64 newList(HBITMAPLIST list, F call)
{
    HBITMAPLIST made = nullptr;
    const R_INT64 status = call(&made, list, 0, 2);
    if (status != SUCCESS) return as(made == nullptr) == SUCCESS ? status : SUCCESS;
    return R_DestroyBitmapList(made);
}

R_INT64 getItem(World& w, HBITMAPLIST list)
{
    const R_INT64 status = R_GetBitmapListItem(list, 0, w.spare, w.spare.structSize());
    w.answers.size = w.spare->Size;
    return status;
}

Call onlyFull(Call call) { return {call.name, call.drive, OnFailure::nothing, ERROR_INV_STRUCT_SIZE}; }

#define LIST(name, ...)                                                                                                \
    DOES(name, withList(w, 3, [&]([[maybe_unused]] HBITMAPLIST list) -> R_INT64 { return __VA_ARGS__; }))

const Call kCalls[] = {
    LIST(R_CreateBitmapList, SUCCESS),
    LIST(R_DestroyBitmapList, SUCCESS),
    LIST(R_GetBitmapListCount, R_GetBitmapListCount(list, &w.answers.number[1])),
    LIST(R_GetBitmapListItem, getItem(w, list)),
    LIST(R_SetBitmapListItem, R_SetBitmapListItem(list, 1, w.spare)),
    onlyFull(
        LIST(R_ReplaceBitmapListItem, R_ReplaceBitmapListItem(list, LIST_END, w.spare, w.spare, w.spare.structSize()))),
    onlyFull(LIST(R_RemoveBitmapListItem, R_RemoveBitmapListItem(list, 1, w.spare))),
    LIST(R_DeleteBitmapListItems, as(R_DeleteBitmapListItems(list, 1, 1) ==
                                     (w.spare.structSize() == BITMAPHANDLE_SIZE ? SUCCESS : ERROR_INV_STRUCT_SIZE))),
    LIST(R_InsertBitmapListItem, R_InsertBitmapListItem(list, 1, w.spare)),
    LIST(R_CopyBitmapListItems, newList(list, R_CopyBitmapListItems)),
    DOES(R_CreateBitmapListOptPal, withList(w, 1,
                                            [&](HBITMAPLIST list) {
                                                return R_CreateBitmapListOptPal(list, w.answers.colours,
                                                                                &w.answers.number[1], nullptr, 0);
                                            })),
    LIST(R_MoveBitmapListItems, newList(list, R_MoveBitmapListItems)),
};

} // namespace

std::span<const Call> listCalls() { return kCalls; }

} // namespace rv::test
