// Libraries loaded at run time as the monitor loads the status manager: by a
// DLL name, from the search path or an in-process registration, counted per use.

#include "platform/library.h"
#include "support/platform_fixture.h"

#include <cstdlib>
#include <optional>
#include <string>

namespace langmon {
namespace {

using testing::PlatformTest;

class LibraryTest : public PlatformTest {
protected:
    void SetUp() override {
        PlatformTest::SetUp();
        const char* path = std::getenv("LANGMON_LIBRARY_PATH");
        ASSERT_NE(path, nullptr) << "the tests name the build directory in LANGMON_LIBRARY_PATH";
        buildDirectory_ = path;
    }
    void TearDown() override {
        setenv("LANGMON_LIBRARY_PATH", buildDirectory_.c_str(), 1);
        EXPECT_EQ(platform::LoadedLibraryUses(), 0u) << "libraries left loaded";
        PlatformTest::TearDown();
    }
    std::string buildDirectory_;
};

int fakeOpen = 0;
void* FakeLookup(const char* name) { return std::string(name) == "OpenManagerExA" ? &fakeOpen : nullptr; }
void* OtherLookup(const char*) { return &fakeOpen + 1; }

// One library under its names is one handle, counted per use; a registered
// library comes before any file; what can't be found gives its error.
TEST_F(LibraryTest, ALibraryIsFoundByItsNamesCountedPerUseAndMissedWithItsError) {
    HMODULE first = LoadLibraryA("KVTRM.DLL");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(LoadLibraryA("kvtrm"), first);
    EXPECT_EQ(LoadLibraryA((buildDirectory_ + "/libkvtrm.so").c_str()), first);
    EXPECT_EQ(platform::LoadedLibraryUses(), 3u);
    EXPECT_TRUE(FreeLibrary(first));
    EXPECT_TRUE(FreeLibrary(first));
    EXPECT_NE(GetProcAddress(first, "CloseManager"), nullptr) << "one use left";
    SetLastError(0xdeadbeef);
    EXPECT_EQ(GetProcAddress(first, "NoSuchFunction"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);
    EXPECT_TRUE(FreeLibrary(first));
    // The handle is gone with its last use.
    SetLastError(0xdeadbeef);
    EXPECT_EQ(GetProcAddress(first, "OpenManagerExA"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    EXPECT_FALSE(FreeLibrary(first));

    // The test program's own directory has no libkvtrm.so: only the path finds it.
    setenv("LANGMON_LIBRARY_PATH", "/nonexistent", 1);
    for (const char* name : {"KVTRM.DLL", "/nonexistent/libkvtrm.so", ""}) {
        SetLastError(0xdeadbeef);
        EXPECT_EQ(LoadLibraryA(name), nullptr) << name;
        EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND) << name;
    }
    setenv("LANGMON_LIBRARY_PATH", ("/nonexistent::" + buildDirectory_).c_str(), 1);

    platform::RegisterLibrary("kvtrm.dll", FakeLookup);
    HMODULE fake = LoadLibraryA("KVTRM.DLL");
    ASSERT_NE(fake, nullptr);
    EXPECT_EQ(GetProcAddress(fake, "OpenManagerExA"), &fakeOpen);
    EXPECT_EQ(GetProcAddress(fake, "CloseManager"), nullptr);
    // Registering again replaces the lookup, for the library already loaded too.
    platform::RegisterLibrary("KVTRM.DLL", OtherLookup);
    EXPECT_EQ(GetProcAddress(fake, "CloseManager"), &fakeOpen + 1);
    platform::UnregisterLibrary("Kvtrm.Dll");
    HMODULE real = LoadLibraryA("KVTRM.DLL");
    ASSERT_NE(real, nullptr) << "found through the path's second entry";
    EXPECT_NE(real, fake);
    EXPECT_EQ(GetProcAddress(fake, "CloseManager"), &fakeOpen + 1) << "a loaded fake stays until freed";
    EXPECT_TRUE(FreeLibrary(real));
    EXPECT_TRUE(FreeLibrary(fake));
}

}  // namespace
}  // namespace langmon
