/// Options of temporary files, for the length of a scope.
#pragma once

#include "R_Files.h"

namespace rv::test {

class TempOptions {
public:
    TempOptions(R_UINT mode, R_UINT totalMiB, R_UINT fileMiB, R_UINT chunkKiB)
    {
        R_GetTempFileOptions(&before_, TEMPFILEOPTIONS_SIZE);
        const TEMPFILEOPTIONS options = {TEMPFILEOPTIONS_SIZE, mode, 0, totalMiB, fileMiB, chunkKiB};
        R_SetTempFileOptions(&options);
    }
    ~TempOptions() { R_SetTempFileOptions(&before_); }
    TempOptions(const TempOptions&) = delete;
    TempOptions& operator=(const TempOptions&) = delete;

private:
    TEMPFILEOPTIONS before_{};
};

} // namespace rv::test
