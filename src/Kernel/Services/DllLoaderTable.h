/// The functions that a client wants of a module: names, and where they are while it is loaded.
#pragma once

#include "Kernel/Base/Status.h"
#include "Platform/Platform.h"

#include <algorithm>
#include <cstring>

namespace rv {

/// Sorted by name. Names are copied.
class FunctionTable {
public:
    struct Entry {
        char* name;
        void* address; ///< null while the module is not loaded, or where it has no such function
    };

    constexpr FunctionTable() noexcept = default;
    ~FunctionTable()
    {
        for (size_t i = 0; i < count_; ++i) platform().release(entries_[i].name);
        platform().release(entries_);
    }
    FunctionTable(const FunctionTable&) = delete;
    FunctionTable& operator=(const FunctionTable&) = delete;

    const Entry* find(const char* name) const noexcept
    {
        const Entry* const at = place(name);
        return at != end() && std::strcmp(at->name, name) == 0 ? at : nullptr;
    }

    /// A name that is there already is not added again. ERROR_FAILURE: no memory, and nothing has changed.
    Status add(const char* name, void* module) noexcept
    {
        if (find(name) != nullptr) return SUCCESS;
        const size_t bytes = std::strlen(name) + 1;
        auto* const copy = static_cast<char*>(platform().allocate(bytes));
        if (copy == nullptr) return ERROR_FAILURE;
        if (!reserveOne()) {
            platform().release(copy);
            return ERROR_FAILURE;
        }
        std::memcpy(copy, name, bytes);
        Entry* const at = entries_ + (place(name) - entries_);
        std::move_backward(at, entries_ + count_, entries_ + count_ + 1);
        *at = {copy, platform().moduleFunction(module, copy)};
        ++count_;
        return SUCCESS;
    }

    /// Finds all in a module; a null one has none.
    void resolve(void* module) noexcept
    {
        for (size_t i = 0; i < count_; ++i) entries_[i].address = platform().moduleFunction(module, entries_[i].name);
    }

private:
    const Entry* end() const noexcept { return entries_ + count_; }
    const Entry* place(const char* name) const noexcept
    {
        return std::lower_bound(static_cast<const Entry*>(entries_), end(), name,
                                [](const Entry& entry, const char* key) { return std::strcmp(entry.name, key) < 0; });
    }
    bool reserveOne() noexcept
    {
        if (count_ < capacity_) return true;
        const size_t capacity = capacity_ != 0 ? 2 * capacity_ : 8;
        void* const grown = platform().reallocate(entries_, capacity * sizeof(Entry));
        if (grown == nullptr) return false;
        entries_ = static_cast<Entry*>(grown);
        capacity_ = capacity;
        return true;
    }

    Entry* entries_ = nullptr;
    size_t count_ = 0;
    size_t capacity_ = 0;
};

} // namespace rv
