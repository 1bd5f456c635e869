// Sets that are known by name: a pseudo file name opens through the set that is registered under it.
#include "Common/Text.h"
#include "Kernel/Base/System.h"
#include "Kernel/Services/Osys.h"
#include "Kernel/Services/Redirect.h"

using namespace rv;

namespace {

constexpr R_WCHAR kPrefix[] = RV_WIDE("RAVORedirect://");
constexpr size_t kPrefixChars = sizeof(kPrefix) / sizeof(kPrefix[0]) - 1;
constexpr size_t kHalfChars = 8;
constexpr size_t kKeyChars = kHalfChars + 1 + kHalfChars; // two numbers and a '-' between them
constexpr R_UINT kNameRoom = 50;
constexpr R_UINT kFirstCapacity = 5;

struct Entry {
    R_UINT64 key;
    REDIRECTSET set;
};
static_assert(sizeof(Entry) == 128, "the record is byte-exact");

struct Registry {
    LazyLock lock;
    Entry* entries = nullptr; // null while no set is registered
    R_UINT count = 0;
    R_UINT capacity = 0;
    R_UINT64 lastUnique = 0;

    Entry* find(R_UINT64 key) noexcept
    {
        for (R_UINT i = 0; i < count; ++i)
            if (entries[i].key == key) return entries + i;
        return nullptr;
    }
    /// Room for one entry more.
    bool grow() noexcept
    {
        if (count < capacity) return true;
        const R_UINT room = capacity == 0 ? kFirstCapacity : capacity * 2;
        void* const block = platform().reallocate(entries, room * sizeof(Entry));
        if (block == nullptr) return false;
        entries = static_cast<Entry*>(block);
        capacity = room;
        return true;
    }
    void release() noexcept
    {
        platform().release(entries);
        entries = nullptr;
        count = capacity = 0;
    }
    R_UINT64 uniqueKey() noexcept
    {
        do {
            ++lastUnique;
        } while (find(lastUnique) != nullptr); // programs may choose keys, too
        return lastUnique;
    }
};
constinit Registry registry;

void releaseRegistry() noexcept
{
    const LockGuard guard(registry.lock);
    registry.release();
}
constinit ReleaseAtDetach registryRelease(releaseRegistry);

/// The number of one half; it ends at the first unit that is no digit.
R_UINT64 parseHalf(const R_WCHAR* text) noexcept
{
    R_UINT64 number = 0;
    for (size_t i = 0; i < kHalfChars; ++i) {
        const R_WCHAR unit = text[i];
        if (unit >= '0' && unit <= '9')
            number = number * 16 + static_cast<R_UINT64>(unit - '0');
        else if (unit >= 'A' && unit <= 'F')
            number = number * 16 + static_cast<R_UINT64>(unit - 'A') + 10;
        else if (unit >= 'a' && unit <= 'f')
            number = number * 16 + static_cast<R_UINT64>(unit - 'a') + 10;
        else
            break;
    }
    return number;
}

/// The key that a pseudo file name stands for; false for any other name.
bool parseName(const R_WCHAR* name, R_UINT64* key) noexcept
{
    if (!isPseudoName(name)) return false;
    const R_WCHAR* const text = name + kPrefixChars;
    if (textLength(text, kKeyChars + 1) != kKeyChars || text[kHalfChars] != '-') return false;
    *key = parseHalf(text) << 32 | parseHalf(text + kHalfChars + 1);
    return true;
}

/// buffer holds kNameRoom units.
void formatName(R_WCHAR* buffer, R_UINT64 key) noexcept
{
    TextWriter<R_WCHAR> out(buffer, kNameRoom);
    out.append(kPrefix);
    for (int shift = 60; shift >= 0; shift -= 4) {
        out.append(static_cast<R_WCHAR>("0123456789ABCDEF"[key >> shift & 15]));
        if (shift == 32) out.append(R_WCHAR{'-'});
    }
}

Status addSet(R_UINT64 key, const REDIRECTSET& set) noexcept
{
    if (registry.find(key) != nullptr) return ERROR_FILE_REGISTERED;
    registryRelease.registerOnce();
    if (!registry.grow()) return ERROR_FAILURE;
    registry.entries[registry.count++] = {key, cleanSet(set, kOsRedirectSet)};
    return SUCCESS;
}

Status removeSet(R_UINT64 key) noexcept
{
    Entry* const entry = registry.find(key);
    if (entry == nullptr) return ERROR_NO_SUCH_FILE;
    *entry = registry.entries[--registry.count];
    if (registry.count == 0) registry.release();
    return SUCCESS;
}

} // namespace

bool rv::isPseudoName(const R_WCHAR* name) noexcept
{
    if (name == nullptr) return false;
    for (size_t i = 0; i < kPrefixChars; ++i)
        if (name[i] != kPrefix[i]) return false; // a shorter name differs at its terminator
    return true;
}

bool rv::namedRedirectSet(const R_WCHAR* name, REDIRECTSET* set) noexcept
{
    R_UINT64 key = 0;
    if (!parseName(name, &key)) return false;
    const LockGuard guard(registry.lock);
    const Entry* const entry = registry.find(key);
    if (entry == nullptr) return false;
    *set = entry->set;
    return true;
}

R_INT R_SetGlobalRedirectFunctions(R_WCHAR* pszName, R_UINT uNameChars, const REDIRECTSET* pSet) noexcept
{
    if (pszName == nullptr) return ERROR_NULL_PTR;
    if (pSet != nullptr && pSet->uStructSize != REDIRECTSET_SIZE) return ERROR_INV_STRUCT_SIZE;
    const bool unnamed = pszName[0] == 0 && pSet != nullptr;
    if (unnamed && uNameChars < kNameRoom) return ERROR_BUFFER_TOO_SMALL;
    R_UINT64 key = 0;
    if (!unnamed && !parseName(pszName, &key)) return ERROR_INV_FILENAME;
    const LockGuard guard(registry.lock);
    if (pSet == nullptr) return removeSet(key);
    if (unnamed) key = registry.uniqueKey();
    R_TRY(addSet(key, *pSet));
    if (unnamed) formatName(pszName, key);
    return SUCCESS;
}

R_INT R_GetUniqueRedirectFileName(R_WCHAR* pszBuffer, R_UINT uBufferChars) noexcept
{
    if (pszBuffer == nullptr) return ERROR_NULL_PTR;
    if (uBufferChars < kNameRoom) return ERROR_BUFFER_TOO_SMALL;
    const LockGuard guard(registry.lock);
    formatName(pszBuffer, registry.uniqueKey());
    return SUCCESS;
}
