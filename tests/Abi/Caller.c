/* A program in C that uses the kernel. Each part answers null, or the first thing that was not as promised. */
#include "R_Kernel.h"

#include <string.h>

#define REQUIRE(condition)                                                                                             \
    do {                                                                                                               \
        if (!(condition)) return #condition;                                                                           \
    } while (0)

const char* recordsSeenFromC(void)
{
#define FIELD(field, first, bytes)                                                                                     \
    REQUIRE(offsetof(RECORD, field) == (first) && sizeof(((RECORD*)0)->field) == (bytes));
#include "Records.inc"
    REQUIRE(sizeof(R_INT) == 4 && sizeof(R_UINT) == 4 && sizeof(R_INT64) == 8 && sizeof(R_SIZE) == 8);
    REQUIRE(sizeof(R_WCHAR) == 2 && sizeof(COLORREF) == 4 && sizeof(RECT) == 16 && sizeof(R_SEGMENT) == 8);
    REQUIRE(sizeof(RGBQUAD) == 4 && offsetof(RGBQUAD, rgbBlue) == 0 && offsetof(RGBQUAD, rgbRed) == 2);
    REQUIRE(sizeof(RGBQUAD16) == 8 && sizeof(PALETTEENTRY) == 4 && offsetof(PALETTEENTRY, peRed) == 0);
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
