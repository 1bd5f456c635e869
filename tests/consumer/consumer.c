/* Flips a small picture through the installed library and shows its rows. */
#include <R_Kernel.h>
#include <stdio.h>

int main(void)
{
    BITMAPHANDLE bitmap;
    R_INT status =
        R_CreateBitmap(&bitmap, sizeof(bitmap), MEM_CONVENTIONAL, 4, 3, 8, ORDER_RGB, NULL, TOP_LEFT, NULL, 0);
    for (R_INT y = 0; status == SUCCESS && y < bitmap.Height; ++y) {
        unsigned char row[4] = {(unsigned char)y, 10, 20, 30};
        if (R_PutBitmapRow(&bitmap, row, y, sizeof(row)) != (R_SSIZE)sizeof(row)) status = FAILURE;
    }
    if (status == SUCCESS) status = R_FlipBitmap(&bitmap);
    for (R_INT y = 0; status == SUCCESS && y < bitmap.Height; ++y) {
        unsigned char row[4] = {0};
        if (R_GetBitmapRow(&bitmap, row, y, sizeof(row)) != (R_SSIZE)sizeof(row)) status = FAILURE;
        if (row[0] != bitmap.Height - 1 - y || row[1] != 10 || row[2] != 20 || row[3] != 30) status = FAILURE;
        printf("%d %d %d %d\n", row[0], row[1], row[2], row[3]);
    }
    if (status != SUCCESS) {
        char text[200];
        if (R_GetFriendlyErrorMessageA(status, text, sizeof(text), 0) == SUCCESS) fprintf(stderr, "%s\n", text);
    }
    R_FreeBitmap(&bitmap);
    return status == SUCCESS ? 0 : 1;
}
