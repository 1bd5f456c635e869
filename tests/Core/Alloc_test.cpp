#include "Support/Conventional.h"
#include "Support/FailingPlatform.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <cstring>

namespace rv::test {
namespace {

constexpr R_UINT kFull = BITMAPHANDLE_SIZE;
constexpr R_UINT kShort = BITMAPHANDLE_SIZE_SHORT;

/// A record that is freed at the end of its scope.
struct Record : BITMAPHANDLE {
    Record() : BITMAPHANDLE{} {}
    ~Record() { R_FreeBitmap(this); }
};

R_INT create(BITMAPHANDLE* p, R_UINT memory, R_INT bits, R_INT order = ORDER_RGB, const RGBQUAD* palette = nullptr,
             R_INT perspective = 0, void* data = nullptr, R_UINT64 dataSize = 0)
{
    return R_CreateBitmap(p, kFull, memory, 10, 4, bits, order, palette, perspective, data, dataSize);
}

TEST(Init, DerivesRowsAndBitRangesFromTheDepth)
{
    const struct {
        R_INT bits, width;
        Answered derived; // bytes per line, order, highest bit, colours
    } cases[] = {
        {1, 1, {4, ORDER_RGB, 0, 2}},    {3, 11, {8, ORDER_RGB, 2, 8}},  {8, 5, {8, ORDER_RGB, 7, 256}},
        {12, 5, {8, ORDER_GRAY, 11, 0}}, {16, 3, {8, ORDER_BGR, 15, 0}}, {24, 3, {12, ORDER_BGR, 7, 0}},
        {32, 7, {28, ORDER_BGR, -1, 0}}, {48, 1, {8, ORDER_BGR, 15, 0}}, {64, 2, {16, ORDER_BGR, 15, 0}},
    };
    for (const R_UINT size : {kFull, kShort}) {
        for (const auto& c : cases) {
            const GuardedRecord p(size);
            ASSERT_EQ(R_InitBitmap(p, size, c.width, 6, c.bits), SUCCESS) << c.bits;
            EXPECT_EQ((Answered{p->BytesPerLine, p->Order, p->HighBit, p->nColors}), c.derived) << c.bits;
            EXPECT_EQ((Answered{p->uStructSize, static_cast<R_INT64>(p->Size), p->PaintHighBit, p->ViewPerspective,
                                p->DitheringMethod, p->PaintGamma, p->Flags}),
                      (Answered{size, p->BytesPerLine * 6, p->HighBit, BOTTOM_LEFT, 7, 100, 0}));
            EXPECT_EQ(p->pPalette, nullptr);
            EXPECT_TRUE(size == kShort || (p->Size64 == p->Size && p->nLockCount == 0));
        }
    }
}

TEST(Init, RefusesInOrder)
{
    BITMAPHANDLE p;
    std::memset(static_cast<void*>(&p), 0xEE, sizeof p);
    EXPECT_EQ(R_InitBitmap(nullptr, 5, -1, -1, 9), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_InitBitmap(&p, 5, -1, -1, 9), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(p.Width, static_cast<R_INT>(0xEEEEEEEE)) << "a refused size leaves the record alone";
    BITMAPHANDLE empty{};
    empty.uStructSize = kFull;
    const struct {
        R_INT width, height, bits, status;
    } cases[] = {{-1, 2, 9, ERROR_INV_SIZE},          {2, -1, 9, ERROR_INV_SIZE},          {0, -1, 9, ERROR_INV_SIZE},
                 {2, 2, 9, ERROR_INV_BITS_PER_PIXEL}, {0, 0, 9, ERROR_INV_BITS_PER_PIXEL}, {0, 0, 0, SUCCESS}};
    for (const auto& c : cases) {
        EXPECT_EQ(R_InitBitmap(&p, kFull, c.width, c.height, c.bits), c.status);
        EXPECT_EQ(std::memcmp(&p, &empty, sizeof p), 0);
    }
    EXPECT_EQ(R_InitBitmap(&p, kFull, 0, 0, 8), SUCCESS) << "no pixels is no error";
    EXPECT_EQ(R_AllocateBitmap(&p, MEM_CONVENTIONAL), ERROR_INV_SIZE);
}

TEST(Init, AShortRecordHoldsNoMoreThanItsSizeFieldCan)
{
    const GuardedRecord p(kShort), full(kFull);
    EXPECT_EQ((Answered{R_InitBitmap(p, kShort, 0x10000, 0x10000, 8), p->uStructSize}), (Answered{ERROR_NO_MEMORY, 0}));
    EXPECT_EQ(R_InitBitmap(p, kShort, 0x10000, 0xFFFF, 8), SUCCESS) << "exactly 0xFFFF0000 bytes";
    EXPECT_EQ(R_InitBitmap(full, kFull, 0x10000, 0x10000, 8), SUCCESS);
    EXPECT_EQ(full->Size64, 0x100000000u);
}

TEST(Create, ChoosesOrderPerspectiveAndPalette)
{
    const RGBQUAD own[16] = {{1, 2, 3, 0}};
    enum Table { none, gray, fixed, copied };
    const struct {
        R_INT bits, order;
        const RGBQUAD* palette;
        R_INT perspective, wantedBits, wantedOrder, wantedPerspective;
        Table table;
    } cases[] = {
        {0, ORDER_RGB, nullptr, 0, 8, ORDER_RGB, TOP_LEFT, gray},
        {4, ORDER_GRAY, nullptr, LEFT_TOP, 4, ORDER_RGB, LEFT_TOP, gray},
        {4, ORDER_BGR, own, 0, 4, ORDER_RGB, TOP_LEFT, copied},
        {4, ORDER_GRAY, own, 0, 4, ORDER_RGB, TOP_LEFT, copied},
        {2, ORDER_RGB, nullptr, 0, 2, ORDER_RGB, TOP_LEFT, fixed}, // four colours of its own, not the two of one bit
        {24, 5, nullptr, 0, 24, 5, TOP_LEFT, none},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.bits) + " bits, order " + std::to_string(c.order));
        Record p;
        ASSERT_EQ(create(&p, MEM_CONVENTIONAL, c.bits, c.order, c.palette, c.perspective), SUCCESS);
        EXPECT_EQ((std::vector<R_INT>{p.BitsPerPixel, p.Order, p.ViewPerspective}),
                  (std::vector<R_INT>{c.wantedBits, c.wantedOrder, c.wantedPerspective}));
        const void* const wanted = c.table == fixed ? R_IntGetFixedPalette(c.bits) : own;
        EXPECT_EQ(p.pPalette == nullptr, c.table == none);
        EXPECT_TRUE(c.table != gray || R_IsGrayScalePalette(p.pPalette, p.nColors) == 1);
        EXPECT_TRUE(c.table < fixed || (p.pPalette != own && std::memcmp(p.pPalette, wanted, 4u << c.bits) == 0));
    }
    const LiveBlocks live;
    Record p;
    EXPECT_EQ((Answered{create(&p, MEM_CONVENTIONAL, 32, 5), create(&p, MEM_CONVENTIONAL, 8, 0, nullptr, 9),
                        create(&p, 0, 8)}),
              (Answered{ERROR_INV_BITS_PER_PIXEL, ERROR_INV_PARAMETER, ERROR_INV_PARAMETER}));
    EXPECT_EQ(p.Flags & FLAG_ALLOCATED, 0u);
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(Create, TakesTheCallersPixelsOfExactlyTheRightSize)
{
    alignas(32) uint8_t pixels[48] = {7};
    Record p;
    EXPECT_EQ(create(&p, MEM_USER, 8, 0, nullptr, 0, pixels, 47), ERROR_INV_PARAMETER);
    EXPECT_EQ(p.Flags & FLAG_ALLOCATED, 0u);
    ASSERT_EQ(create(&p, MEM_USER, 8, 0, nullptr, 0, pixels, 48), SUCCESS);
    EXPECT_EQ(p.Flags, FLAG_ALLOCATED | FLAG_CONVENTIONAL_MEMORY | FLAG_MIRROR);
    uint8_t row[12];
    EXPECT_EQ(R_GetBitmapRow(&p, row, 0, 12), 12);
    EXPECT_EQ(row[0], 7);

    EXPECT_EQ((Answered{R_SetBitmapDataPointer(&p, pixels, 5), R_SetBitmapDataPointer(&p, nullptr, 5),
                        R_GetBitmapRow(&p, row, 0, 12), R_SetBitmapDataPointer(nullptr, pixels, 48)}),
              (Answered{ERROR_INV_PARAMETER, SUCCESS, ERROR_INV_BITMAP, ERROR_INV_BITMAP}));
}

struct Answers {
    R_INT allocate = SUCCESS;
    R_UINT memory = 0; // what the callback writes into the info; 0 leaves it
    int calls = 0;
    ALLOCATIONINFO seen{};
};

R_INT answerAllocate(BITMAPHANDLE*, ALLOCATIONINFO* info, void* userData)
{
    auto& answers = *static_cast<Answers*>(userData);
    ++answers.calls;
    answers.seen = *info;
    if (answers.memory != 0) info->uMemory = answers.memory;
    return answers.allocate;
}

R_INT answerHook(ALLOCATIONINFO* info, void* userData) { return answerAllocate(nullptr, info, userData); }

TEST(Allocate, AsksTheBitmapsCallback)
{
    uint8_t data = 0;
    const struct {
        Answers answers;
        R_INT status;
        R_UINT flags;
        bool callersData;
    } cases[] = {
        // The size of a callback's pixels is the callback's business; pixels that the kernel owns are never the
        // caller's.
        {{.allocate = SUCCESS_ABORT}, SUCCESS, FLAG_ALLOCATED | FLAG_MIRROR, true},
        {{.allocate = -42}, -42, 0, false},
        {{.memory = MEM_CONVENTIONAL}, SUCCESS, FLAG_ALLOCATED | FLAG_CONVENTIONAL_MEMORY, false},
        {{.memory = 3}, ERROR_INV_PARAMETER, 0, false},
    };
    for (const auto& c : cases) {
        const LiveBlocks live;
        {
            Record p;
            Answers answers = c.answers;
            BITMAPHANDLEDATACALLBACKS callbacks = callbacksFor(&answers);
            callbacks.AllocateBitmapDataCallback = answerAllocate;
            EXPECT_EQ(R_CreateBitmapWithCallbacks(&p, kFull, MEM_USER, 10, 4, 24, ORDER_BGR, nullptr, 0, &data, 1,
                                                  &callbacks),
                      c.status);
            EXPECT_EQ(p.Flags, c.flags);
            EXPECT_EQ(p.Addr.Pointer == &data, c.callersData);
            const ALLOCATIONINFO& seen = answers.seen;
            EXPECT_TRUE(seen.uStructSize == ALLOCATIONINFO_SIZE && seen.Size == 128 && seen.uMemory == MEM_USER &&
                        seen.pData == &data && seen.BytesPerLine == 32);
        }
        EXPECT_EQ(live.count(), 0) << live.text();
    }
}

TEST(Allocate, AsksTheProcessHookFirst)
{
    Answers answers{.memory = MEM_USER};
    ALLOCATECALLBACK old = answerHook;
    void* oldData = &answers;
    ASSERT_EQ(R_SetAllocateBitmapCallback(answerHook, &answers, &old, &oldData), SUCCESS);
    EXPECT_TRUE(old == nullptr && oldData == nullptr);
    Record p, q;
    EXPECT_EQ(create(&p, MEM_CONVENTIONAL, 8), SUCCESS);
    EXPECT_EQ(p.Flags, FLAG_ALLOCATED | FLAG_CONVENTIONAL_MEMORY | FLAG_MIRROR) << "the hook made it the caller's";
    answers.allocate = -1000;
    EXPECT_EQ(create(&q, MEM_CONVENTIONAL, 8), -1000);
    EXPECT_EQ(R_SetAllocateBitmapCallback(nullptr, nullptr, &old, &oldData), SUCCESS);
    EXPECT_EQ(old, &answerHook);
    EXPECT_EQ(answers.calls, 2);
}

int gRegions = 0;
int gOverlays = 0;

TEST(Free, GivesBackAllTheRecordOwnsAndKeepsItsGeometry)
{
    DISDISPATCH hooks{};
    hooks.uStructSize = sizeof hooks;
    hooks.DeleteRegion = [](void*) { ++gRegions; };
    hooks.DeleteOverlays = [](void*) { ++gOverlays; };
    ASSERT_EQ(R_SetDisDispatch(&hooks), SUCCESS);
    const LiveBlocks live;
    BITMAPHANDLE p;
    ASSERT_EQ(create(&p, MEM_CONVENTIONAL, 8), SUCCESS);
    ASSERT_EQ(R_SetBitmapExtraData(&p, 0, 3, "abc"), SUCCESS);
    int region = 0;
    p.pRgnInfo = p.pOverlays = &region;
    p.Flags |= FLAG_INTERLACED | FLAG_SIGNED;
    R_FreeBitmap(&p);
    EXPECT_EQ(p.Flags, FLAG_INTERLACED | FLAG_SIGNED);
    EXPECT_TRUE(p.Addr.Handle == nullptr && p.Addr.Pointer == nullptr && p.pPalette == nullptr);
    EXPECT_TRUE(p.pExtraData == nullptr && p.Width == 10);
    EXPECT_EQ(live.count(), 0) << live.text();
    EXPECT_EQ(R_AllocateBitmap(&p, MEM_CONVENTIONAL), SUCCESS) << "it can be allocated again";
    R_FreeBitmap(&p);
    p.Flags |= FLAG_ALLOCATED | FLAG_TILED | FLAG_SUPER_COMPRESSED;
    EXPECT_EQ(R_AllocateBitmap(&p, MEM_USER | MEM_DISK), ERROR_INV_PARAMETER);
    EXPECT_EQ(p.Flags, FLAG_INTERLACED | FLAG_SIGNED) << "a record that could not be allocated has no pixels";
    R_FreeBitmap(&p);
    R_FreeBitmap(nullptr);
    p.uStructSize = 100;
    R_FreeBitmap(&p);
    EXPECT_TRUE(gRegions == 1 && gOverlays == 1);
    EXPECT_EQ(live.count(), 0) << live.text();
    R_SetDisDispatch(nullptr);
}

TEST(CopyHandle, NeverClaimsFieldsItWasNotGiven)
{
    const GuardedRecord brief(kShort);
    ASSERT_EQ(R_InitBitmap(brief, kShort, 5, 5, 8), SUCCESS);
    BITMAPHANDLE full;
    std::memset(static_cast<void*>(&full), 0x55, sizeof full);
    EXPECT_EQ(R_CopyBitmapHandle(&full, brief, kFull), SUCCESS);
    EXPECT_TRUE(full.uStructSize == kShort && full.Width == 5 && full.Size64 == 0x5555555555555555u);
    ASSERT_EQ(R_InitBitmap(&full, kFull, 6, 5, 8), SUCCESS);
    EXPECT_EQ(R_CopyBitmapHandle(brief, &full, kShort), SUCCESS);
    EXPECT_TRUE(brief->uStructSize == kShort && brief->Width == 6);
    EXPECT_EQ((Answered{R_CopyBitmapHandle(nullptr, &full, 99), R_CopyBitmapHandle(nullptr, &full, kFull),
                        R_CopyBitmapHandle(&full, nullptr, kFull)}),
              (Answered{ERROR_INV_STRUCT_SIZE, SUCCESS, ERROR_INV_PARAMETER}));
}

TEST(ExtraData, LivesWithTheBitmap)
{
    const LiveBlocks live;
    {
        const TestBitmap p({}), q({});
        EXPECT_EQ(R_SetBitmapExtraData(p, 0, 6, "abcdef"), SUCCESS);
        void* data = nullptr;
        R_SIZE size = 0;
        EXPECT_EQ(R_GetBitmapExtraData(p, 0, &data, &size), SUCCESS);
        EXPECT_EQ(size, 6u);
        EXPECT_EQ(R_SetBitmapExtraData(p, 0, 3, static_cast<char*>(data) + 2), SUCCESS) << "from its own block";
        EXPECT_EQ(R_CopyBitmapExtraData(q, p, 0), SUCCESS);
        EXPECT_NE(q->pExtraData, p->pExtraData);
        for (const TestBitmap* const bitmap : {&p, &q}) EXPECT_EQ(std::memcmp((*bitmap)->pExtraData, "cde", 3), 0);
        EXPECT_EQ(R_AllocateBitmapExtraData(q, 0, 2), SUCCESS);
        EXPECT_EQ(std::memcmp(q->pExtraData, "\0\0", 2), 0);
        EXPECT_EQ(R_AllocateBitmapExtraData(q, 0, 0), SUCCESS);
        EXPECT_EQ(q->pExtraData, nullptr);
        EXPECT_EQ((Answered{R_AllocateBitmapExtraData(nullptr, 0, 1), R_AllocateBitmapExtraData(q, 1, 1),
                            R_AllocateBitmapExtraData(q, 0, ~R_SIZE{0} / 2), R_SetBitmapExtraData(q, 0, 1, nullptr)}),
                  (Answered{ERROR_INV_BITMAP, ERROR_INV_PARAMETER, ERROR_FAILURE, ERROR_NULL_PTR}));
    }
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(ChangeHeight, CountsWhatTheRowsTake)
{
    for (const Home home : {Home::conventional, Home::movable, Home::disk, Home::tiled}) {
        const TestBitmap p({.home = home, .structSize = kShort});
        SCOPED_TRACE(p.scene().text());
        const R_UINT64 total = conventionalTotal(), offset = p->DataOffset, rowBytes = p->BytesPerLine;
        for (const R_INT height : {4, 2000, 0}) {
            ASSERT_EQ(R_ChangeBitmapHeight(p, height), SUCCESS);
            const auto rows = static_cast<R_UINT64>(height);
            EXPECT_EQ(p->Size, rowBytes * rows + offset) << "the size takes in what row 0 was off by";
            if (height == 0) continue; // what is kept for no rows at all is the home's business
            EXPECT_EQ(conventionalTotal(),
                      home == Home::conventional ? total + rowBytes * rows - rowBytes * 11 : total);
        }
        EXPECT_EQ(R_ChangeBitmapHeight(p, -1), ERROR_INV_SIZE);
    }
}

TEST(ChangeHeight, RefusesLockedPixelsAndWhatThereIsNoMemoryFor)
{
    const TestBitmap movable({.home = Home::movable}), plain({}), disk({.home = Home::disk});
    R_AccessBitmap(movable);
    EXPECT_EQ(R_ChangeBitmapHeight(movable, 3), ERROR_INV_PARAMETER);
    R_ReleaseBitmap(movable);
    EXPECT_EQ(R_ChangeBitmapHeight(movable, 3), SUCCESS);
    EXPECT_EQ(R_ChangeBitmapHeight(nullptr, 3), ERROR_INV_BITMAP);

    R_ManageMemory(MANAGE_SET_LIMIT, conventionalTotal() + 1000, nullptr);
    EXPECT_EQ(R_ChangeBitmapHeight(plain, 2000), ERROR_FAILURE);
    R_ManageMemory(MANAGE_SET_LIMIT, 0, nullptr);
    EXPECT_EQ(plain->Height, 11);

    const std::vector<uint8_t> record = disk.record(), pixels = disk.pixels();
    {
        const NoMemory full(kFailScratch);
        EXPECT_EQ((Answered{R_ChangeBitmapHeight(disk, 2000), R_ChangeBitmapHeight(disk, 3)}),
                  Answered(2, ERROR_FAILURE));
    }
    EXPECT_TRUE(disk.record() == record && disk.pixels() == pixels);
}

} // namespace
} // namespace rv::test
