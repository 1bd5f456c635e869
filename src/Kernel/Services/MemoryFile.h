/// The content of one file, in memory as long as it may be.
#pragma once

#include "Kernel/Services/TempFile.h"
#include "Platform/Platform.h"

namespace rv {

/// Whether the system can hold more bytes of content. Memory that nobody has is not even tried for: a system that
/// promises more than it has would end the process instead of saying no.
bool systemHas(R_UINT64 increase) noexcept;

/// A file's content in chunks, all of one size but for the last, so that a position's chunk is found by a division.
/// When its limits or the memory refuse more, the content goes to disk as it is, and the file lives on there. Bytes
/// that nobody has written are zero. Nothing here is locked.
class MemoryFile {
public:
    /// An empty temporary file; the folder is where it goes when it must. Without one it never goes to disk.
    MemoryFile(const R_WCHAR* folder, R_UINT64 chunkBytes) noexcept : folder_(folder), chunkBytes_(chunkBytes) {}
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;
    ~MemoryFile(); ///< closes the native file; what is not in it is lost

    /// Takes a native file over, and a block with all of its content. False: without memory, or where the process's
    /// limit stands against it; nothing has been taken.
    bool hold(int64_t native, void* content, R_UINT64 bytes) noexcept;
    /// Ends a held file: writes what the native file has not, and closes that. False, with the native error, when
    /// either fails.
    bool finish() noexcept;

    /// The bytes moved, fewer only at the end; kNoFile with the native error.
    int64_t read(R_UINT64 position, void* buffer, R_UINT bytes) noexcept;
    int64_t write(R_UINT64 position, const void* buffer, R_UINT bytes) noexcept;
    /// Cuts the file, or fills it up with zeros. Memory that is no longer needed is given back.
    bool setSize(R_UINT64 size) noexcept;
    /// kNoFile, with the native error, where that is a native file's and cannot be had.
    int64_t size() noexcept;

private:
    enum class Home : uint8_t {
        memory,  ///< the chunks; a temporary file
        held,    ///< the chunks; native_ is the file behind them
        scratch, ///< native_, up to size_; a temporary file that had to go
        native,  ///< native_, which was held
    };
    bool inMemory() const noexcept { return home_ == Home::memory || home_ == Home::held; }

    bool grow(R_UINT64 needed) noexcept;
    bool growExactly(R_UINT64 target) noexcept;
    bool makeRoomInTable(size_t chunks) noexcept;
    bool addChunks(R_UINT64 target) noexcept;
    void shrinkChunks(R_UINT64 capacity) noexcept;
    void shrink(R_UINT64 capacity) noexcept;

    bool moveToDisk(R_UINT64 room) noexcept;
    int64_t moveToScratch(R_UINT64 room) noexcept;
    bool writeBack() noexcept;
    void forgetBehindEnd() noexcept;
    bool copyOut(int64_t file, R_UINT64 from, R_UINT64 to) const noexcept;

    template <class Move> void eachPiece(R_UINT64 from, R_UINT64 to, Move move) const noexcept;
    void zeroGap(R_UINT64 to) noexcept;
    void changed(R_UINT64 from, R_UINT64 to) noexcept;

    const R_WCHAR* folder_;
    R_UINT64 chunkBytes_;
    R_UINT64 size_ = 0; ///< not kept for Home::native: others may change that
    R_UINT64 capacity_ = 0;
    uint8_t** chunks_ = nullptr;
    size_t tableSize_ = 0; ///< entries of chunks_; null behind the last chunk
    Home home_ = Home::memory;
    int64_t native_ = kNoFile;
    /// Of a held file: where the bytes lie that the native file has not, and how big that is.
    R_UINT64 changedFrom_ = UINT64_MAX, changedTo_ = 0, nativeSize_ = 0;
};

} // namespace rv
