// Names of temporary files: they say where the file lives, who made it, and a number that nobody else has.
#include "Common/NarrowText.h"
#include "Common/WideUTF8.h"
#include "Kernel/Services/Osys.h"
#include "Kernel/Services/TempFileList.h"
#include "Platform/NativeErrors.h"

using namespace rv;

namespace {

constexpr R_UINT kMaxTries = 60000;
constexpr size_t kMaxDiskName = 259;
constexpr size_t kPlainBuffer = 260;
constexpr size_t kRoomBesidesTexts = 14; // separator, number, point, terminator, and some to spare
constexpr size_t kMaxMarker = 40;
constexpr R_UINT64 kYoungClock = 100; // all processes that start with the system would begin here
constexpr R_WCHAR kDefaultExtension[] = RV_WIDE("tmp");
#if defined(_WIN32)
constexpr R_WCHAR kSeparator = '\\';
#else
constexpr R_WCHAR kSeparator = '/';
#endif

void appendHex(TextWriter<R_WCHAR>& out, R_UINT value) noexcept
{
    int shift = 28;
    while (shift > 0 && value >> shift == 0) shift -= 4;
    for (; shift >= 0; shift -= 4) out.append(static_cast<R_WCHAR>("0123456789abcdef"[value >> shift & 15]));
}

struct RandomState {
    R_UINT64 value = 0; // guarded by the lock of temporary files; 0: not seeded
};
constinit RandomState random;

R_UINT randomNumber() noexcept
{
    if (random.value == 0) random.value = (platform().ticks() << 32 | platform().processId()) + 0x9E3779B97F4A7C15;
    R_UINT64 mixed = random.value += 0x9E3779B97F4A7C15;
    mixed = (mixed ^ mixed >> 30) * 0xBF58476D1CE4E5B9;
    mixed = (mixed ^ mixed >> 27) * 0x94D049BB133111EB;
    return static_cast<R_UINT>(mixed >> 32);
}

R_UINT firstNumber() noexcept
{
    const auto ticks = static_cast<R_UINT>(platform().ticks());
    return ticks < kYoungClock ? randomNumber() : ticks;
}

bool isEmpty(const R_WCHAR* text) noexcept { return text == nullptr || text[0] == 0; }

/// An empty file that was not there before.
bool createOnDisk(const R_WCHAR* name) noexcept
{
    const int64_t file =
        platform().openFile(name, {.access = FileRequest::kWrite, .creation = FileRequest::Creation::createNew});
    if (file == kNoFile) return false;
    platform().closeFile(file);
    return true;
}

/// A name in the making: everything but its number.
class TempName {
public:
    TempName() noexcept = default;
    TempName(const TempName&) = delete;
    TempName& operator=(const TempName&) = delete;

    /// The texts must outlive the name.
    Status prepare(R_INT mode, const R_WCHAR* folder, const R_WCHAR* prefix, const R_WCHAR* extension,
                   R_UINT options) noexcept
    {
        if (mode == kCurrentTempFileMode) mode = static_cast<R_INT>(R_GetTempFileMode());
        if (mode == 0) mode = TEMPFILE_DISK_AND_MEMORY;
        if (mode < 0 || mode > static_cast<R_INT>(TEMPFILE_MEMORY)) return ERROR_INV_PARAMETER;
        memoryOnly_ = mode == TEMPFILE_MEMORY;
        onDisk_ = mode == TEMPFILE_DISK || (!memoryOnly_ && (options & kTempNameOnDisk) != 0);

        folder_ = folder;
        if (isEmpty(folder)) {
            R_TRY(tempFolder(tempFolder_));
            folder_ = tempFolder_;
        }
        prefix_ = isEmpty(prefix) ? ownPrefix() : prefix;
        extension_ = isEmpty(extension) ? kDefaultExtension : extension + (extension[0] == '.' ? 1 : 0);
        writeMarker(mode);
        return SUCCESS;
    }

    /// Units that the buffer must have, where lengthOf counts a text's units in the buffer's encoding.
    template <class LengthOf> size_t room(LengthOf lengthOf) const noexcept
    {
        return lengthOf(folder_) + lengthOf(prefix_) + lengthOf(extension_) + lengthOf(marker_) + kRoomBesidesTexts;
    }

    /// Writes the name into a buffer with room enough, and reserves it.
    Status reserve(R_WCHAR* buffer, size_t chars) const noexcept
    {
        const Status status = search(buffer, chars);
        if (!status.ok()) buffer[0] = 0;
        return status;
    }

private:
    const R_WCHAR* ownPrefix() noexcept
    {
        TextWriter<R_WCHAR> out(ownPrefix_, std::size(ownPrefix_));
        out.number(static_cast<R_INT>(platform().processId()));
        out.ascii("-R_");
        return ownPrefix_;
    }

    void writeMarker(R_INT mode) noexcept
    {
        TextWriter<R_WCHAR> out(marker_, kMaxMarker);
        out.ascii("-R");
        out.ascii(mode == TEMPFILE_MEMORY ? "M" : mode == TEMPFILE_DISK ? "D" : "DM");
        out.ascii("-");
        out.number(platform().processId());
        out.ascii("-");
        appendHex(out, platform().threadId());
        out.ascii("-");
    }

    /// What all candidates begin with.
    size_t writeBeginning(TextWriter<R_WCHAR> out) const noexcept
    {
        out.append(folder_);
        if (!endsFolder(folder_[textLength(folder_) - 1])) out.append(kSeparator);
        out.append(prefix_);
        out.append(marker_);
        return out.length();
    }

    /// The rest. A name that is too long for a disk loses the end of its number.
    bool writeEnd(R_WCHAR* buffer, size_t chars, size_t beginning, R_UINT number) const noexcept
    {
        TextWriter<R_WCHAR> out(buffer + beginning, chars - beginning);
        appendHex(out, number);
        size_t length = beginning + out.length();
        const size_t ending = 1 + textLength(extension_);
        if (onDisk_ && length + ending > kMaxDiskName) {
            if (ending + textLength(folder_) + 1 >= kMaxDiskName) return false;
            length = kMaxDiskName - ending;
        }
        TextWriter<R_WCHAR> tail(buffer + length, chars - length);
        tail.ascii(".");
        tail.append(extension_);
        return true;
    }

    Status search(R_WCHAR* buffer, size_t chars) const noexcept
    {
        const size_t beginning = writeBeginning({buffer, chars});
        // Held for the whole search, so that no two threads try the same number.
        const LockGuard guard(tempFileLock());
        R_UINT number = firstNumber();
        for (R_UINT tries = 0; tries < kMaxTries; ++tries, ++number) {
            if (!writeEnd(buffer, chars, beginning, number)) return ERROR_BUFFER_TOO_SMALL;
            if (findInMemory(buffer) != nullptr || existsOnDisk(buffer)) continue;
            if (!onDisk_) return listInMemory(buffer, memoryOnly_);
            if (createOnDisk(buffer)) return SUCCESS;
            const uint32_t error = platform().nativeError();
            // Somebody was faster, or it is a link that leads nowhere.
            if (error == native::kFileExists || existsOnDisk(buffer)) continue;
            return error == native::kAccessDenied ? ERROR_TEMP_FILE_ACCESS : ERROR_TEMP_FILE_UNKNOWN;
        }
        return ERROR_TEMP_FILES_FULL;
    }

    const R_WCHAR* folder_ = nullptr;
    const R_WCHAR* prefix_ = nullptr;
    const R_WCHAR* extension_ = nullptr;
    bool onDisk_ = false;
    bool memoryOnly_ = false;
    TempFolderText tempFolder_;
    R_WCHAR ownPrefix_[24];
    R_WCHAR marker_[kMaxMarker];
};

/// Working memory for a text of units.
class WideBuffer {
public:
    explicit WideBuffer(size_t units) noexcept
        : units_(static_cast<R_WCHAR*>(platform().allocate(units * sizeof(R_WCHAR))))
    {
    }
    ~WideBuffer() { platform().release(units_); }
    WideBuffer(const WideBuffer&) = delete;
    WideBuffer& operator=(const WideBuffer&) = delete;
    R_WCHAR* get() const noexcept { return units_; }

private:
    R_WCHAR* units_;
};

struct Utf8 {
    using Wide = WideText;
    static size_t length(const R_WCHAR* text) noexcept { return utf8FromWide(nullptr, 0, text).needed; }
    static void convert(char* buffer, size_t bytes, const R_WCHAR* text) noexcept { utf8FromWide(buffer, bytes, text); }
};

struct Narrow {
    using Wide = NarrowArgument;
    static size_t length(const R_WCHAR* text) noexcept { return narrowAnswer(nullptr, 0, text) - 1; }
    static void convert(char* buffer, size_t bytes, const R_WCHAR* text) noexcept { narrowAnswer(buffer, bytes, text); }
};

bool sameText(const R_WCHAR* a, const R_WCHAR* b) noexcept
{
    for (; *a == *b; ++a, ++b)
        if (*a == 0) return true;
    return false;
}

const char* orEmpty(const char* text) noexcept { return text != nullptr ? text : ""; }

/// The same in 8-bit text. Whether the name will fit is found out before there is one.
template <class Encoding>
Status makeNarrowName(char* buffer, R_UINT bytes, R_INT mode, const char* folder, const char* prefix,
                      const char* extension, R_UINT options) noexcept
{
    if (buffer == nullptr) return ERROR_NULL_PTR;
    if (bytes == 0) return ERROR_INV_PARAMETER;
    using Wide = typename Encoding::Wide;
    const Wide wideFolder(orEmpty(folder)), widePrefix(orEmpty(prefix)), wideExtension(orEmpty(extension));
    if (!wideFolder || !widePrefix || !wideExtension) return ERROR_FAILURE;
    TempName name;
    R_TRY(name.prepare(mode, wideFolder.get(), widePrefix.get(), wideExtension.get(), options));
    if (name.room(&Encoding::length) > bytes) return ERROR_BUFFER_TOO_SMALL;
    // No text has more wide units than bytes.
    const WideBuffer wide(bytes);
    if (wide.get() == nullptr) return ERROR_FAILURE;
    R_TRY(name.reserve(wide.get(), bytes));
    Encoding::convert(buffer, bytes, wide.get());
    const Wide back(buffer);
    if (back && sameText(back.get(), wide.get())) return SUCCESS;
    // A folder that the encoding has no words for: nobody could find the file.
    (void)R_DeleteTempFile(wide.get());
    buffer[0] = 0;
    return ERROR_TEMP_FILE_UNKNOWN;
}

} // namespace

Status rv::makeTempName(R_WCHAR* buffer, R_UINT chars, R_INT mode, const R_WCHAR* folder, const R_WCHAR* prefix,
                        const R_WCHAR* extension, R_UINT options) noexcept
{
    if (buffer == nullptr) return ERROR_NULL_PTR;
    if (chars == 0) return ERROR_INV_PARAMETER;
    TempName name;
    R_TRY(name.prepare(mode, folder, prefix, extension, options));
    if (name.room([](const R_WCHAR* text) noexcept { return textLength(text); }) > chars) return ERROR_BUFFER_TOO_SMALL;
    return name.reserve(buffer, chars);
}

R_INT R_GetTempFileName(R_WCHAR* pszBuffer, const R_WCHAR* pszPrefix) noexcept
{
    return R_GetTempFileName2(nullptr, pszBuffer, pszPrefix);
}

R_INT R_GetTempFileName2(const R_WCHAR* pszFolder, R_WCHAR* pszBuffer, const R_WCHAR* pszPrefix) noexcept
{
    return makeTempName(pszBuffer, kPlainBuffer, kCurrentTempFileMode, pszFolder, pszPrefix, nullptr, kTempNameOnDisk);
}

R_INT R_GetTempFileName3(R_WCHAR* pszBuffer, R_UINT uBufferChars, const R_WCHAR* pszPrefix,
                         const R_WCHAR* pszExtension) noexcept
{
    return makeTempName(pszBuffer, uBufferChars, kCurrentTempFileMode, nullptr, pszPrefix, pszExtension,
                        kTempNameOnDisk);
}

R_INT R_GetTempFileName4(const R_WCHAR* pszFolder, R_WCHAR* pszBuffer, R_UINT uBufferChars, R_INT nMode,
                         const R_WCHAR* pszPrefix, const R_WCHAR* pszExtension) noexcept
{
    return makeTempName(pszBuffer, uBufferChars, nMode, pszFolder, pszPrefix, pszExtension, 0);
}

R_INT R_GetTempFileNameA(char* pszBuffer, const char* pszPrefix) noexcept
{
    return R_GetTempFileName2A(nullptr, pszBuffer, pszPrefix);
}

R_INT R_GetTempFileName2A(const char* pszFolder, char* pszBuffer, const char* pszPrefix) noexcept
{
    return makeNarrowName<Narrow>(pszBuffer, kPlainBuffer, kCurrentTempFileMode, pszFolder, pszPrefix, nullptr,
                                  kTempNameOnDisk);
}

R_INT R_GetTempFileNameUTF8(char* pszBuffer, const char* pszPrefix) noexcept
{
    return makeNarrowName<Utf8>(pszBuffer, kPlainBuffer, kCurrentTempFileMode, nullptr, pszPrefix, nullptr,
                                kTempNameOnDisk);
}

R_INT R_GetTempFileName3UTF8(char* pszBuffer, R_UINT uBufferChars, const char* pszPrefix,
                             const char* pszExtension) noexcept
{
    return makeNarrowName<Utf8>(pszBuffer, uBufferChars, kCurrentTempFileMode, nullptr, pszPrefix, pszExtension,
                                kTempNameOnDisk);
}

R_INT R_GetTempFileName4UTF8(const char* pszFolder, char* pszBuffer, R_UINT uBufferChars, R_INT nMode,
                             const char* pszPrefix, const char* pszExtension) noexcept
{
    return makeNarrowName<Utf8>(pszBuffer, uBufferChars, nMode, pszFolder, pszPrefix, pszExtension, 0);
}
