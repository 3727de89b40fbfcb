// The Windows directory (modules over dlopen are the plug-in bridge's to test).
#include "platform/hostenv.h"
#include "q417/host.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

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
