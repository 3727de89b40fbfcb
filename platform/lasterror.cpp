// The calling thread's last error code, as the Win32 calls leave it.
#include "platform/win32.h"

namespace {
thread_local DWORD lastError = ERROR_SUCCESS;
}

DWORD GetLastError() {
    return lastError;
}
void SetLastError(DWORD code) {
    lastError = code;
}
