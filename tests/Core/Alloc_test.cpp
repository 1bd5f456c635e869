#include "Support/FailingPlatform.h"
#include "Support/World.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

namespace rv::test {
namespace {

constexpr R_UINT kFull = BITMAPHANDLE_SIZE;
constexpr R_UINT kShort = BITMAPHANDLE_SIZE_SHORT;

/// A record that is freed at the end of its scope.
struct Record : BITMAPHANDLE {
    Record() : BITMAPHANDLE{} {}
    ~Record() { R_FreeBitmap(this); }
    Record(const Record&) = delete;
    Record& operator=(const Record&) = delete;
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
        R_UINT rowBytes;
        R_INT order, highBit;
        R_UINT colours;
    } cases[] = {
        {1, 1, 4, ORDER_RGB, 0, 2},    {3, 11, 8, ORDER_RGB, 2, 8},  {8, 5, 8, ORDER_RGB, 7, 256},
        {12, 5, 8, ORDER_GRAY, 11, 0}, {16, 3, 8, ORDER_BGR, 15, 0}, {24, 3, 12, ORDER_BGR, 7, 0},
        {32, 7, 28, ORDER_BGR, -1, 0}, {48, 1, 8, ORDER_BGR, 15, 0}, {64, 2, 16, ORDER_BGR, 15, 0},
    };
    for (const R_UINT size : {kFull, kShort}) {
        for (const auto& c : cases) {
            const GuardedRecord p(size);
            ASSERT_EQ(R_InitBitmap(p, size, c.width, 6, c.bits), SUCCESS) << c.bits;
            EXPECT_EQ(p->uStructSize, size);
            EXPECT_EQ(p->BytesPerLine, c.rowBytes) << c.bits;
            EXPECT_EQ(p->Size, c.rowBytes * 6u);
            EXPECT_EQ(p->Order, c.order) << c.bits;
            EXPECT_EQ(p->HighBit, c.highBit) << c.bits;
            EXPECT_EQ(p->PaintHighBit, c.highBit) << c.bits;
            EXPECT_EQ(p->nColors, c.colours) << c.bits;
            EXPECT_EQ(p->ViewPerspective, BOTTOM_LEFT);
            EXPECT_EQ(p->DitheringMethod, 7);
            EXPECT_EQ(p->PaintGamma, 100);
            EXPECT_EQ(p->Flags, 0u);
            EXPECT_EQ(p->pPalette, nullptr);
            if (size == kFull) {
                EXPECT_EQ(p->Size64, p->Size);
                EXPECT_EQ(p->nLockCount, 0);
            }
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
    EXPECT_EQ(R_InitBitmap(&p, kFull, -1, 2, 9), ERROR_INV_SIZE);
    EXPECT_EQ(R_InitBitmap(&p, kFull, 2, -1, 9), ERROR_INV_SIZE);
    EXPECT_EQ(R_InitBitmap(&p, kFull, 0, -1, 9), ERROR_INV_SIZE);
    EXPECT_EQ(R_InitBitmap(&p, kFull, 2, 2, 9), ERROR_INV_BITS_PER_PIXEL);
    EXPECT_EQ(R_InitBitmap(&p, kFull, 0, 0, 9), ERROR_INV_BITS_PER_PIXEL);
    BITMAPHANDLE zero{};
    zero.uStructSize = kFull;
    EXPECT_EQ(std::memcmp(&p, &zero, sizeof p), 0);
    EXPECT_EQ(R_InitBitmap(&p, kFull, 0, 0, 0), SUCCESS);
    EXPECT_EQ(std::memcmp(&p, &zero, sizeof p), 0);
    EXPECT_EQ(R_InitBitmap(&p, kFull, 0, 0, 8), SUCCESS) << "no pixels is no error";
    EXPECT_EQ(R_AllocateBitmap(&p, MEM_CONVENTIONAL), ERROR_INV_SIZE);
}

TEST(Init, AShortRecordHoldsNoMoreThanItsSizeFieldCan)
{
    const GuardedRecord p(kShort);
    const std::vector<uint8_t> zeros(kShort);
    EXPECT_EQ(R_InitBitmap(p, kShort, 0x10000, 0x10000, 8), ERROR_NO_MEMORY);
    EXPECT_EQ(std::memcmp(p.get(), zeros.data(), kShort), 0);
    EXPECT_EQ(R_InitBitmap(p, kShort, 0x10000, 0xFFFF, 8), SUCCESS) << "exactly 0xFFFF0000 bytes";
    BITMAPHANDLE full;
    EXPECT_EQ(R_InitBitmap(&full, kFull, 0x10000, 0x10000, 8), SUCCESS);
    EXPECT_EQ(full.Size64, 0x100000000u);
}

TEST(Init, TakesTheThreadsDefaults)
{
    const R_INT former = R_SetDefaultXResolution(600);
    R_SetDefaultYResolution(0);
    BITMAPHANDLE p;
    R_InitBitmap(&p, kFull, 1, 1, 1);
    EXPECT_EQ(p.XResolution, 600);
    EXPECT_EQ(p.YResolution, 150);
    R_SetDefaultXResolution(former);
    R_SetDefaultYResolution(former);
}

TEST(Create, ChoosesOrderPerspectiveAndPalette)
{
    const RGBQUAD own[16] = {{1, 2, 3, 0}};
    {
        Record p;
        ASSERT_EQ(create(&p, MEM_CONVENTIONAL, 0), SUCCESS);
        EXPECT_EQ(p.BitsPerPixel, 8);
        EXPECT_EQ(p.ViewPerspective, TOP_LEFT);
        EXPECT_EQ(R_IsGrayScalePalette(p.pPalette, p.nColors), 1);
    }
    {
        Record p;
        ASSERT_EQ(create(&p, MEM_CONVENTIONAL, 4, ORDER_GRAY, nullptr, LEFT_TOP), SUCCESS);
        EXPECT_EQ(p.Order, ORDER_RGB);
        EXPECT_EQ(p.ViewPerspective, LEFT_TOP);
        EXPECT_EQ(R_IsGrayScalePalette(p.pPalette, p.nColors), 1);
    }
    {
        Record p;
        ASSERT_EQ(create(&p, MEM_CONVENTIONAL, 4, ORDER_BGR, own), SUCCESS);
        EXPECT_EQ(p.Order, ORDER_RGB);
        EXPECT_NE(p.pPalette, own);
        EXPECT_EQ(std::memcmp(p.pPalette, own, sizeof own), 0);
    }
    {
        Record p; // two bits have four colours of their own, not the two of one bit
        ASSERT_EQ(create(&p, MEM_CONVENTIONAL, 2), SUCCESS);
        EXPECT_EQ(std::memcmp(p.pPalette, R_IntGetFixedPalette(2), 16), 0);
    }
    {
        Record p;
        ASSERT_EQ(create(&p, MEM_CONVENTIONAL, 24, 5), SUCCESS);
        EXPECT_EQ(p.Order, 5);
        EXPECT_EQ(p.pPalette, nullptr);
    }
    const LiveBlocks live;
    Record p;
    EXPECT_EQ(create(&p, MEM_CONVENTIONAL, 32, 5), ERROR_INV_BITS_PER_PIXEL);
    EXPECT_EQ(create(&p, MEM_CONVENTIONAL, 8, 0, nullptr, 9), ERROR_INV_PARAMETER);
    EXPECT_EQ(create(&p, 0, 8), ERROR_INV_PARAMETER);
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

    EXPECT_EQ(R_SetBitmapDataPointer(&p, pixels, 5), ERROR_INV_PARAMETER);
    EXPECT_EQ(R_SetBitmapDataPointer(&p, nullptr, 5), SUCCESS);
    EXPECT_EQ(R_GetBitmapRow(&p, row, 0, 12), ERROR_INV_BITMAP);
    EXPECT_EQ(R_SetBitmapDataPointer(nullptr, pixels, 48), ERROR_INV_BITMAP);
    Record owned;
    ASSERT_EQ(create(&owned, MEM_CONVENTIONAL, 8), SUCCESS);
    EXPECT_EQ(R_SetBitmapDataPointer(&owned, pixels, 48), ERROR_INV_PARAMETER) << "its own pixels would be lost";
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
    const auto createAsking = [&](BITMAPHANDLE* p, Answers& answers) {
        BITMAPHANDLEDATACALLBACKS callbacks{};
        callbacks.uStructSize = BITMAPHANDLEDATACALLBACKS_SIZE;
        callbacks.pUserData = &answers;
        callbacks.AllocateBitmapDataCallback = answerAllocate;
        return R_CreateBitmapWithCallbacks(p, kFull, MEM_USER, 10, 4, 24, ORDER_BGR, nullptr, 0, &data, 1, &callbacks);
    };
    const LiveBlocks live;
    {
        Record p;
        Answers supplies{SUCCESS_ABORT, 0, 0, {}};
        EXPECT_EQ(createAsking(&p, supplies), SUCCESS) << "the size of a callback's pixels is the callback's business";
        EXPECT_EQ(p.Flags, FLAG_ALLOCATED | FLAG_MIRROR);
        EXPECT_EQ(p.Addr.Pointer, &data);
        EXPECT_EQ(supplies.seen.uStructSize, ALLOCATIONINFO_SIZE);
        EXPECT_EQ(supplies.seen.Size, 128u);
        EXPECT_EQ(supplies.seen.uMemory, MEM_USER);
        EXPECT_EQ(supplies.seen.pData, &data);
        EXPECT_EQ(supplies.seen.BytesPerLine, 32);
    }
    {
        Record p;
        Answers refuses{-42, 0, 0, {}};
        EXPECT_EQ(createAsking(&p, refuses), -42);
        EXPECT_EQ(p.Flags & FLAG_ALLOCATED, 0u);
    }
    {
        Record p;
        Answers moves{SUCCESS, MEM_CONVENTIONAL, 0, {}};
        EXPECT_EQ(createAsking(&p, moves), SUCCESS);
        EXPECT_EQ(p.Flags, FLAG_ALLOCATED | FLAG_CONVENTIONAL_MEMORY);
        EXPECT_NE(p.Addr.Pointer, &data) << "pixels that the kernel owns are never the caller's";
        Answers nonsense{SUCCESS, 3, 0, {}};
        Record q;
        EXPECT_EQ(createAsking(&q, nonsense), ERROR_INV_PARAMETER);
    }
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(Allocate, AsksTheProcessHookFirst)
{
    Answers answers{SUCCESS, MEM_USER, 0, {}};
    ALLOCATECALLBACK old = answerHook;
    void* oldData = &answers;
    ASSERT_EQ(R_SetAllocateBitmapCallback(answerHook, &answers, &old, &oldData), SUCCESS);
    EXPECT_EQ(old, nullptr);
    EXPECT_EQ(oldData, nullptr);
    Record p;
    EXPECT_EQ(create(&p, MEM_CONVENTIONAL, 8), SUCCESS);
    EXPECT_EQ(p.Flags, FLAG_ALLOCATED | FLAG_CONVENTIONAL_MEMORY | FLAG_MIRROR) << "the hook made it the caller's";
    answers.allocate = -1000;
    Record q;
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
    p.pRgnInfo = &region;
    p.pOverlays = &region;
    p.Flags |= FLAG_INTERLACED | FLAG_SIGNED;
    R_FreeBitmap(&p);
    EXPECT_EQ(p.Flags, FLAG_INTERLACED | FLAG_SIGNED);
    EXPECT_EQ(p.Addr.Handle, nullptr);
    EXPECT_EQ(p.Addr.Pointer, nullptr);
    EXPECT_EQ(p.pPalette, nullptr);
    EXPECT_EQ(p.pExtraData, nullptr);
    EXPECT_EQ(p.Width, 10);
    EXPECT_EQ(gRegions, 1);
    EXPECT_EQ(gOverlays, 1);
    EXPECT_EQ(live.count(), 0) << live.text();

    EXPECT_EQ(R_AllocateBitmap(&p, MEM_CONVENTIONAL), SUCCESS) << "it can be allocated again";
    R_FreeBitmap(&p);
    R_FreeBitmap(&p);
    R_FreeBitmap(nullptr);
    p.uStructSize = 100;
    R_FreeBitmap(&p);
    EXPECT_EQ(gRegions, 1);
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
    EXPECT_EQ(full.uStructSize, kShort);
    EXPECT_EQ(full.Width, 5);
    EXPECT_EQ(full.Size64, 0x5555555555555555u);
    ASSERT_EQ(R_InitBitmap(&full, kFull, 6, 5, 8), SUCCESS);
    EXPECT_EQ(R_CopyBitmapHandle(brief, &full, kShort), SUCCESS);
    EXPECT_EQ(brief->uStructSize, kShort);
    EXPECT_EQ(brief->Width, 6);
    EXPECT_EQ(R_CopyBitmapHandle(nullptr, &full, 99), ERROR_INV_STRUCT_SIZE);
    EXPECT_EQ(R_CopyBitmapHandle(nullptr, &full, kFull), SUCCESS);
    EXPECT_EQ(R_CopyBitmapHandle(&full, nullptr, kFull), ERROR_INV_PARAMETER);
}

TEST(ExtraData, LivesWithTheBitmap)
{
    const LiveBlocks live;
    {
        Record p, q;
        ASSERT_EQ(create(&p, MEM_CONVENTIONAL, 8), SUCCESS);
        ASSERT_EQ(create(&q, MEM_CONVENTIONAL, 8), SUCCESS);
        EXPECT_EQ(R_SetBitmapExtraData(&p, 0, 6, "abcdef"), SUCCESS);
        void* data = nullptr;
        R_SIZE size = 0;
        EXPECT_EQ(R_GetBitmapExtraData(&p, 0, &data, &size), SUCCESS);
        EXPECT_EQ(size, 6u);
        EXPECT_EQ(R_SetBitmapExtraData(&p, 0, 3, static_cast<char*>(data) + 2), SUCCESS) << "from its own block";
        EXPECT_EQ(std::memcmp(p.pExtraData, "cde", 3), 0);
        EXPECT_EQ(R_CopyBitmapExtraData(&q, &p, 0), SUCCESS);
        EXPECT_EQ(std::memcmp(q.pExtraData, "cde", 3), 0);
        EXPECT_NE(q.pExtraData, p.pExtraData);
        EXPECT_EQ(R_AllocateBitmapExtraData(&q, 0, 2), SUCCESS);
        EXPECT_EQ(std::memcmp(q.pExtraData, "\0\0", 2), 0);
        EXPECT_EQ(R_AllocateBitmapExtraData(&q, 0, 0), SUCCESS);
        EXPECT_EQ(q.pExtraData, nullptr);
        EXPECT_EQ(R_AllocateBitmapExtraData(nullptr, 0, 1), ERROR_INV_BITMAP);
        EXPECT_EQ(R_AllocateBitmapExtraData(&q, 1, 1), ERROR_INV_PARAMETER);
        EXPECT_EQ(R_AllocateBitmapExtraData(&q, 0, ~R_SIZE{0} / 2), ERROR_FAILURE);
        EXPECT_EQ(R_SetBitmapExtraData(&q, 0, 1, nullptr), ERROR_NULL_PTR);
    }
    EXPECT_EQ(live.count(), 0) << live.text();
}

TEST(ChangeHeight, KeepsTheRowsThatRemain)
{
    for (const Home home : {Home::conventional, Home::movable}) {
        for (const R_UINT size : {kFull, kShort}) {
            Scene scene;
            scene.home = home;
            scene.structSize = size;
            const TestBitmap p(scene);
            const std::vector<uint8_t> before = p.pixels();
            const R_UINT rowBytes = p->BytesPerLine;
            R_UINT64 total = 0, now = 0;
            R_ManageMemory(MANAGE_GET_TOTAL, 0, &total);

            const R_UINT64 offset = p->DataOffset;
            ASSERT_EQ(R_ChangeBitmapHeight(p.get(), 4), SUCCESS) << scene.text();
            std::vector<uint8_t> wanted(before.begin(), before.begin() + rowBytes * 4);
            EXPECT_EQ(p.pixels(), wanted) << scene.text();
            EXPECT_EQ(p->Size, rowBytes * 4 + offset) << "the size takes in what row 0 was off by";
            ASSERT_EQ(R_ChangeBitmapHeight(p.get(), 2000), SUCCESS) << scene.text();
            wanted.resize(size_t{rowBytes} * 2000);
            EXPECT_EQ(p.pixels(), wanted) << scene.text();
            R_ManageMemory(MANAGE_GET_TOTAL, 0, &now);
            EXPECT_EQ(now, home == Home::conventional ? total + rowBytes * (2000 - 11) : total);
            ASSERT_EQ(R_ChangeBitmapHeight(p.get(), 0), SUCCESS);
            EXPECT_EQ(p->Height, 0);
            EXPECT_EQ(R_ChangeBitmapHeight(p.get(), -1), ERROR_INV_SIZE);
        }
    }
}

TEST(ChangeHeight, RefusesBorrowedAndLockedPixels)
{
    Scene scene;
    scene.home = Home::user;
    const TestBitmap user(scene);
    EXPECT_EQ(R_ChangeBitmapHeight(user.get(), 3), ERROR_INV_PARAMETER);
    scene.home = Home::movable;
    const TestBitmap movable(scene);
    R_AccessBitmap(movable.get());
    EXPECT_EQ(R_ChangeBitmapHeight(movable.get(), 3), ERROR_INV_PARAMETER);
    R_ReleaseBitmap(movable.get());
    EXPECT_EQ(R_ChangeBitmapHeight(movable.get(), 3), SUCCESS);
    EXPECT_EQ(R_ChangeBitmapHeight(nullptr, 3), ERROR_INV_BITMAP);

    const TestBitmap plain({});
    R_UINT64 total = 0;
    R_ManageMemory(MANAGE_GET_TOTAL, 0, &total);
    R_ManageMemory(MANAGE_SET_LIMIT, total + 1000, nullptr);
    EXPECT_EQ(R_ChangeBitmapHeight(plain.get(), 2000), ERROR_FAILURE);
    R_ManageMemory(MANAGE_SET_LIMIT, 0, nullptr);
    EXPECT_EQ(plain->Height, 11);
}

} // namespace
} // namespace rv::test
