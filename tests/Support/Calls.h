/// One way to drive every exported call, for the sweeps: allocation faults, short records, depths and placements.
#pragma once

#include "Support/World.h"

#include <cstring>
#include <span>

namespace rv::test {

/// What a driven call works on, and what it answered beyond its status.
struct World {
    explicit World(const Scene& scene)
        : a(scene), b(Scene{scene.bits, scene.home, scene.structSize, scene.width, scene.height, scene.seed + 1}),
          spare(scene.structSize), row(a->BytesPerLine)
    {
    }
    TestBitmap a;
    TestBitmap b;
    GuardedRecord spare; ///< for a bitmap that is yet to be made
    BITMAPHANDLEDATACALLBACKS callbacks = callbacksFor(nullptr);

    /// Bytes that must not depend on the placement or the record's size; and so must those of row.
    struct Answers {
        R_WCHAR wide[200] = {};
        char narrow[40] = {};
        R_UINT64 size = 7, tile = 7;
        R_UINT number[4] = {7, 7, 7, 7};
        R_INT flag = 7, module = 7;
        RGBQUAD colours[16] = {};
    } answers;
    GuardedBuffer row;

    bool answersAs(const World& other) const
    {
        return std::memcmp(&answers, &other.answers, sizeof answers) == 0 &&
               std::memcmp(row.data(), other.row.data(), row.size()) == 0;
    }
};

/// What a failing call may leave changed.
enum class OnFailure {
    nothing, ///< the bitmaps are as they were
    tables,  ///< the old palette, extra data or callbacks may be gone: the call frees before it allocates
};

/// A driven call: answers the call's own status, or 1 where the call has none and did what it should.
struct Call {
    const char* name;
    R_INT64 (*drive)(World&);
    OnFailure onFailure = OnFailure::nothing;
    /// The status with a 228-byte record, where it is another than with 284 bytes; 0 means the same.
    R_INT64 shortStatus = 0;
};

/// The calls of the families, and all of them together.
std::span<const Call> bitmapCalls();
std::span<const Call> threadCalls();
std::span<const Call> fileCalls();
std::span<const Call> redirectCalls();
std::span<const Call> tempFileCalls();
std::span<const Call> moduleCalls();
std::span<const Call> listCalls();
std::span<const Call> runCalls();
std::span<const Call> compressionCalls();
std::span<const Call> copyCalls();
std::span<const Call> perspectiveCalls();
std::span<const Call> rotateCalls();
std::span<const Call> ditherCalls();
std::span<const Call> colourResCalls();
std::span<const Call> resizeCalls();
std::span<const Call> allCalls();

/// Where a call answers what the driver does not look at.
template <class T> struct Out {
    T value{};
    operator T*() { return &value; }
};

/// An answer that is no status, as one: 1 where it is what it should be.
inline R_INT64 as(bool good) { return good ? SUCCESS : ERROR_FAILURE; }

/// An entry of such a list: a call by its arguments, or by what it is to come to.
#define CALL(name, ...) DOES(name, name(__VA_ARGS__))
#define DOES(name, ...)                                                                                                \
    Call                                                                                                               \
    {                                                                                                                  \
#name, []([[maybe_unused]] World & w) -> R_INT64 { return __VA_ARGS__; }                                       \
    }

} // namespace rv::test
