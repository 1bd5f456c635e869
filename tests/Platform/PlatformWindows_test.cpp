// What only Windows shows: the switch in the registry, and a last error that the door leaves alone.
#if defined(_WIN32)

#include "Platform/Platform.h"

#include <gtest/gtest.h>

using rv::gSystemPlatform;

namespace {

TEST(WindowsDiagnostics, AreWantedWhereTheKeyIs)
{
    const char* const path = "SOFTWARE\\Bastovel\\23\\CheckLockCount";
    HKEY key;
    if (RegOpenKeyExA(HKEY_CURRENT_USER, path, 0, KEY_READ, &key) == 0) {
        RegCloseKey(key);
        GTEST_SKIP() << "the user has switched the diagnostics on";
    }
    EXPECT_FALSE(gSystemPlatform.lockCountDiagnosticsWanted());
    ASSERT_EQ(RegCreateKeyExA(HKEY_CURRENT_USER, path, 0, nullptr, 0, KEY_READ, nullptr, &key, nullptr), 0);
    RegCloseKey(key);
    EXPECT_TRUE(gSystemPlatform.lockCountDiagnosticsWanted());
    // Only what is empty: another program's keys beside ours stay.
    for (const char* const created : {path, "SOFTWARE\\Bastovel\\23", "SOFTWARE\\Bastovel"}) {
        RegDeleteKeyA(HKEY_CURRENT_USER, created);
    }
    EXPECT_FALSE(gSystemPlatform.lockCountDiagnosticsWanted());
}

TEST(WindowsSlots, KeepTheLastError)
{
    rv::ThreadSlot slot;
    ASSERT_TRUE(gSystemPlatform.createSlot(&slot, nullptr));
    SetLastError(1234);
    EXPECT_EQ(gSystemPlatform.slotValue(slot), nullptr);
    EXPECT_EQ(GetLastError(), 1234u);
    gSystemPlatform.destroySlot(slot);
}

} // namespace

#endif
