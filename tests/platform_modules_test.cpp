// Modules over dlopen and the Windows directory.
#include "platform/hostenv.h"
#include "q417/host.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <vector>

namespace {

TEST(Modules, LoadFindAndFreeUnderOneHandle) {
    HMODULE m = LoadLibraryW(u"libm.so.6");
    ASSERT_NE(m, 0u);
    FARPROC p = GetProcAddress(m, "cos");
    ASSERT_NE(p, nullptr);
    auto *cosFn = reinterpret_cast<double (*)(double)>(p);
    EXPECT_EQ(cosFn(0.0), 1.0);

    // The same module by a Windows-style full name gives the same handle.
    Dl_info info{};
    ASSERT_NE(dladdr(reinterpret_cast<void *>(p), &info), 0);
    std::u16string wide = q417::text::Utf8ToUtf16(info.dli_fname);
    for (auto &c : wide)
        if (c == u'/') c = u'\\';
    HMODULE again = LoadLibraryW(wide.c_str());
    EXPECT_EQ(again, m);

    SetLastError(0);
    EXPECT_EQ(GetProcAddress(m, "no_such_function_here"), nullptr);
    EXPECT_EQ(GetProcAddress(m, reinterpret_cast<LPCSTR>(uintptr_t(7))), nullptr) << "ordinal";
    EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);
    EXPECT_TRUE(FreeLibrary(again));
    EXPECT_NE(GetProcAddress(m, "cos"), nullptr) << "one reference left";
    EXPECT_TRUE(FreeLibrary(m));
    EXPECT_EQ(GetProcAddress(m, "cos"), nullptr) << "freed";
    EXPECT_FALSE(FreeLibrary(m));

    SetLastError(0);
    EXPECT_EQ(LoadLibraryW(u"\\no\\such\\QMARKDLG.DLL"), 0u);
    EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND);
    EXPECT_EQ(LoadLibraryW(nullptr), 0u);
}

TEST(Modules, WindowsDirectorySizeProtocol) {
    ASSERT_TRUE(Q417_SetWindowsDirectory("/opt/W\xC3\xADndows/")); // "Wíndows", trailing slash
    const std::u16string want = u"/opt/W\u00EDndows";
    const UINT len = UINT(want.size());
    for (UINT cap : {len + 1, len, 1u, 0u}) {
        SCOPED_TRACE(cap);
        std::vector<WCHAR> buf(cap + 4, 0xCDCD);
        UINT r = GetWindowsDirectoryW(buf.data(), cap);
        if (cap > len) {
            EXPECT_EQ(r, len);
            EXPECT_EQ(std::u16string(buf.data()), want);
        } else {
            EXPECT_EQ(r, len + 1) << "the size needed, terminator counted";
        }
        for (size_t i = cap; i < buf.size(); ++i) EXPECT_EQ(buf[i], 0xCDCD);
    }
    EXPECT_FALSE(Q417_SetWindowsDirectory(""));
    ASSERT_TRUE(Q417_SetWindowsDirectory(nullptr));
    setenv("Q417_WINDIR", "/env/windir//", 1); // trailing separators go
    WCHAR buf[64];
    EXPECT_EQ(GetWindowsDirectoryW(buf, 64), 11u);
    EXPECT_EQ(std::u16string(buf), u"/env/windir");
    unsetenv("Q417_WINDIR");
}

} // namespace
