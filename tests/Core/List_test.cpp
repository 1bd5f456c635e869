// Lists of bitmaps against a plain vector, with memory failing at random; who owns the pixels is counted.
#include "Kernel/Base/System.h"
#include "R_Kernel.h"
#include "Support/Conventional.h"
#include "Support/FailingPlatform.h"
#include "Support/GuardedRecord.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <random>
#include <vector>

namespace {

using namespace rv::test;

constexpr R_UINT64 kPixelBytes = 16; // of a bitmap of 4 x 4

struct Item {
    R_INT tag;
    R_UINT size;
    bool operator==(const Item&) const = default;
};
using Items = std::vector<Item>;

/// A bitmap with pixels of its own, and a number to know it by, in a record that ends at an unreadable page.
GuardedRecord& makeBitmap(std::optional<GuardedRecord>& place, const Item& item)
{
    place.emplace(item.size);
    EXPECT_EQ(R_CreateBitmap(*place, item.size, MEM_CONVENTIONAL, 4, 4, 8, ORDER_RGB, nullptr, TOP_LEFT, nullptr, 0),
              SUCCESS);
    (*place)->Delay = item.tag;
    return *place;
}

struct List {
    HBITMAPLIST handle = nullptr;
    Items items;
    List() { EXPECT_EQ(R_CreateBitmapList(&handle), SUCCESS); }
    ~List() { EXPECT_EQ(R_DestroyBitmapList(handle), SUCCESS); }
    List(const List&) = delete;
    List& operator=(const List&) = delete;

    R_UINT count() const
    {
        R_UINT count = 77;
        EXPECT_EQ(R_GetBitmapListCount(handle, &count), SUCCESS);
        return count;
    }
    /// The items as the list has them, each copied out in both sizes.
    Items read() const
    {
        Items found;
        for (R_UINT index = 0; index < count(); ++index) {
            const GuardedRecord full(BITMAPHANDLE_SIZE), brief(BITMAPHANDLE_SIZE_SHORT);
            EXPECT_EQ(R_GetBitmapListItem(handle, index, full, BITMAPHANDLE_SIZE), SUCCESS);
            EXPECT_EQ(R_GetBitmapListItem(handle, index, brief, BITMAPHANDLE_SIZE_SHORT), SUCCESS);
            EXPECT_EQ(full->uStructSize, BITMAPHANDLE_SIZE);
            EXPECT_EQ(brief->uStructSize, BITMAPHANDLE_SIZE_SHORT);
            EXPECT_EQ(std::memcmp(&full->Addr, &brief->Addr, BITMAPHANDLE_SIZE_SHORT - sizeof(R_UINT)), 0);
            EXPECT_EQ(full->Size64, kPixelBytes);
            found.push_back({full->Delay, items.at(index).size}); // the stored size shows in what can be taken out
        }
        return found;
    }
};

/// Random operations on two lists. Each may be refused memory once, and then has changed nothing.
class Trial {
public:
    explicit Trial(unsigned seed) : random_(seed) {}

    void run(int steps)
    {
        for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
            List& list = lists_[below(2)];
            switch (below(9)) {
            case 0: removeItem(list); break;
            case 1: replaceItem(list); break;
            case 2: setItem(list); break;
            case 3: deleteItems(list); break;
            case 4: newList(list, R_MoveBitmapListItems, true); break;
            case 5: newList(list, R_CopyBitmapListItems, false); break;
            default: insertItem(list); break;
            }
            check();
        }
    }

private:
    R_UINT below(size_t bound) { return static_cast<R_UINT>(random_() % bound); }
    Item newItem() { return {++tags_, below(12) == 0 ? BITMAPHANDLE_SIZE_SHORT : BITMAPHANDLE_SIZE}; }
    /// The call, with an allocation failing in one of three. An answer without memory is not taken for another.
    template <class F> R_INT attempt(F call)
    {
        const FailingAllocation fault(below(3) == 0 ? 1 + static_cast<int>(below(3)) : 1000);
        const R_INT status = call();
        if (status == ERROR_FAILURE) {
            EXPECT_TRUE(fault.happened());
        }
        return status;
    }

    void insertItem(List& list)
    {
        const Item item = newItem();
        std::optional<GuardedRecord> place;
        GuardedRecord& bitmap = makeBitmap(place, item);
        const R_UINT count = list.count(), asked = below(9) == 0 ? LIST_END : below(count + 2u);
        const R_INT status = attempt([&] { return R_InsertBitmapListItem(list.handle, asked, bitmap); });
        if (status == SUCCESS)
            list.items.insert(list.items.begin() + std::min(asked, count), item);
        else
            R_FreeBitmap(bitmap);
        EXPECT_TRUE(status == (asked > count && asked != LIST_END ? ERROR_INV_PARAMETER : SUCCESS) ||
                    status == ERROR_FAILURE);
    }

    void removeItem(List& list)
    {
        const R_UINT index = below(list.count() + 1u);
        BITMAPHANDLE out{};
        const bool taken = below(2) == 0;
        const R_INT status =
            attempt([&] { return R_RemoveBitmapListItem(list.handle, index, taken ? &out : nullptr); });
        if (index == list.items.size()) {
            EXPECT_EQ(status, ERROR_INV_PARAMETER);
            return;
        }
        const Item item = list.items[index];
        EXPECT_EQ(status, item.size == BITMAPHANDLE_SIZE ? SUCCESS : ERROR_INV_STRUCT_SIZE); // needs no memory
        if (status != SUCCESS) return;
        if (taken) {
            EXPECT_EQ(out.Delay, item.tag);
            R_FreeBitmap(&out);
        }
        list.items.erase(list.items.begin() + index);
    }

    void replaceItem(List& list)
    {
        const Item item = newItem();
        std::optional<GuardedRecord> place;
        GuardedRecord& bitmap = makeBitmap(place, item);
        const R_UINT count = list.count(), asked = below(4) == 0 ? LIST_END : below(count + 1u);
        const R_UINT index = asked == LIST_END ? count - 1 : asked;
        const bool taken = below(2) == 0; // back into the record that the new one came from
        const R_INT status =
            R_ReplaceBitmapListItem(list.handle, asked, bitmap, taken ? bitmap.get() : nullptr, item.size);
        if (index >= count) {
            EXPECT_EQ(status, ERROR_INV_PARAMETER);
        } else {
            Item& old = list.items[index];
            EXPECT_EQ(status, old.size == BITMAPHANDLE_SIZE ? SUCCESS : ERROR_INV_STRUCT_SIZE);
            if (status == SUCCESS && taken) {
                EXPECT_EQ(bitmap->Delay, old.tag);
            }
            if (status == SUCCESS) old = item;
        }
        if (status != SUCCESS || taken) R_FreeBitmap(bitmap);
    }

    void setItem(List& list)
    {
        if (list.items.empty()) return;
        const R_UINT index = below(list.items.size());
        BITMAPHANDLE old;
        EXPECT_EQ(R_GetBitmapListItem(list.handle, index, &old, BITMAPHANDLE_SIZE), SUCCESS);
        const Item item = newItem();
        std::optional<GuardedRecord> place;
        EXPECT_EQ(R_SetBitmapListItem(list.handle, index, makeBitmap(place, item)), SUCCESS);
        R_FreeBitmap(&old);
        list.items[index] = item;
    }

    void deleteItems(List& list)
    {
        const R_UINT start = below(list.count() + 1u), asked = below(3) == 0 ? 0xFFFFFFFF : below(25);
        const R_INT status = attempt([&] { return R_DeleteBitmapListItems(list.handle, start, asked); });
        if (start >= list.items.size() || asked == 0) {
            EXPECT_EQ(status, ERROR_INV_PARAMETER);
            return;
        }
        const auto first = list.items.begin() + start;
        const auto last = first + std::min<std::ptrdiff_t>(asked, list.items.end() - first);
        const auto stop = std::find_if(first, last, [](const Item& item) { return item.size != BITMAPHANDLE_SIZE; });
        EXPECT_EQ(status, stop == last ? SUCCESS : ERROR_INV_STRUCT_SIZE);
        list.items.erase(first, stop);
    }

    /// Makes a list of a range, which leaves its list or stays there; the new one takes the other list's place.
    template <class F> void newList(List& list, F call, bool leaves)
    {
        List& other = &list == lists_ ? lists_[1] : lists_[0];
        const R_UINT start = below(list.count() + 1u), asked = below(40);
        HBITMAPLIST made = nullptr;
        const R_INT status = attempt([&] { return call(&made, list.handle, start, asked); });
        if (start >= list.items.size() || asked == 0) {
            EXPECT_EQ(status, ERROR_INV_PARAMETER);
        } else if (status != SUCCESS) {
            EXPECT_EQ(status, ERROR_FAILURE);
        } else {
            const auto first = list.items.begin() + start;
            const auto last = first + std::min<std::ptrdiff_t>(asked, list.items.end() - first);
            EXPECT_EQ(R_DestroyBitmapList(other.handle), SUCCESS);
            other.handle = made;
            other.items.assign(first, last);
            if (leaves) list.items.erase(first, last);
        }
    }

    void check()
    {
        size_t items = 0;
        for (const List& list : lists_) {
            ASSERT_EQ(list.count(), list.items.size());
            EXPECT_EQ(list.read(), list.items);
            items += list.items.size();
        }
        EXPECT_EQ(live_.count(kPages), static_cast<int>(items));
        EXPECT_EQ(conventionalTotal() - total_, items * (kPixelBytes + BITMAPHANDLE_SIZE));
    }

    std::mt19937 random_;
    R_INT tags_ = 0;
    LiveBlocks live_;
    R_UINT64 total_ = conventionalTotal();
    List lists_[2];
};

TEST(List, DoesWhatAVectorDoesAndOwnsItsPixels)
{
    for (unsigned seed = 1; seed <= 40; ++seed) {
        const LiveBlocks live;
        const R_UINT64 total = conventionalTotal();
        Trial(seed).run(200);
        EXPECT_EQ(live.count(), 0) << live.text();
        EXPECT_EQ(conventionalTotal(), total);
        ASSERT_FALSE(HasFailure()) << "seed " << seed;
    }
}

TEST(List, StatusesInOrder)
{
    List list;
    BITMAPHANDLE empty, odd, out;
    R_InitBitmap(&empty, BITMAPHANDLE_SIZE, 0, 0, 0);
    odd = empty;
    odd.uStructSize = 229;
    HBITMAPLIST made = nullptr, *const into = &made;
    EXPECT_EQ(R_CreateBitmapList(nullptr), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_DestroyBitmapList(nullptr), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_GetBitmapListCount(list.handle, nullptr), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_GetBitmapListItem(list.handle, 0, nullptr, 5), ERROR_INV_PARAMETER); // pointers before sizes
    EXPECT_EQ(R_GetBitmapListItem(list.handle, 0, &out, 5), ERROR_INV_STRUCT_SIZE);  // sizes before indexes
    EXPECT_EQ(R_SetBitmapListItem(list.handle, 0, &odd), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(R_SetBitmapListItem(list.handle, 0, &empty), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_InsertBitmapListItem(list.handle, 7, &odd), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(R_InsertBitmapListItem(list.handle, LIST_END, nullptr), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_ReplaceBitmapListItem(list.handle, LIST_END, &odd, &out, 5), ERROR_INV_PARAMETER); // empty
    for (const auto call : {R_MoveBitmapListItems, R_CopyBitmapListItems}) {
        EXPECT_EQ(call(nullptr, list.handle, 0, 1), ERROR_INV_PARAMETER);
        EXPECT_EQ(call(into, nullptr, 0, 1), ERROR_INV_PARAMETER);
    }

    ASSERT_EQ(R_InsertBitmapListItem(list.handle, 0, &empty), SUCCESS);
    EXPECT_EQ(R_ReplaceBitmapListItem(list.handle, 9, &empty, &out, 5), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(R_ReplaceBitmapListItem(list.handle, 1, &empty, nullptr, 5), ERROR_INV_PARAMETER); // the count itself
    EXPECT_EQ(R_ReplaceBitmapListItem(list.handle, 0, &empty, nullptr, 5), SUCCESS);             // nobody reads the 5
}

/// The records count as conventional memory, but the limit does not keep a bitmap that there is out of a list.
TEST(List, TakesBitmapsWhenTheProcessIsAtItsLimit)
{
    List list;
    BITMAPHANDLE empty;
    R_InitBitmap(&empty, BITMAPHANDLE_SIZE, 0, 0, 0);
    const R_UINT64 before = conventionalTotal();
    R_ManageMemory(MANAGE_SET_LIMIT, before + 1, nullptr);
    EXPECT_EQ(R_InsertBitmapListItem(list.handle, LIST_END, &empty), SUCCESS);
    EXPECT_EQ(conventionalTotal(), before + BITMAPHANDLE_SIZE);
    EXPECT_EQ(rv::growConventional(16000001).code(), ERROR_MEMORY_LIMIT);
    R_ManageMemory(MANAGE_SET_LIMIT, 0, nullptr);
}

} // namespace
