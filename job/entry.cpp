// Load and unload of the library. The shared object has no loader callback of its own, so a
// constructor and a destructor stand in for process attach and detach.
#include "job/job.h"

#include "config/config.h"

namespace {

// There is no module handle of our own on this platform; this value stands for the library
// wherever one is handed out (the plug-in receives it at each session).
constexpr HMODULE kLibraryModule = 0x51417001u;

enum : DWORD { kProcessDetach = 0, kProcessAttach = 1 };

CRITICAL_SECTION UmpdSection; // set up at load; nothing enters it

__attribute__((constructor)) void LibraryAttach() {
    DllEntryPoint(kLibraryModule, kProcessAttach, nullptr);
}

__attribute__((destructor)) void LibraryDetach() {
    DllEntryPoint(ghModule, kProcessDetach, nullptr);
}

} // namespace

HMODULE ghModule = 0;

BOOL DllEntryPoint(HMODULE hModule, DWORD reason, void *) {
    if (reason == kProcessAttach) {
        InitializeCriticalSection(&UmpdSection);
        DisableThreadLibraryCalls(hModule);
        hJobName = 0;
        hCfg = 0;
        hCustUIDLL = 0;
        ghModule = hModule;
    } else if (reason == kProcessDetach) {
        FreeFunctionTable();
        DiscardDeviceInfo(nullptr);
    }
    return TRUE;
}
