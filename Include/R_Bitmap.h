/// The bitmap record and its life: initialise, allocate, access, release, free.
///
/// The caller owns the record; the kernel owns what the record points to. One thread at a time may work on a
/// bitmap; while it holds an access and changes nothing, others may read rows with R_GetBitmapRow and
/// R_GetBitmapRowCol, wherever the kernel has placed them. Every call accepts both record sizes and touches no byte
/// past the declared one.
#ifndef R_BITMAP_H
#define R_BITMAP_H

#include "R_Status.h"
#include "R_Types.h"

// Bits of BITMAPHANDLE.Flags.
#define FLAG_ALLOCATED 0x1u
#define FLAG_CONVENTIONAL_MEMORY 0x2u
#define FLAG_DISK_MEMORY 0x4u
#define FLAG_PROGRESSIVE_AVAILABLE 0x8u
#define FLAG_LOCKED_MEMORY 0x10u
#define FLAG_INTERLACED 0x20u
#define FLAG_WAIT_USER_INPUT 0x40u
#define FLAG_TRANSPARENCY 0x80u
#define FLAG_COMPRESSED 0x100u
#define FLAG_SIGNED 0x200u
#define FLAG_MIRROR 0x400u ///< the pixels are not the kernel's: never freed
#define FLAG_USE_LUT 0x800u
#define FLAG_GLOBAL 0x1000u ///< Addr.Handle is a movable block; Addr.Pointer holds only while it is locked
#define FLAG_USE_PAINT_LUT 0x2000u
#define FLAG_TILED 0x4000u
#define FLAG_SUPER_COMPRESSED 0x8000u
#define FLAG_NO_CLIP 0x10000u
#define FLAG_PREMULTIPLY_ALPHA 0x20000u
#define FLAG_NON_LINEAR_LUT 0x40000u
#define FLAG_ALPHA_BLEND 0x80000u
#define FLAG_FLOAT 0x100000u

// ViewPerspective: where row 0 and column 0 of the stored pixels lie on the displayed image. The numbers are
// those of the TIFF Orientation field.
#define TOP_LEFT 1
#define TOP_RIGHT 2
#define BOTTOM_RIGHT 3
#define BOTTOM_LEFT 4
#define LEFT_TOP 5
#define RIGHT_TOP 6
#define RIGHT_BOTTOM 7
#define LEFT_BOTTOM 8

// Order: the components of a pixel in memory order; alpha is last.
#define ORDER_RGB 0
#define ORDER_BGR 1
#define ORDER_GRAY 2

// Memory flags of allocation.
#define MEM_CONVENTIONAL 1u
#define MEM_USER 2u
#define MEM_TILED 4u
#define MEM_NO_TILED 8u
#define MEM_DISK 128u
#define MEM_NO_DISK 256u
#define MEM_COMPRESSED 512u
#define MEM_SUPER_COMPRESSED 1024u ///< for 1, 8 and 24 bits, where LZ4 or zlib is installed

// Accepted values of uStructSize.
#define BITMAPHANDLE_SIZE 284u
#define BITMAPHANDLE_SIZE_SHORT 228u ///< ends with LUTLength16

struct BITMAPHANDLEDATACALLBACKS;

/// One raster image. Byte-packed: bindings read it by position.
R_PACK_BEGIN
typedef struct BITMAPHANDLE {
    R_UINT uStructSize; ///< 284, or 228 for a record that ends with LUTLength16
    struct R_PACKED {
        void* Handle;  ///< what owns the pixels: a mapping, a movable block, a file, tiles
        void* Pointer; ///< row 0 of conventional pixels, 32-byte aligned; row blocks of compressed ones
    } Addr;
    R_INT Width;         ///< pixels of a stored row
    R_INT Height;        ///< stored rows
    R_INT BitsPerPixel;  ///< 1 to 8, 12, 16, 24, 32, 48 or 64
    R_UINT BytesPerLine; ///< bytes of a stored row, a multiple of 4
    R_INT64 CurrentPos;
    R_INT CurrentRow;
    R_UINT Flags; ///< FLAG_ bits
    R_UINT nColors;
    RGBQUAD* pPalette;
    R_INT ViewPerspective;
    R_INT Order;
    R_UINT64 Size; ///< bytes of pixels
    void* pDitherData;
    R_INT DitheringMethod;
    void* pRgnInfo;
    R_INT XResolution; ///< dots per inch
    R_INT YResolution;
    R_INT Left; ///< place in an animation frame
    R_INT Top;
    R_INT Delay;
    COLORREF Background;
    COLORREF Transparency;
    R_INT DisposalMethod;
    R_INT LowBit;  ///< lowest significant bit of a gray sample
    R_INT HighBit; ///< highest one; negative means BitsPerPixel - 1
    RGBQUAD* pLUT; ///< the caller's; never freed, shared by duplicates
    R_UINT LUTLength;
    R_UINT64 DataOffset; ///< from the start of the block to Addr.Pointer
    R_INT MinVal;
    R_INT MaxVal;
    R_INT PaintLowBit;
    R_INT PaintHighBit;
    R_INT PaintGamma; ///< times 100
    R_INT PaintContrast;
    R_INT PaintIntensity;
    void* pPaintLUT;
    void* pOverlays;
    R_INT OriginalFormat;
    void* pExtraData;
    R_UINT64 ExtraDataSize;
    R_UINT LUTLength16;
    // A 228-byte record ends here.
    RGBQUAD16* pLUT16;
    void* pPaintLUT16;
    R_UINT64 Reserved1;
    R_UINT64 Size64; ///< bytes of pixels, where uStructSize is above 252
    R_UINT64 Reserved2;
    R_INT nLockCount;
    struct BITMAPHANDLEDATACALLBACKS* pDataCallbacks; ///< the kernel's copy
    R_UINT Reserved;                                  ///< the caller's
} R_PACKED BITMAPHANDLE;

/// What an allocation asks for. Byte-packed.
typedef struct ALLOCATIONINFO {
    R_UINT uStructSize; ///< 52
    R_INT Width;
    R_INT Height;
    R_INT BitsPerPixel;
    R_INT BytesPerLine;
    R_INT Order;
    R_INT ViewPerspective;
    R_UINT64 Size;
    R_UINT uMemory; ///< MEM_ flags; an allocate callback may change them
    void* pData;    ///< R_CreateBitmap's data pointer; the source palette when a copy begins
    R_UINT Reserved;
} R_PACKED ALLOCATIONINFO;

/// The process-wide threshold above which one bitmap goes to disk. Byte-packed.
typedef struct GLOBALMEMORYTHRESHOLDS {
    R_UINT uStructSize; ///< 12
    R_INT64 nThreshold; ///< bytes; 0 is none
} R_PACKED GLOBALMEMORYTHRESHOLDS;
R_PACK_END

// A bitmap's data callbacks. Results: 1 continue with the kernel's own handling, 2 handled, anything else is the
// call's result. A row callback answers 0 to let the kernel continue; any other answer is the row call's result.
typedef R_INT (*ALLOCATEBITMAPDATACALLBACK)(BITMAPHANDLE* pBitmap, ALLOCATIONINFO* pInfo, void* pUserData);
typedef R_INT (*FREEBITMAPDATACALLBACK)(BITMAPHANDLE* pBitmap, void* pUserData);
typedef R_INT (*BEGINCOPYBITMAPDATACALLBACK)(BITMAPHANDLE* pSrc, R_UINT uFlags, ALLOCATIONINFO* pDstInfo,
                                             struct BITMAPHANDLEDATACALLBACKS* pDstCallbacks, void* pUserData);
typedef R_INT (*ENDCOPYBITMAPDATACALLBACK)(BITMAPHANDLE* pSrc, BITMAPHANDLE* pDst, R_INT nStatus, void* pUserData);
typedef R_INT (*ACCESSBITMAPCALLBACK)(BITMAPHANDLE* pBitmap, void* pUserData);
typedef R_INT (*BITMAPROWCOLCALLBACK)(BITMAPHANDLE* pBitmap, void* pBuffer, R_INT nRow, R_INT nCol, R_SIZE uBytes,
                                      void* pUserData);
typedef R_INT (*GETBITMAPSCRATCHBUFFERCALLBACK)(BITMAPHANDLE* pBitmap, void** ppBuffer, R_SIZE uBytes, void* pUserData);

/// Takes over the storage of one bitmap. Byte-packed. A null member is a step that the kernel does alone.
R_PACK_BEGIN
typedef struct BITMAPHANDLEDATACALLBACKS {
    R_UINT uStructSize; ///< 84
    void* pUserData;
    ALLOCATEBITMAPDATACALLBACK AllocateBitmapDataCallback;   ///< before the pixels are placed
    FREEBITMAPDATACALLBACK FreeBitmapDataCallback;           ///< before the pixels are freed
    BEGINCOPYBITMAPDATACALLBACK BeginCopyBitmapDataCallback; ///< when a copy begins
    ENDCOPYBITMAPDATACALLBACK EndCopyBitmapDataCallback;     ///< when that copy ends
    ACCESSBITMAPCALLBACK AccessBitmapCallback;               ///< on the outermost access
    ACCESSBITMAPCALLBACK ReleaseBitmapCallback;              ///< on the outermost release
    BITMAPROWCOLCALLBACK GetBitmapRowColCallback;            ///< before every row read
    BITMAPROWCOLCALLBACK PutBitmapRowColCallback;            ///< before every row write
    /// Scratch memory for an operation that cannot use rows in place: 2 with *ppBuffer a block of uBytes bytes, another
    /// for every call, the kernel's to use until the bitmap's release; 1 lets the kernel take its own.
    GETBITMAPSCRATCHBUFFERCALLBACK GetBitmapScratchBufferCallback;
} R_PACKED BITMAPHANDLEDATACALLBACKS;
R_PACK_END

#define BITMAPHANDLEDATACALLBACKS_SIZE 84u
#define ALLOCATIONINFO_SIZE 52u
#define GLOBALMEMORYTHRESHOLDS_SIZE 12u

R_STATIC_ASSERT(sizeof(BITMAPHANDLE) == BITMAPHANDLE_SIZE, "the record is byte-exact");
R_STATIC_ASSERT(offsetof(BITMAPHANDLE, pLUT16) == BITMAPHANDLE_SIZE_SHORT, "a short record ends before pLUT16");
R_STATIC_ASSERT(offsetof(BITMAPHANDLE, Size) == 72 && offsetof(BITMAPHANDLE, Size64) == 252, "the two sizes");
R_STATIC_ASSERT(offsetof(BITMAPHANDLE, pDataCallbacks) == 272, "the last pointer");
R_STATIC_ASSERT(sizeof(BITMAPHANDLEDATACALLBACKS) == BITMAPHANDLEDATACALLBACKS_SIZE, "byte-exact");
R_STATIC_ASSERT(sizeof(ALLOCATIONINFO) == ALLOCATIONINFO_SIZE, "byte-exact");
R_STATIC_ASSERT(sizeof(GLOBALMEMORYTHRESHOLDS) == GLOBALMEMORYTHRESHOLDS_SIZE, "byte-exact");

/// Process-wide hook that is asked before every allocation; it may change pInfo->uMemory. Any answer but SUCCESS
/// is the allocation's result.
typedef R_INT (*ALLOCATECALLBACK)(ALLOCATIONINFO* pInfo, void* pUserData);

/// Fills a record: uStructSize 284 or 228, nWidth and nHeight in pixels, nBitsPerPixel one of the fourteen depths.
/// Three zeros make an empty record. Allocates nothing. The record's former content is not looked at.
/// Errors: ERROR_INV_PARAMETER null; ERROR_INV_STRUCT_SIZE; ERROR_INV_SIZE negative, or callbacks for no pixels;
/// ERROR_INV_BITS_PER_PIXEL; ERROR_NO_MEMORY more than 0xFFFF0000 bytes in a 228-byte record, which is zeroed.
R_API R_INT R_InitBitmap(BITMAPHANDLE* pBitmap, R_UINT uStructSize, R_INT nWidth, R_INT nHeight,
                         R_INT nBitsPerPixel) R_NOEXCEPT;
/// R_InitBitmap, then R_SetBitmapDataCallbacks where pCallbacks is not null.
R_API R_INT R_InitBitmapWithCallbacks(BITMAPHANDLE* pBitmap, R_UINT uStructSize, R_INT nWidth, R_INT nHeight,
                                      R_INT nBitsPerPixel, const BITMAPHANDLEDATACALLBACKS* pCallbacks) R_NOEXCEPT;

/// Initialises, allocates and gives the bitmap its palette.
/// nBitsPerPixel   0 is 8 bits with a gray palette
/// nOrder          ORDER_ value; 2 with 1 to 8 bits and no palette asks for a gray palette; 5 needs 24 or 48 bits
/// pPalette        2^nBitsPerPixel entries, copied; null takes the depth's fixed palette
/// nViewPerspective 0 is TOP_LEFT
/// pData, uDataSize the caller's pixels with MEM_USER: exactly the bitmap's size, and the caller's to free
/// Errors: those of R_InitBitmap and R_AllocateBitmap; ERROR_INV_PARAMETER for the perspective or uDataSize.
R_API R_INT R_CreateBitmap(BITMAPHANDLE* pBitmap, R_UINT uStructSize, R_UINT uMemory, R_INT nWidth, R_INT nHeight,
                           R_INT nBitsPerPixel, R_INT nOrder, const RGBQUAD* pPalette, R_INT nViewPerspective,
                           void* pData, R_UINT64 uDataSize) R_NOEXCEPT;
R_API R_INT R_CreateBitmapWithCallbacks(BITMAPHANDLE* pBitmap, R_UINT uStructSize, R_UINT uMemory, R_INT nWidth,
                                        R_INT nHeight, R_INT nBitsPerPixel, R_INT nOrder, const RGBQUAD* pPalette,
                                        R_INT nViewPerspective, void* pData, R_UINT64 uDataSize,
                                        const BITMAPHANDLEDATACALLBACKS* pCallbacks) R_NOEXCEPT;

/// Places the pixels of an initialised record; they start as zeros. uMemory is a set of MEM_ flags: what does not
/// fit in conventional memory goes to tiles or to a temporary file unless the flags forbid it.
/// Errors: ERROR_INV_PARAMETER null or a set of flags that makes no sense; ERROR_INV_STRUCT_SIZE; ERROR_INV_SIZE no
/// pixels, or rows that the size does not cover; ERROR_FAILURE no memory or room on disk;
/// ERROR_MEMORY_LIMIT; what a callback answers. The record has no pixels then.
/// A record's earlier pixels are not freed: they may be another record's by now.
R_API R_INT R_AllocateBitmap(BITMAPHANDLE* pBitmap, R_UINT uMemory) R_NOEXCEPT;
/// Frees the pixels and all else the record owns. The geometry stays, so that the record can be allocated again.
/// Harmless on an initialised record without pixels, a null pointer or a record of another size.
R_API void R_FreeBitmap(BITMAPHANDLE* pBitmap) R_NOEXCEPT;

/// Copies a record; pointers are shared, so only one of the two may be freed. The copy has the smaller of the two
/// sizes, and says so. A null pDst copies nothing and succeeds.
R_API R_INT R_CopyBitmapHandle(BITMAPHANDLE* pDst, const BITMAPHANDLE* pSrc, R_UINT uStructSize) R_NOEXCEPT;

/// Installs the process-wide allocate hook (null removes it); the former pair goes to the pointers that are not null.
R_API R_INT R_SetAllocateBitmapCallback(ALLOCATECALLBACK pfnCallback, void* pUserData, ALLOCATECALLBACK* ppfnOld,
                                        void** ppOldUserData) R_NOEXCEPT;

/// The extra block: bytes of the caller's that live and die with the bitmap. uFlags is 0.
/// Errors: ERROR_INV_BITMAP null; ERROR_INV_STRUCT_SIZE; ERROR_INV_PARAMETER flags; ERROR_NULL_PTR a size without
/// data; ERROR_FAILURE no memory, and the former block is gone.
R_API R_INT R_AllocateBitmapExtraData(BITMAPHANDLE* pBitmap, R_UINT uFlags, R_SIZE uSize) R_NOEXCEPT;
R_API R_INT R_FreeBitmapExtraData(BITMAPHANDLE* pBitmap, R_UINT uFlags) R_NOEXCEPT;
/// Gives pDst a copy of pSrc's block.
R_API R_INT R_CopyBitmapExtraData(BITMAPHANDLE* pDst, BITMAPHANDLE* pSrc, R_UINT uFlags) R_NOEXCEPT;
/// Returns the record's own block and its size through the pointers that are not null.
R_API R_INT R_GetBitmapExtraData(BITMAPHANDLE* pBitmap, R_UINT uFlags, void** ppData, R_SIZE* puSize) R_NOEXCEPT;
/// Replaces the block by a copy of uSize bytes of pData.
R_API R_INT R_SetBitmapExtraData(BITMAPHANDLE* pBitmap, R_UINT uFlags, R_SIZE uSize, const void* pData) R_NOEXCEPT;

/// Points a bitmap of the caller's memory at a new block of exactly the bitmap's size (null: at none).
/// Errors: ERROR_INV_BITMAP null; ERROR_INV_STRUCT_SIZE; ERROR_INV_PARAMETER another size, or a bitmap whose pixels
/// are the kernel's, which would be lost.
R_API R_INT R_SetBitmapDataPointer(BITMAPHANDLE* pBitmap, void* pData, R_UINT64 uDataSize) R_NOEXCEPT;

/// Changes the number of rows of an allocated bitmap. Rows that remain keep their pixels; new ones are zero.
/// Errors: ERROR_INV_BITMAP; ERROR_INV_STRUCT_SIZE; ERROR_INV_PARAMETER locked or borrowed pixels; ERROR_INV_SIZE
/// negative; ERROR_INV_BITS_PER_PIXEL; ERROR_FAILURE no memory or room on disk, ERROR_MEMORY_LIMIT where tiles or
/// super-compressed rows would pass it, and the bitmap is as it was.
R_API R_INT R_ChangeBitmapHeight(BITMAPHANDLE* pBitmap, R_INT nHeight) R_NOEXCEPT;

/// Compares two records, then their pixels and tables. *pbEqual says whether they are equal; pszText (uTextChars
/// units) lists the fields that differ as "\n label\tvalue 1\tvalue 2", cut to fit. bShow sends it to the trace too.
/// Errors: ERROR_INV_PARAMETER null or no text buffer; ERROR_INV_STRUCT_SIZE; ERROR_FAILURE no memory.
R_API R_INT R_CompareBitmapHandles(BITMAPHANDLE* pBitmap1, BITMAPHANDLE* pBitmap2, R_INT* pbEqual, R_WCHAR* pszText,
                                   R_UINT uTextChars, R_INT bShow) R_NOEXCEPT;

// uFlags of R_SetMemoryThresholds: which arguments count.
#define THRESHOLD_RESERVE 1u
#define THRESHOLD_MAX_CONV_SIZE 2u
#define THRESHOLD_TILE_SIZE 4u
#define THRESHOLD_CONV_TILES 8u
#define THRESHOLD_CONV_BUFFERS 16u

/// Sets the calling thread's placement settings. nReserve and nMaxConvSize are bytes, or from -100 to -1 a percentage
/// of the system's memory; nTileSize is bytes, 0 is 16 MB. nConvTiles is how many tiles of a bitmap are kept in
/// conventional memory, or a percentage of its tiles; where no file may be used all are. nConvBuffers is how many tiles
/// that are in the file may be seen through open views, or a percentage of those; there are always 4.
/// The first value out of range gives ERROR_INV_PARAMETER; values stored before it stay.
R_API R_INT R_SetMemoryThresholds(R_INT nReserve, R_INT64 nMaxConvSize, R_INT64 nTileSize, R_INT nConvTiles,
                                  R_INT nConvBuffers, R_UINT uFlags) R_NOEXCEPT;
R_API R_INT R_GetMemoryThresholds(R_INT* pnReserve, R_INT64* pnMaxConvSize, R_INT64* pnTileSize, R_INT* pnConvTiles,
                                  R_INT* pnConvBuffers) R_NOEXCEPT;
/// MEM_CONVENTIONAL or MEM_DISK, else ERROR_INV_PARAMETER; per thread.
R_API R_INT R_SetDefaultMemoryType(R_UINT uType) R_NOEXCEPT;
R_API R_UINT R_GetDefaultMemoryType(void) R_NOEXCEPT;
/// The resolution of new bitmaps of this thread; a value below 1 stands for 150. Returns the former value.
R_API R_INT R_SetDefaultXResolution(R_INT nResolution) R_NOEXCEPT;
R_API R_INT R_SetDefaultYResolution(R_INT nResolution) R_NOEXCEPT;
R_API R_INT R_GetDefaultXResolution(void) R_NOEXCEPT;
R_API R_INT R_GetDefaultYResolution(void) R_NOEXCEPT;
/// The size above which a single bitmap goes to disk, in the whole process. A null record sets none, -1 the value
/// the process started with. Errors: ERROR_INV_PARAMETER a null record to fill, another negative value;
/// ERROR_INV_STRUCT_SIZE.
R_API R_INT R_GetGlobalMemoryThresholds(GLOBALMEMORYTHRESHOLDS* pThresholds, R_UINT uStructSize) R_NOEXCEPT;
R_API R_INT R_SetGlobalMemoryThresholds(const GLOBALMEMORYTHRESHOLDS* pThresholds) R_NOEXCEPT;

// uCommand of R_ManageMemory.
#define MANAGE_SET_LIMIT 0u
#define MANAGE_GET_LIMIT 1u
#define MANAGE_RESERVE 2u
#define MANAGE_RELEASE 3u
#define MANAGE_GET_TOTAL 4u
#define MANAGE_GET_AVAILABLE 5u

/// The process's conventional-memory limit and total, in bytes.
/// 0 sets the limit to uValue (0: none), the old one goes to *pResult; 1 gets it; 2 reserves uValue bytes of it;
/// 3 gives them back; 4 gets the total; 5 gets what is available, and tells whether uValue more would fit.
/// Errors: ERROR_MEMORY_LIMIT; ERROR_NULL_PTR (4 only); ERROR_FEATURE_NOT_SUPPORTED another command.
R_API R_INT R_ManageMemory(R_UINT uCommand, R_UINT64 uValue, R_UINT64* pResult) R_NOEXCEPT;

/// Tells where a bitmap's pixels live: *puMemory is 1 conventional, 4 tiled, 128 disk, 512 compressed,
/// 1024 super-compressed. For tiled ones also the tile's bytes, the tiles, those in conventional memory, the most
/// views that may be open at once and those open now. Every pointer but puMemory may be null.
/// Errors: ERROR_INV_BITMAP null or without pixels; ERROR_INV_STRUCT_SIZE; ERROR_INV_PARAMETER null puMemory.
R_API R_INT R_GetBitmapMemoryInfo(BITMAPHANDLE* pBitmap, R_UINT* puMemory, R_UINT64* puTileSize, R_UINT* puTotalTiles,
                                  R_UINT* puConvTiles, R_UINT* puMaxTileViews, R_UINT* puTileViews) R_NOEXCEPT;

// uFlags of R_SetBitmapMemoryInfo: which arguments count.
#define MEMORYINFO_CONV_TILES 1u
#define MEMORYINFO_MAX_TILE_VIEWS 2u
#define MEMORYINFO_TILE_VIEWS 4u

/// Changes what R_GetBitmapMemoryInfo tells of a tiled bitmap, between accesses. uConvTiles: the first tiles, so many
/// of them or all, move to conventional memory, the others to the file. uMaxTileViews: the most views that may be open,
/// at least 4. uTileViews: of the views that are open, no more than so many of those last used stay so.
/// Errors: ERROR_INV_BITMAP null or without pixels; ERROR_INV_STRUCT_SIZE; ERROR_INV_PARAMETER not tiled, an unknown
/// flag; ERROR_MEMORY_LIMIT, ERROR_FAILURE no memory, or no room on disk, and nothing has changed.
R_API R_INT R_SetBitmapMemoryInfo(BITMAPHANDLE* pBitmap, R_UINT uConvTiles, R_UINT uMaxTileViews, R_UINT uTileViews,
                                  R_UINT uFlags) R_NOEXCEPT;

/// Attaches a copy of pCallbacks to a bitmap that has a size; null removes them.
/// Errors: ERROR_INV_PARAMETER null bitmap; ERROR_INV_STRUCT_SIZE either record, or a 228-byte bitmap, which has no
/// room for callbacks; ERROR_INV_SIZE; ERROR_FAILURE no memory.
R_API R_INT R_SetBitmapDataCallbacks(BITMAPHANDLE* pBitmap, const BITMAPHANDLEDATACALLBACKS* pCallbacks) R_NOEXCEPT;
/// Returns a copy of the attached record; one with null members where none is attached.
/// Errors: ERROR_INV_PARAMETER null; ERROR_INV_STRUCT_SIZE the bitmap.
R_API R_INT R_GetBitmapDataCallbacks(BITMAPHANDLE* pBitmap, BITMAPHANDLEDATACALLBACKS* pCallbacks) R_NOEXCEPT;

/// Makes the pixels addressable; nests. pBitmap is not checked.
R_API R_INT R_AccessBitmap(BITMAPHANDLE* pBitmap) R_NOEXCEPT;
/// Ends one access. Errors: ERROR_NULL_PTR; ERROR_INV_STRUCT_SIZE; what the release callback answers; on disk, that
/// rows which were written could not be put in their place: ERROR_FILE_WRITE, ERROR_NO_DISK_SPACE.
R_API R_INT R_ReleaseBitmap(BITMAPHANDLE* pBitmap) R_NOEXCEPT;

/// Frees an array that the kernel returned. Null is ignored.
R_API void R_HeapTerm(void* pArray) R_NOEXCEPT;

#endif
