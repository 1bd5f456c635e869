/// One way to drive every exported call, for the sweeps: allocation faults, short records, depths and placements.
#pragma once

#include "Support/World.h"

#include <functional>
#include <vector>

namespace rv::test {

/// What a driven call works on, and what it answered beyond its status.
struct World {
    explicit World(const Scene& scene)
        : a(scene), b(Scene{scene.bits, scene.home, scene.structSize, scene.width, scene.height, scene.seed + 1})
    {
    }
    TestBitmap a;
    TestBitmap b;
    std::vector<uint8_t> out; ///< bytes that must not depend on the placement or the record's size

    template <class T> void note(const T& value)
    {
        const auto* bytes = reinterpret_cast<const uint8_t*>(&value);
        out.insert(out.end(), bytes, bytes + sizeof value);
    }
    void note(const std::vector<uint8_t>& bytes) { out.insert(out.end(), bytes.begin(), bytes.end()); }
};

/// What a failing call may leave changed.
enum class OnFailure {
    nothing, ///< the bitmaps are as they were
    tables,  ///< the old palette, extra data or callbacks may be gone: the call frees before it allocates
};

/// A driven call: answers the call's own status, or 1 where the call has none and did what it should.
struct Call {
    const char* name;
    std::function<R_INT64(World&)> drive;
    OnFailure onFailure = OnFailure::nothing;
    /// The status with a 228-byte record, where it is another than with 284 bytes; 0 means the same.
    R_INT64 shortStatus = 0;
};

const std::vector<Call>& allCalls();

} // namespace rv::test
