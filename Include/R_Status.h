/// Status codes, their messages, and the trace output.
///
/// 1 is success and is tested by equality; 0 is a failure; negative values are errors. Row calls answer a byte
/// count instead of 1.
#ifndef R_STATUS_H
#define R_STATUS_H

#include <stdarg.h>

#include "R_Types.h"

#define SUCCESS 1
#define SUCCESS_ABORT 2 ///< a data callback has done the step itself
#define FAILURE 0

#define ERROR_FAILURE (-1)    ///< a memory block or system object could not be had
#define ERROR_INV_BITMAP (-2) ///< no bitmap, or one without pixels
#define ERROR_NO_MEMORY (-3)  ///< a size that the record cannot express
#define ERROR_FILE_LSEEK (-4)
#define ERROR_FILE_WRITE (-5)
#define ERROR_FILE_READ (-7)
#define ERROR_INV_FILENAME (-8) ///< a name that the call does not take
#define ERROR_NO_SUCH_FILE (-10)
#define ERROR_INV_SIZE (-11)      ///< invalid width or height
#define ERROR_INV_PARAMETER (-13) ///< a null pointer or a value outside its range
#define ERROR_FEATURE_NOT_SUPPORTED (-16)
#define ERROR_INV_BITS_PER_PIXEL (-27)
#define ERROR_TEMP_FOLDER (-74) ///< the system names no folder for temporary files
#define ERROR_USER_ABORT (-100)
#define ERROR_FEATURE_LOCKED (-143) ///< start-up buffers could not be flushed, or a feature is locked
#define ERROR_INV_HANDLE (-261)
#define ERROR_BUFFER_TOO_SMALL (-290)
#define ERROR_NO_DISK_SPACE (-295)
#define ERROR_INV_STRUCT_SIZE (-789)
#define ERROR_NULL_PTR (-814)
#define ERROR_FILE_ACCESS (-1846) ///< access denied
#define ERROR_FILE_DELETE (-1847)
#define ERROR_FILE_REGISTERED (-1850)     ///< the pseudo file name has a set already
#define ERROR_TEMP_FILES_FULL (-1894)     ///< there are too many files in the temporary folder
#define ERROR_TEMP_FILE_ACCESS (-1902)    ///< the temporary folder may not be written
#define ERROR_TEMP_FILE_UNKNOWN (-1903)   ///< a temporary file could not be made for another reason
#define ERROR_MEMORY_LIMIT (-1905)        ///< the conventional-memory limit would be passed
#define ERROR_FLOAT_NOT_SUPPORTED (-1927) ///< samples of floating point, which the call does not reckon with

/// Writes the message of a status into pszBuffer (uBufferChars units, terminator included), cut to fit.
/// Every code has a message; an unknown one gets the general text. uFlags is reserved.
/// Returns SUCCESS, or ERROR_INV_PARAMETER for a null buffer or a buffer of no units.
R_API R_INT R_GetFriendlyErrorMessage(R_INT nCode, R_WCHAR* pszBuffer, R_UINT uBufferChars, R_UINT uFlags) R_NOEXCEPT;
/// The same in 8-bit characters (UTF-8; the code page on Windows).
R_API R_INT R_GetFriendlyErrorMessageA(R_INT nCode, char* pszBuffer, R_UINT uBufferChars, R_UINT uFlags) R_NOEXCEPT;

/// Finds the module, and the feature inside it, that a status speaks of.
/// *pnFeature is 0 and *pnLibId is -1 where the status names none.
/// Returns SUCCESS, or ERROR_INV_PARAMETER for a null pointer.
R_API R_INT R_GetLibIdFromErrorCode(R_INT nCode, R_INT* pnFeature, R_INT* pnLibId) R_NOEXCEPT;

/// Trace lines go to the debugger's output (standard error where there is none). A text that begins with a line
/// feed starts a new line, with the time since the first trace and the thread's id in front.
/// Formats are printf's. %s and %c take text of the call's own kind, %S and %C of the other; %hs is always 8-bit, %ls
/// always R_WCHAR text. %n stores nothing. A text is cut to 2047 units.
R_API void Trace(const char* pszFormat, ...) R_NOEXCEPT;
/// The same under a function's name: "name: text".
R_API void Trace1(const char* pszFunction, const char* pszFormat, ...) R_NOEXCEPT;
R_API void Trace1W(const R_WCHAR* pszFunction, const R_WCHAR* pszFormat, ...) R_NOEXCEPT;
R_API void TraceV(const char* pszFormat, va_list arguments) R_NOEXCEPT;

#endif
