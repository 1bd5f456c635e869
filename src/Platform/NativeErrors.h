/// The native error numbers that the kernel knows: the Win32 ones, on every platform.
#pragma once

#include <cstdint>

namespace rv::native {

inline constexpr uint32_t kNone = 0;
inline constexpr uint32_t kFileNotFound = 2;
inline constexpr uint32_t kPathNotFound = 3;
inline constexpr uint32_t kTooManyOpenFiles = 4;
inline constexpr uint32_t kAccessDenied = 5;
inline constexpr uint32_t kInvalidHandle = 6;
inline constexpr uint32_t kNotEnoughMemory = 8;
inline constexpr uint32_t kOutOfMemory = 14;
inline constexpr uint32_t kNotSameDevice = 17;
inline constexpr uint32_t kWriteProtected = 19;
inline constexpr uint32_t kWriteFault = 29;
inline constexpr uint32_t kReadFault = 30;
inline constexpr uint32_t kGeneralFailure = 31;
inline constexpr uint32_t kSharingViolation = 32;
inline constexpr uint32_t kNotSupported = 50;
inline constexpr uint32_t kFileExists = 80;
inline constexpr uint32_t kInvalidParameter = 87;
inline constexpr uint32_t kBrokenPipe = 109;
inline constexpr uint32_t kDiskFull = 112;
inline constexpr uint32_t kBufferTooSmall = 122;
inline constexpr uint32_t kInvalidName = 123;
inline constexpr uint32_t kModuleNotFound = 126;
inline constexpr uint32_t kNegativeSeek = 131;
inline constexpr uint32_t kDirectoryNotEmpty = 145;
inline constexpr uint32_t kBadPathName = 161;
inline constexpr uint32_t kAlreadyExists = 183;
inline constexpr uint32_t kBadModule = 193; ///< a file that is no module for this program
inline constexpr uint32_t kNameTooLong = 206;

} // namespace rv::native
