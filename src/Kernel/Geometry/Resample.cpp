#include "Kernel/Geometry/Resample.h"

#include "Kernel/Geometry/ResampleBilinear.h"
#include "Kernel/Geometry/ResamplePage.h"
#include "Kernel/Geometry/ResampleSpline.h"
#include "Kernel/Geometry/ResampleTaps.h"

#include <new>

namespace rv {

struct Resampler::Work {
    ResampleSource source;
    Weighing weighing;
    enum class Way { taps, spline, bytes, page } way = Way::taps;
    TapResampler taps;
    BilinearResampler bytes;
    PageResampler page;
    SplineResampler spline;

    Work(BITMAPHANDLE* pSrc, const Job& job, const PixelFormat& target) noexcept
        : source(pSrc, job, target), weighing(job.weighing)
    {
    }
    Status prepare() noexcept
    {
        R_TRY(source.status());
        way = chooseWay();
        switch (way) {
        case Way::spline: return spline.prepare(source);
        case Way::bytes: return bytes.prepare(source);
        case Way::page: return page.prepare(source);
        default: return taps.prepare(source, weighing == Weighing::area);
        }
    }
    Way chooseWay() const noexcept
    {
        if (weighing == Weighing::spline) return Way::spline;
        if (weighing == Weighing::area && PageResampler::takes(source)) return Way::page;
        const bool grows = source.newWidth() >= source.width() && source.newHeight() >= source.height();
        const bool byCentres = weighing == Weighing::bilinear || grows;
        return byCentres && !source.wide() && !source.byAlpha() ? Way::bytes : Way::taps;
    }
    Status row(R_INT row, uint8_t* target) noexcept
    {
        switch (way) {
        case Way::spline: return spline.row(source, row, target);
        case Way::bytes: return bytes.row(source, row, target);
        case Way::page: return page.row(source, row, target);
        default: return taps.row(source, row, target);
        }
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
