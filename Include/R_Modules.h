/// Modules of the toolkit: their names, and loading them on demand.
#ifndef R_MODULES_H
#define R_MODULES_H

#include "R_Status.h"
#include "R_Types.h"

#define LIBNAME_NO_SUFFIX 0x1u ///< leave the file's ending out
#define LIBNAME_BARE 0x2u      ///< the table's name alone, without prefix and ending

/// Writes a module's file name (uBufferChars units, cut to fit). A file-format filter is named by its format: by
/// nLibId 0 and a format, or by nLibId 8.
/// Returns SUCCESS; ERROR_FEATURE_NOT_SUPPORTED where there is no such module; ERROR_INV_PARAMETER no buffer.
R_API R_INT R_GetLibName(R_UINT uFlags, R_INT nLibId, R_INT nFormatId, R_WCHAR* pszBuffer,
                         R_UINT uBufferChars) R_NOEXCEPT;
/// The modules' folder, which is that of the kernel's library, and a name behind it (uBufferChars units, cut to fit);
/// the name alone while the folder is unknown. ERROR_INV_PARAMETER for a null pointer or no buffer.
R_API R_INT R_GetLibFullPath(const R_WCHAR* pszName, R_WCHAR* pszBuffer, R_UINT uBufferChars) R_NOEXCEPT;
/// The part of a path behind the last ':', then '\', then '/'; null for null.
R_API const R_WCHAR* R_SkipPath(const R_WCHAR* pszPath) R_NOEXCEPT;
/// 1 when a file of this name can neither be found as given nor, by a bare name, in the modules' folder. The name of a
/// module finds what that is called on this system, too.
R_API R_INT R_IsMissingFile(const R_WCHAR* pszName) R_NOEXCEPT;

/// Asked before R_DllLoader loads a module.
/// pszName     what is to be loaded
/// pszPath     uPathChars units (1024 or more), holding that name; may be rewritten
/// Answers: 1, the loading goes on with pszPath; 2, the module is *phModule, a handle of the system's loader that is
/// the kernel's to free from now on; anything else, the module cannot be loaded.
typedef R_INT (*LOADLIBCALLBACK)(const R_WCHAR* pszName, R_WCHAR* pszPath, R_UINT uPathChars, void** phModule,
                                 void* pUserData);
/// Process-wide; null removes it.
R_API R_INT R_SetLoadLibCallback(LOADLIBCALLBACK pfnCallback, void* pUserData) R_NOEXCEPT;
R_API LOADLIBCALLBACK R_GetLoadLibCallback(void** ppUserData) R_NOEXCEPT;

#if defined(__cplusplus)

typedef R_INT RV_LIBID; ///< a module's number

/// One module that a client uses: loaded on demand, counted, its functions found by name. One thread at a time may use
/// a loader.
///
/// A name with a folder is loaded as given, or else from that folder with the system's search behind it; a bare one
/// from the modules' folder, with the system's search behind it, and not at all while that folder is unknown. A module
/// that is not there is looked for in its package's folder, too: ravokit.kernel, .mrc, .dicom, .pdf, .svg or .jpeg2000,
/// in the modules' folder or beside it. Where modules are not called NAMEX.DLL, libNAME.so is tried after that name.
class R_EXPORT R_DllLoader {
public:
    R_DllLoader() noexcept;
    R_DllLoader(const R_DllLoader&) = delete;
    R_DllLoader& operator=(const R_DllLoader&) = delete;
    virtual ~R_DllLoader(); ///< frees the module

    // 1, or 0 where the module cannot be had; a loaded one is counted once more, whatever its name. What is missing is
    // no error; with the error-if-missing flag it is traced, with the status that tells of it.
    R_INT Load() noexcept; ///< again, by the name it had (its first 511 units)
    /// By a module's number, or a file-format filter by module 0 and its format, as R_GetLibName names them.
    R_INT LoadLib(RV_LIBID nLibId, int nFormatId, const void* pReserved) noexcept;
    R_INT LoadLibName(const R_WCHAR* pszName, const void* pReserved) noexcept;
    R_INT IsSystemOutOfMemory() const noexcept; ///< 1: the last load failed for want of memory

    R_INT Unload() noexcept; ///< one load less, the last frees the module; 0 when there was none
    void Free() noexcept;    ///< whatever the count
    R_INT IsLoaded() const noexcept;
    void* GetHInstance() const noexcept;

    /// Puts a function into the table: resolved at once when loaded, else at the next load. 1, whether the module has
    /// it or not; ERROR_INV_PARAMETER no name; ERROR_FAILURE no memory.
    R_INT AddFunction(const char* pszName) noexcept;
    R_INT AddFunction(const char* pszName, int nReserved) noexcept; ///< the same
    void* GetFunction(const char* pszName) const noexcept;          ///< in the table or not; null where there is none
    R_INT IsFunctionOk(const char* pszName) const noexcept;

    R_INT GetErrorIfMissing() const noexcept;
    void SetErrorIfMissing(int bError) noexcept;
    /// Splits a path as R_SkipPath does: the folder with its last separator into pszBuffer (cut to fit), the rest
    /// through ppszBase, which may be null. ERROR_INV_PARAMETER for a null path or no buffer.
    static R_INT GetDir(const R_WCHAR* pszPath, const R_WCHAR** ppszBase, R_WCHAR* pszBuffer,
                        R_UINT uBufferChars) noexcept;

private:
    struct FunctionTable;
    void* m_hModule;
    FunctionTable* m_pFunctions;
    R_INT m_nLoadCount;
    R_INT m_bOutOfMemory;
    R_WCHAR m_szName[512];
    R_INT m_bErrorIfMissing;
};

#endif
#endif
