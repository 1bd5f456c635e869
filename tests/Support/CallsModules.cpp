#include "Support/Calls.h"

#include "Common/Text.h"

namespace rv::test {

namespace {

constexpr R_WCHAR kPath[] = RV_WIDE("c:d/nobodyX.DLL");

template <size_t Units> struct Text {
    R_WCHAR units[Units];
    operator R_WCHAR*() { return units; }
};

const Call kCalls[] = {
    CALL(R_GetLibName, 0, 1, 0, w.answers.wide, 20),
    DOES(R_GetLibFullPath, as(R_GetLibFullPath(RV_WIDE(""), Text<4096>(), 4096) == SUCCESS)),
    DOES(R_SkipPath, as(R_SkipPath(kPath) == kPath + 4)),
    DOES(R_IsMissingFile, as(R_IsMissingFile(kPath) == 1)),
    CALL(R_SetLoadLibCallback, nullptr, nullptr),
    DOES(R_GetLoadLibCallback, as(R_GetLoadLibCallback(nullptr) == nullptr)),
};

} // namespace

std::span<const Call> moduleCalls() { return kCalls; }

} // namespace rv::test
