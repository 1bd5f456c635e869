// Every exported call, driven the same way through allocation faults, short records, depths and placements. The list
// of exported calls is the one the library is linked with: a name without an entry here fails.
#include "Support/Calls.h"
#include "Support/FailingPlatform.h"

#include <gtest/gtest.h>

#include <set>

namespace rv::test {
namespace {

struct Export {
    const char* name;
    bool takesBitmap;
    bool takesPixels;
};

constexpr Export kExports[] = {
#define RV_EXPORT(name, takesBitmap, takesPixels) {#name, takesBitmap, takesPixels},
#include "exports.inc"
#undef RV_EXPORT
};

std::vector<const Call*> callsWhere(bool Export::*member)
{
    std::set<std::string> names;
    for (const Export& e : kExports)
        if (e.*member) names.insert(e.name);
    std::vector<const Call*> calls;
    for (const Call& call : allCalls())
        if (names.count(call.name) != 0) calls.push_back(&call);
    return calls;
}

/// What a failed call must leave as it was.
struct Snapshot {
    explicit Snapshot(const TestBitmap& bitmap)
        : record(bitmap.record()), pixels(bitmap.pixels()), palette(bitmap.palette())
    {
    }
    bool operator==(const Snapshot&) const = default;
    std::vector<uint8_t> record, pixels, palette;
};

TEST(Sweep, EveryExportedCallIsDriven)
{
    std::set<std::string> exported, driven;
    for (const Export& e : kExports) exported.insert(e.name);
    for (const Call& call : allCalls()) driven.insert(call.name);
    EXPECT_EQ(exported, driven);
    EXPECT_EQ(driven.size(), allCalls().size()) << "a name is driven twice";
}

/// Drives a call with its nth allocation failing. False when it has no nth allocation.
bool driveWithFault(const Call& call, const Scene& scene, int nth)
{
    World world(scene);
    const Snapshot before(world.a);
    R_INT64 status = 0;
    bool happened = false;
    {
        const FailingAllocation fault(nth);
        status = call.drive(world);
        happened = fault.happened();
    }
    if (happened && status != SUCCESS && call.onFailure == OnFailure::nothing) {
        EXPECT_TRUE(before == Snapshot(world.a)) << call.name << ", " << scene.text() << ", allocation " << nth;
    }
    if (!happened) {
        EXPECT_EQ(status, SUCCESS) << call.name << ", " << scene.text();
    }
    return happened;
}

TEST(Sweep, AFailingAllocationChangesNothingAndLeaksNothing)
{
    for (const Call& call : allCalls()) {
        for (const Home home : allHomes()) {
            Scene scene;
            scene.home = home;
            const LiveBlocks live;
            int nth = 1;
            while (driveWithFault(call, scene, nth)) ASSERT_LT(++nth, 1000) << call.name << " never ends";
            EXPECT_EQ(live.count(), 0) << call.name << ", " << scene.text() << ": " << live.text();
        }
    }
}

TEST(Sweep, AShortRecordServesEveryCall)
{
    // The record ends at an unreadable page: one byte too far ends the test.
    for (const Call* call : callsWhere(&Export::takesBitmap)) {
        for (const R_INT bits : {1, 8, 12, 24}) {
            Scene scene;
            scene.bits = bits;
            World full(scene);
            const R_INT64 wanted = call->drive(full);
            scene.structSize = BITMAPHANDLE_SIZE_SHORT;
            World brief(scene);
            const R_INT64 status = call->drive(brief);
            EXPECT_EQ(status, call->shortStatus != 0 ? call->shortStatus : wanted)
                << call->name << ", " << scene.text();
            if (status != SUCCESS) continue;
            EXPECT_EQ(brief.out, full.out) << call->name << ", " << scene.text();
            EXPECT_EQ(brief.a.pixels(), full.a.pixels()) << call->name << ", " << scene.text();
        }
    }
}

TEST(Sweep, EveryDepthAndPlacementGivesTheSamePixels)
{
    for (const Call* call : callsWhere(&Export::takesPixels)) {
        for (const R_INT bits : allDepths()) {
            Scene scene;
            scene.bits = bits;
            World plain(scene);
            const R_INT64 wanted = call->drive(plain);
            EXPECT_EQ(wanted, SUCCESS) << call->name << ", " << scene.text();
            for (const Home home : allHomes()) {
                scene.home = home;
                if (!scene.possible()) continue;
                World world(scene);
                EXPECT_EQ(call->drive(world), wanted) << call->name << ", " << scene.text();
                EXPECT_EQ(world.a.pixels(), plain.a.pixels()) << call->name << ", " << scene.text();
                EXPECT_EQ(world.out, plain.out) << call->name << ", " << scene.text();
            }
        }
    }
}

} // namespace
} // namespace rv::test
