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
/// The module's folder and name, or the name alone while the folder is unknown.
R_API R_INT R_GetLibFullPath(const R_WCHAR* pszName, R_WCHAR* pszBuffer, R_UINT uBufferChars) R_NOEXCEPT;
/// The part of a path behind the last ':', then '\', then '/'.
R_API const R_WCHAR* R_SkipPath(const R_WCHAR* pszPath) R_NOEXCEPT;
/// 1 when a file of this name can neither be found as given nor in the modules' folder.
R_API R_INT R_IsMissingFile(const R_WCHAR* pszName) R_NOEXCEPT;

/// Asked before a module is loaded by name: 1 lets the loading go on (pszPath, uPathChars units, may be rewritten), 2
/// takes *phModule for the module, anything else refuses it.
typedef R_INT (*LOADLIBCALLBACK)(const R_WCHAR* pszName, R_WCHAR* pszPath, R_UINT uPathChars, void** phModule,
                                 void* pUserData);
R_API R_INT R_SetLoadLibCallback(LOADLIBCALLBACK pfnCallback, void* pUserData) R_NOEXCEPT;
R_API LOADLIBCALLBACK R_GetLoadLibCallback(void** ppUserData) R_NOEXCEPT;

#if defined(__cplusplus)

typedef R_INT RV_LIBID; ///< a module's number

/// One module that a client uses: loaded on demand, counted, its functions found by name.
class R_EXPORT R_DllLoader {
public:
    R_DllLoader() noexcept;
    R_DllLoader(const R_DllLoader&) = delete;
    R_DllLoader& operator=(const R_DllLoader&) = delete;
    virtual ~R_DllLoader();

    R_INT Load() noexcept; ///< again, by the name it had
    R_INT LoadLib(RV_LIBID nLibId, int nFormatId, const void* pReserved) noexcept;
    R_INT LoadLibName(const R_WCHAR* pszName, const void* pReserved) noexcept;
    R_INT Unload() noexcept; ///< one load less; the last frees the module
    void Free() noexcept;    ///< whatever the count
    R_INT IsLoaded() const noexcept;
    void* GetHInstance() const noexcept;
    R_INT AddFunction(const char* pszName) noexcept; ///< resolved at once when loaded, else at the next load
    R_INT AddFunction(const char* pszName, int nOrdinal) noexcept;
    void* GetFunction(const char* pszName) const noexcept; ///< null where the module has none of the name
    R_INT IsFunctionOk(const char* pszName) const noexcept;
    R_INT GetErrorIfMissing() const noexcept;
    void SetErrorIfMissing(int bError) noexcept;
    /// Splits a path: the folder with its last separator into pszBuffer, the rest through ppszBase.
    static R_INT GetDir(const R_WCHAR* pszPath, const R_WCHAR** ppszBase, R_WCHAR* pszBuffer, R_UINT uBufferChars) noexcept;
    R_INT IsSystemOutOfMemory() const noexcept;

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
