// Every exported call, driven the same way through allocation faults, short records, depths and placements. The list
// of exported calls is the one the library is linked with: a name without an entry here fails.
#include "Support/Calls.h"
#include "Support/FailingPlatform.h"
#include "Support/Folder.h"

#include <gtest/gtest.h>

#include <array>
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

std::vector<Call> callsWhere(bool Export::*member)
{
    std::set<std::string> names;
    for (const Export& e : kExports)
        if (e.*member) names.insert(e.name);
    std::vector<Call> calls;
    for (const Call& call : allCalls())
        if (names.count(call.name) != 0) calls.push_back(call);
    return calls;
}

/// What a failed call must leave as it was.
using Snapshot = std::array<std::vector<uint8_t>, 3>;
Snapshot snapshot(const TestBitmap& bitmap, bool withPixels = true)
{
    return {bitmap.record(), withPixels ? bitmap.pixels() : std::vector<uint8_t>(), bitmap.palette()};
}

std::string textOf(const Call& call, const Scene& scene) { return std::string(call.name) + ", " + scene.text(); }

TEST(Sweep, EveryExportedCallIsDriven)
{
    std::multiset<std::string> exported, driven; // and none twice
    for (const Export& e : kExports) exported.insert(e.name);
    for (const Call& call : allCalls()) driven.insert(call.name);
    EXPECT_EQ(exported, driven);
}

/// Drives a call with the nth thing it asks of the system failing. False when it asks for no nth.
bool driveWithFault(const Call& call, const Scene& scene, unsigned kinds, int nth)
{
    World world(scene);
    // Rows that are written behind their call are new, or old, when putting them in their place has failed.
    const bool pixelsStay = (kinds & kFailFiles) == 0 || !scene.writesBehind();
    const Snapshot before = snapshot(world.a, pixelsStay);
    R_INT64 status = 0;
    bool happened = false;
    {
        const FailingAllocation fault(nth, kinds);
        status = call.drive(world);
        happened = fault.happened();
    }
    EXPECT_TRUE(happened || status == SUCCESS) << textOf(call, scene);
    if (happened && status != SUCCESS && call.onFailure == OnFailure::nothing) {
        EXPECT_EQ(before, snapshot(world.a, pixelsStay)) << textOf(call, scene) << ", fault " << nth;
    }
    return happened;
}

TEST(Sweep, AFailureOfTheSystemChangesNothingAndLeaksNothing)
{
    // A temporary file whose removal is what fails stays; so they are made where all goes in the end.
    const Folder folder;
    R_WCHAR before[300];
    ASSERT_EQ(R_GetTempDirectory(before, 300), SUCCESS);
    ASSERT_EQ(R_SetTempDirectory(wide(folder.path()).c_str()), SUCCESS);
    for (const Call& call : allCalls()) {
        for (const Home home : homesOf(1)) {
            const Scene scene{.bits = home == Home::compressed ? 1 : 8, .home = home};
            if (!scene.possible()) continue;
            const LiveBlocks live;
            for (const unsigned kinds : {unsigned{kFailAllocations}, unsigned{kFailFiles}})
                for (int nth = 1; driveWithFault(call, scene, kinds, nth); ++nth)
                    ASSERT_LT(nth, 1000) << call.name << " never ends";
            EXPECT_EQ(live.count(), 0) << textOf(call, scene) << ": " << live.text();
        }
    }
    EXPECT_EQ(R_SetTempDirectory(before), SUCCESS);
}

/// The pixels of a bitmap as another home would show them: runs have no bits behind a row's last pixel.
std::vector<uint8_t> pixelsAt(const TestBitmap& bitmap, Home home)
{
    std::vector<uint8_t> pixels = bitmap.pixels();
    if (home != Home::compressed || bitmap->BitsPerPixel != 1) return pixels; // they may have become others
    const size_t rowBytes = bitmap->BytesPerLine;
    for (size_t row = 0; row < pixels.size(); row += rowBytes)
        for (R_INT64 bit = bitmap->Width; bit < static_cast<R_INT64>(rowBytes) * 8; ++bit)
            setPixelAt(pixels.data() + row, bit, 1, 0);
    return pixels;
}

/// Two worlds that one call was driven in are alike to the caller.
void expectAlike(const Call& call, const World& world, const World& reference)
{
    EXPECT_EQ(world.a.pixels(), pixelsAt(reference.a, world.a.scene().home)) << textOf(call, world.a.scene());
    EXPECT_TRUE(world.answersAs(reference)) << textOf(call, world.a.scene());
}

TEST(Sweep, AShortRecordServesEveryCall)
{
    // The record ends at an unreadable page: one byte too far ends the test.
    for (const Call& call : callsWhere(&Export::takesBitmap)) {
        for (const R_INT bits : {1, 8, 12, 24}) {
            World full({.bits = bits}), brief({.bits = bits, .structSize = BITMAPHANDLE_SIZE_SHORT});
            const R_INT64 wanted = call.drive(full), status = call.drive(brief);
            EXPECT_EQ(status, call.shortStatus != 0 ? call.shortStatus : wanted) << textOf(call, brief.a.scene());
            if (status == SUCCESS) expectAlike(call, brief, full);
        }
    }
}

TEST(Sweep, EveryDepthAndPlacementGivesTheSamePixels)
{
    for (const Call& call : callsWhere(&Export::takesPixels)) {
        for (const R_INT bits : allDepths()) {
            World plain({.bits = bits});
            EXPECT_EQ(call.drive(plain), SUCCESS) << textOf(call, plain.a.scene());
            for (const Home home : homesOf(bits)) {
                const Scene scene{.bits = bits, .home = home};
                if (!scene.possible()) continue;
                World world(scene);
                EXPECT_EQ(call.drive(world), SUCCESS) << textOf(call, world.a.scene());
                expectAlike(call, world, plain);
            }
        }
    }
}

} // namespace
} // namespace rv::test
