#include "Kernel/Geometry/Resample.h"

#include "Kernel/Geometry/ResampleSpline.h"
#include "Kernel/Geometry/ResampleTaps.h"

#include <new>

namespace rv {

struct Resampler::Work {
    ResampleSource source;
    Weighing weighing;
    TapResampler taps;
    SplineResampler spline;

    Work(BITMAPHANDLE* pSrc, const Job& job, const PixelFormat& target) noexcept
        : source(pSrc, job, target), weighing(job.weighing)
    {
    }
    Status prepare() noexcept
    {
        R_TRY(source.status());
        if (weighing == Weighing::spline) return spline.prepare(source);
        return taps.prepare(source, weighing == Weighing::area);
    }
    Status row(R_INT row, uint8_t* target) noexcept
    {
        if (weighing == Weighing::spline) return spline.row(source, row, target);
        return taps.row(source, row, target);
    }
};

Resampler::Resampler(BITMAPHANDLE* pSrc, const Job& job, const PixelFormat& target) noexcept : home_(sizeof(Work))
{
    status_ = ERROR_FAILURE;
    if (!home_) return;
    work_ = new (home_.data()) Work(pSrc, job, target);
    status_ = work_->prepare();
}

Resampler::~Resampler()
{
    if (work_ != nullptr) work_->~Work();
}

Status Resampler::row(R_INT row, uint8_t* target) noexcept
{
    R_TRY(status_);
    return work_->row(row, target);
}

} // namespace rv
