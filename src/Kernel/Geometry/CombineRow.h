/// One row combined into another, as decided once for all rows.
#pragma once

#include "Kernel/Geometry/CombineCode.h"
#include "Kernel/Pixels/RowBuffer.h"
#include "Kernel/Pixels/Samples.h"

namespace rv {

/// Combines rows of bitmaps of one depth. Takes its memory at construction.
class RowCombiner {
public:
    /// width  the most pixels of a row
    RowCombiner(const BITMAPHANDLE* pDst, const CombineCode& code, R_INT width) noexcept;
    RowCombiner(const RowCombiner&) = delete;
    RowCombiner& operator=(const RowCombiner&) = delete;

    /// ERROR_FAILURE: no memory.
    Status status() const noexcept { return status_; }

    /// Combines `count` pixels from sourceColumn of a row on into those from targetColumn of another on. The pixels are
    /// apart. Bits of no pixel among them keep their value. source may be null where the code does not read it.
    void combine(uint8_t* target, R_INT64 targetColumn, const uint8_t* source, R_INT64 sourceColumn,
                 R_INT64 count) noexcept;

    /// Combines so many rows, which are rowBytes bytes apart in both bitmaps; faster than one by one where they are
    /// short. For a source that is not read stands target. False: the code does not work on bits; nothing was done.
    bool combineRows(uint8_t* target, R_INT64 targetColumn, const uint8_t* source, R_INT64 sourceColumn, R_INT64 count,
                     R_INT64 rows, R_INT64 rowBytes) noexcept;

private:
    Status takeMemory(R_INT64 width) noexcept;
    void combineUnpacked(uint8_t* target, R_INT64 targetBit, const uint8_t* source, R_INT64 sourceBit,
                         R_INT64 count) noexcept;
    void combineSamples(uint8_t* target, const uint8_t* source, size_t pixels) noexcept;

    CombineCode code_;
    R_INT64 bits_;
    SampleFormat format_;
    unsigned top_;
    // For what needs them: samples of the source, or those bytes inverted; samples of the target; pixels from the first
    // bit of a byte on.
    RowBuffer sourceSamples_;
    RowBuffer targetSamples_;
    RowBuffer aligned_;
    Status status_;
};

} // namespace rv
