// Modules over dlopen under 32-bit handles, the calls a DLL makes at load, and the Windows
// directory.
#include "platform/hostenv.h"

#include <dlfcn.h>

#include <cstring>
#include <mutex>
#include <vector>

namespace {

struct Module {
    void *dl = nullptr;
    long refs = 0; // LoadLibraryW of a loaded module gives the same handle and counts up
};

// Handle value: 0x60000000 | slot + 1. Slots are not reused, so a freed handle stays invalid.
constexpr uint32_t kTag = 0x60000000u;
constexpr uint32_t kMaxModules = 0x00FFFFFF;

struct ModuleTable {
    std::mutex lock;
    std::vector<Module> modules;
};

ModuleTable &table() {
    static ModuleTable *t = new ModuleTable;
    return *t;
}

Module *find(ModuleTable &t, HMODULE h) {
    if ((h & 0xFF000000u) != kTag) return nullptr;
    uint32_t slot = h & 0x00FFFFFFu;
    if (slot == 0 || slot > t.modules.size()) return nullptr;
    Module &m = t.modules[slot - 1];
    return m.refs > 0 ? &m : nullptr;
}

} // namespace

HMODULE LoadLibraryW(LPCWSTR lpLibFileName) {
    char path[4096];
    if (!lpLibFileName || !*lpLibFileName ||
        !q417::path::FromWide(lpLibFileName, path, sizeof path)) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return 0;
    }
    void *dl = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (!dl) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return 0;
    }
    auto &t = table();
    std::lock_guard<std::mutex> g(t.lock);
    for (size_t i = 0; i < t.modules.size(); ++i) {
        if (t.modules[i].refs > 0 && t.modules[i].dl == dl) {
            ++t.modules[i].refs; // dlopen counted too; each FreeLibrary closes once
            return kTag | uint32_t(i + 1);
        }
    }
    if (t.modules.size() >= kMaxModules) {
        dlclose(dl);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }
    t.modules.push_back({dl, 1});
    return kTag | uint32_t(t.modules.size());
}

FARPROC GetProcAddress(HMODULE hModule, LPCSTR lpProcName) {
    void *dl;
    {
        auto &t = table();
        std::lock_guard<std::mutex> g(t.lock);
        Module *m = find(t, hModule);
        if (!m) {
            SetLastError(ERROR_INVALID_HANDLE);
            return nullptr;
        }
        dl = m->dl;
    }
    // Ordinals (values below 0x10000 in place of a name) don't exist in ELF.
    if (reinterpret_cast<uintptr_t>(lpProcName) < 0x10000) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    void *sym = dlsym(dl, lpProcName);
    if (!sym) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    FARPROC fn;
    static_assert(sizeof fn == sizeof sym);
    std::memcpy(&fn, &sym, sizeof fn);
    return fn;
}

BOOL FreeLibrary(HMODULE hLibModule) {
    void *dl;
    {
        auto &t = table();
        std::lock_guard<std::mutex> g(t.lock);
        Module *m = find(t, hLibModule);
        if (!m) {
            SetLastError(ERROR_INVALID_HANDLE);
            return FALSE;
        }
        dl = m->dl;
        if (--m->refs == 0) m->dl = nullptr;
    }
    dlclose(dl);
    return TRUE;
}

// No thread notifications exist here to switch off.
BOOL DisableThreadLibraryCalls(HMODULE) {
    return TRUE;
}

// Nothing enters the section: the library serves one caller at a time.
void InitializeCriticalSection(CRITICAL_SECTION *cs) {
    if (cs) cs->reserved = nullptr;
}

UINT GetWindowsDirectoryW(LPWSTR lpBuffer, UINT uSize) {
    std::u16string dir = q417::text::Utf8ToUtf16(q417::host::WindowsDirectory());
    UINT len = UINT(dir.size());
    if (!lpBuffer || uSize < len + 1) return len + 1; // the size needed, terminator included
    std::memcpy(lpBuffer, dir.c_str(), (dir.size() + 1) * sizeof(WCHAR));
    return len;
}
