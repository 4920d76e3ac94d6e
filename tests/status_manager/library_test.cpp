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

TEST_F(LibraryTest, MissingLibrariesAndFunctionsGiveTheirErrors) {
    // The test program's own directory has no libkvtrm.so: only the path finds it.
    setenv("LANGMON_LIBRARY_PATH", "/nonexistent", 1);
    for (const char* name : {"KVTRM.DLL", "/nonexistent/libkvtrm.so", ""}) {
        SetLastError(0xdeadbeef);
        EXPECT_EQ(LoadLibraryA(name), nullptr) << name;
        EXPECT_EQ(GetLastError(), ERROR_MOD_NOT_FOUND) << name;
    }
    setenv("LANGMON_LIBRARY_PATH", ("/nonexistent::" + buildDirectory_).c_str(), 1);
    HMODULE module = LoadLibraryA("KVTRM.DLL");
    ASSERT_NE(module, nullptr);
    SetLastError(0xdeadbeef);
    EXPECT_EQ(GetProcAddress(module, "NoSuchFunction"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);
    EXPECT_TRUE(FreeLibrary(module));
    // The handle is gone with its last use.
    SetLastError(0xdeadbeef);
    EXPECT_EQ(GetProcAddress(module, "OpenManagerExA"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
    SetLastError(0xdeadbeef);
    EXPECT_FALSE(FreeLibrary(module));
    EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST_F(LibraryTest, OneLibraryUnderItsNamesIsOneHandleCountedPerUse) {
    SetLastError(0xdeadbeef);
    HMODULE first = LoadLibraryA("KVTRM.DLL");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(GetLastError(), 0xdeadbeefu);
    EXPECT_EQ(LoadLibraryA("kvtrm"), first);
    EXPECT_EQ(LoadLibraryA((buildDirectory_ + "/libkvtrm.so").c_str()), first);
    EXPECT_EQ(platform::LoadedLibraryUses(), 3u);
    EXPECT_NE(GetProcAddress(first, "OpenManagerExA"), nullptr);
    EXPECT_TRUE(FreeLibrary(first));
    EXPECT_TRUE(FreeLibrary(first));
    // One use left: the library is still there.
    EXPECT_NE(GetProcAddress(first, "CloseManager"), nullptr);
    EXPECT_TRUE(FreeLibrary(first));
    EXPECT_EQ(platform::LoadedLibraryUses(), 0u);
}

TEST_F(LibraryTest, RegisteredLibraryComesBeforeAnyFile) {
    platform::RegisterLibrary("kvtrm.dll", FakeLookup);
    HMODULE fake = LoadLibraryA("KVTRM.DLL");
    ASSERT_NE(fake, nullptr);
    EXPECT_EQ(GetProcAddress(fake, "OpenManagerExA"), &fakeOpen);
    SetLastError(0xdeadbeef);
    EXPECT_EQ(GetProcAddress(fake, "CloseManager"), nullptr);
    EXPECT_EQ(GetLastError(), ERROR_PROC_NOT_FOUND);
    // Registering again replaces the lookup, for the library already loaded too.
    platform::RegisterLibrary("KVTRM.DLL", OtherLookup);
    EXPECT_EQ(GetProcAddress(fake, "CloseManager"), &fakeOpen + 1);

    platform::UnregisterLibrary("Kvtrm.Dll");
    HMODULE real = LoadLibraryA("KVTRM.DLL");
    ASSERT_NE(real, nullptr);
    EXPECT_NE(real, fake);
    EXPECT_NE(GetProcAddress(real, "CloseManager"), &fakeOpen + 1);
    EXPECT_EQ(GetProcAddress(fake, "CloseManager"), &fakeOpen + 1) << "a loaded fake stays until freed";
    EXPECT_TRUE(FreeLibrary(real));
    EXPECT_TRUE(FreeLibrary(fake));
}

}  // namespace
}  // namespace langmon
