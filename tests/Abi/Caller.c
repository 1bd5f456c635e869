#include "Caller.h"

#include "Internal/R_Int.h"
#include "R_Kernel.h"

#include <stdlib.h>
#include <string.h>

#define TEXT_OF(x) #x
#define REQUIRE(condition)                                                                                             \
    do {                                                                                                               \
        if (!(condition)) return #condition;                                                                           \
    } while (0)

const char* recordsSeenFromC(void)
{
#define RECORD_FIELD(record, field, first, bytes)                                                                      \
    if (offsetof(record, field) != (first) || sizeof(((record*)0)->field) != (bytes))                                  \
        return TEXT_OF(record) "." TEXT_OF(field);
#include "Records.inc"
#undef RECORD_FIELD
    REQUIRE(sizeof(R_INT) == 4 && sizeof(R_UINT) == 4 && sizeof(R_INT64) == 8 && sizeof(R_SIZE) == 8);
    REQUIRE(sizeof(R_WCHAR) == 2 && sizeof(COLORREF) == 4 && sizeof(RECT) == 16 && sizeof(R_SEGMENT) == 8);
    REQUIRE(sizeof(RGBQUAD) == 4 && offsetof(RGBQUAD, rgbBlue) == 0 && offsetof(RGBQUAD, rgbRed) == 2);
    REQUIRE(sizeof(RGBQUAD16) == 8 && sizeof(PALETTEENTRY) == 4 && offsetof(PALETTEENTRY, peRed) == 0);
    return NULL;
}

/* Makes a picture in a record of either size, fills its rows, flips it and reads the rows back. */
const char* pictureMadeFromC(unsigned recordSize, int bitsPerPixel)
{
    enum { height = 5, rowBytes = 64 };
    unsigned char row[rowBytes];
    /* A short record is a short block: what is behind it belongs to somebody else. */
    BITMAPHANDLE* bitmap = calloc(1, recordSize);
    REQUIRE(bitmap != NULL);
    REQUIRE(R_InitBitmap(bitmap, recordSize, rowBytes * 8 / bitsPerPixel, height, bitsPerPixel) == SUCCESS);
    REQUIRE(R_AllocateBitmap(bitmap, MEM_CONVENTIONAL) == SUCCESS);
    REQUIRE((bitmap->Flags & FLAG_ALLOCATED) != 0 && bitmap->BytesPerLine <= rowBytes);

    const R_SIZE bytes = bitmap->BytesPerLine;
    for (R_INT y = 0; y < height; ++y) {
        memset(row, 0x11 * (y + 1), sizeof row);
        REQUIRE(R_PutBitmapRow(bitmap, row, y, bytes) == (R_SSIZE)bytes);
    }
    REQUIRE(R_FlipBitmap(bitmap) == SUCCESS);
    for (R_INT y = 0; y < height; ++y) {
        REQUIRE(R_GetBitmapRow(bitmap, row, y, bytes) == (R_SSIZE)bytes);
        REQUIRE(row[0] == 0x11 * (height - y));
    }
    R_FreeBitmap(bitmap);
    REQUIRE((bitmap->Flags & FLAG_ALLOCATED) == 0 && bitmap->Addr.Pointer == NULL);
    free(bitmap);
    return NULL;
}

/* Storage of the caller's, behind the data callbacks of a bitmap. */
struct Storage {
    unsigned char rows[4][8];
    int reads, writes;
};

static R_INT getRow(BITMAPHANDLE* pBitmap, void* pBuffer, R_INT nRow, R_INT nCol, R_SIZE uBytes, void* pUserData)
{
    struct Storage* storage = pUserData;
    ++storage->reads;
    memcpy(pBuffer, &storage->rows[nRow][nCol * pBitmap->BitsPerPixel / 8], uBytes);
    return (R_INT)uBytes;
}

static R_INT putRow(BITMAPHANDLE* pBitmap, void* pBuffer, R_INT nRow, R_INT nCol, R_SIZE uBytes, void* pUserData)
{
    struct Storage* storage = pUserData;
    ++storage->writes;
    memcpy(&storage->rows[nRow][nCol * pBitmap->BitsPerPixel / 8], pBuffer, uBytes);
    return (R_INT)uBytes;
}

const char* storageKeptInC(void)
{
    struct Storage storage = {.reads = 0};
    BITMAPHANDLEDATACALLBACKS callbacks = {.uStructSize = BITMAPHANDLEDATACALLBACKS_SIZE,
                                           .pUserData = &storage,
                                           .GetBitmapRowColCallback = getRow,
                                           .PutBitmapRowColCallback = putRow};
    BITMAPHANDLE bitmap;
    unsigned char row[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    REQUIRE(R_CreateBitmapWithCallbacks(&bitmap, sizeof bitmap, MEM_CONVENTIONAL, 8, 4, 8, ORDER_RGB, NULL, TOP_LEFT,
                                        NULL, 0, &callbacks) == SUCCESS);
    REQUIRE(R_PutBitmapRow(&bitmap, row, 1, 8) == 8 && storage.writes == 1);
    REQUIRE(memcmp(storage.rows[1], row, 8) == 0);
    REQUIRE(R_ReverseBitmap(&bitmap) == SUCCESS);
    REQUIRE(storage.rows[1][0] == 8 && storage.rows[1][7] == 1);
    REQUIRE(R_GetBitmapRow(&bitmap, row, 1, 8) == 8 && row[0] == 8 && storage.reads > 1);
    R_FreeBitmap(&bitmap);
    return NULL;
}

/* A bitmap without pixels, no bitmap, and a record of a size that never was. */
const char* refusalsSeenFromC(void)
{
    BITMAPHANDLE bitmap, other;
    unsigned char row[4] = {0};
    R_INT accessed = 0;
    REQUIRE(R_InitBitmap(NULL, sizeof bitmap, 1, 1, 8) == ERROR_INV_PARAMETER);
    REQUIRE(R_InitBitmap(&bitmap, 283, 1, 1, 8) == ERROR_INV_STRUCT_SIZE);
    REQUIRE(R_InitBitmap(&bitmap, sizeof bitmap, -1, 1, 8) == ERROR_INV_SIZE);
    REQUIRE(R_InitBitmap(&bitmap, sizeof bitmap, 1, 1, 9) == ERROR_INV_BITS_PER_PIXEL);
    REQUIRE(R_InitBitmap(&bitmap, sizeof bitmap, 4, 1, 8) == SUCCESS);
    REQUIRE(R_GetBitmapRow(&bitmap, row, 0, 4) == ERROR_INV_BITMAP);
    REQUIRE(R_FlipBitmap(&bitmap) == ERROR_INV_PARAMETER && R_ReverseBitmap(&bitmap) == ERROR_INV_BITMAP);
    REQUIRE(R_IntAccessBitmap(NULL, &accessed) == ERROR_NULL_PTR);
    REQUIRE(R_CopyBitmapHandle(&other, &bitmap, 100) == ERROR_INV_STRUCT_SIZE);
    R_FreeBitmap(NULL);
    return NULL;
}
