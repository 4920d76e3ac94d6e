// Libraries loaded at run time. Each loaded library has one record here, and
// the record's address is its module handle: a second load of the same library
// finds the record and counts one more use, so the handle stays the same and
// FreeLibrary can tell the last use from the others. dlopen counts uses of its
// own as well; we keep exactly one dlopen reference per record.

#include "platform/library.h"

#include "platform/memory.h"
#include "platform/sync.h"

#include <langmon/status_manager.h>

#include <dlfcn.h>
#include <link.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string_view>
#include <vector>

namespace langmon {

namespace {

struct LoadedLibrary {
    bool inProcess = false;
    std::string name;                          // in-process: the name it was registered under
    platform::LibraryLookup lookup = nullptr;  // in-process: answers GetProcAddress
    void* object = nullptr;                    // shared object: the dlopen handle
    std::size_t uses = 0;
};

struct Registration {
    std::string name;
    platform::LibraryLookup lookup;
};

// One lock over both lists. dlopen and dlclose run outside it: they run the
// library's constructors and destructors, which may load libraries in turn.
struct Libraries {
    std::mutex mutex;
    std::vector<std::unique_ptr<LoadedLibrary>> loaded;
    std::vector<Registration> registered;
};

Libraries& TheLibraries() {
    static auto* libraries = new Libraries();  // never destroyed, see kernel.h
    return *libraries;
}

char FoldAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

bool SameNameIgnoringCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() &&
           std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return FoldAscii(x) == FoldAscii(y); });
}

LoadedLibrary* FindLoaded(Libraries& libs, HMODULE module) {
    for (const auto& library : libs.loaded) {
        if (library.get() == module) return library.get();
    }
    return nullptr;
}

// "KVTRM.DLL" -> "libkvtrm.so". A name without an extension stands for a DLL,
// as on Windows, so "KVTRM" is the same library.
std::string SharedObjectName(std::string_view name) {
    constexpr std::string_view kDll = ".dll";
    if (name.size() > kDll.size() && SameNameIgnoringCase(name.substr(name.size() - kDll.size()), kDll)) {
        name.remove_suffix(kDll.size());
    }
    std::string file = "lib";
    for (char c : name) file += FoldAscii(c);
    return file + ".so";
}

// The module that holds this code: liblangmon.so, or the program itself when
// the platform is linked in statically. The main program's link map entry has
// no name, so its path comes from /proc.
struct OwnModule {
    std::string path;
    bool isProgram = false;
};

OwnModule FindOwnModule() {
    Dl_info info{};
    link_map* map = nullptr;
    auto* self = reinterpret_cast<void*>(&SharedObjectName);
    if (dladdr1(self, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) == 0) return {};
    if (map != nullptr && map->l_name != nullptr && map->l_name[0] != '\0') return {map->l_name, false};
    char buffer[4096];
    const ssize_t length = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    if (length <= 0) return {};
    return {std::string(buffer, static_cast<std::size_t>(length)), true};
}

std::string DirectoryOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

// The directories of LANGMON_LIBRARY_PATH, in order, empty ones left out.
std::vector<std::string> SearchPathDirectories() {
    std::vector<std::string> directories;
    const char* searchPath = std::getenv("LANGMON_LIBRARY_PATH");
    if (searchPath == nullptr) return directories;
    std::string_view rest = searchPath;
    while (true) {
        const std::size_t colon = rest.find(':');
        const std::string_view directory = rest.substr(0, colon);
        if (!directory.empty()) directories.emplace_back(directory);
        if (colon == std::string_view::npos) break;
        rest.remove_prefix(colon + 1);
    }
    return directories;
}

// Every path the library may be at, in the order they are tried before the
// dynamic loader's own search.
std::vector<std::string> CandidatePaths(const char* name) {
    if (std::string_view(name).find('/') != std::string_view::npos) return {name};
    const std::string file = SharedObjectName(name);
    std::vector<std::string> paths;
    for (const std::string& directory : SearchPathDirectories()) paths.push_back(directory + "/" + file);
    const OwnModule own = FindOwnModule();
    const std::string directory = DirectoryOf(own.path);
    if (directory.empty()) return paths;
    paths.push_back(directory + "/" + file);
    // An installed program keeps its libraries in the installation's library
    // folder. The program's run path names it too, but the dynamic loader
    // honours a run path only for the object that calls dlopen, which under a
    // sanitizer is the sanitizer's runtime; and packagers strip run paths.
    if (own.isProgram) {
        const std::string installed =
            (std::filesystem::path(directory) / LANGMON_LIBDIR_FROM_BINDIR / file).lexically_normal();
        if (installed != paths.back()) paths.push_back(installed);
    }
    return paths;
}

// The directories the dynamic loader searches for a bare file name that this
// module opens: the module's run path ($ORIGIN expanded), LD_LIBRARY_PATH and
// the system's.
std::vector<std::string> LoaderDirectories() {
    const OwnModule own = FindOwnModule();
    void* handle = own.isProgram ? dlopen(nullptr, RTLD_LAZY)
                                 : dlopen(own.path.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    std::vector<std::string> directories;
    if (handle == nullptr) return directories;
    Dl_serinfo size{};
    if (dlinfo(handle, RTLD_DI_SERINFOSIZE, &size) == 0 && size.dls_size >= sizeof(Dl_serinfo)) {
        std::vector<std::max_align_t> storage(size.dls_size / sizeof(std::max_align_t) + 1);
        auto* info = reinterpret_cast<Dl_serinfo*>(storage.data());
        *info = size;
        if (dlinfo(handle, RTLD_DI_SERINFO, info) == 0) {
            for (unsigned i = 0; i < info->dls_cnt; ++i) {
                directories.push_back(std::filesystem::path(info->dls_serpath[i].dls_name).lexically_normal());
            }
        }
    }
    dlclose(handle);
    return directories;
}

// Hands the library the host's calls, so that the events its watches signal
// are ours. Done on every load: the library keeps the last copy it is given.
void AttachHost(void* object) {
    using AttachFn = void (*)(const LANGMON_HOST_CALLS*);
    auto attach = reinterpret_cast<AttachFn>(dlsym(object, "LangmonAttachHost"));
    if (attach == nullptr) return;
    LANGMON_HOST_CALLS host{};
    host.size = sizeof host;
    host.SetEvent = &SetEvent;
    attach(&host);
}

HMODULE LoadRegistered(Libraries& libs, const char* name) {
    std::lock_guard lock(libs.mutex);
    const auto registration = std::find_if(libs.registered.begin(), libs.registered.end(),
                                           [&](const Registration& r) { return SameNameIgnoringCase(r.name, name); });
    if (registration == libs.registered.end()) return nullptr;
    for (const auto& library : libs.loaded) {
        if (library->inProcess && SameNameIgnoringCase(library->name, name)) {
            ++library->uses;
            return library.get();
        }
    }
    auto library = std::make_unique<LoadedLibrary>();
    library->inProcess = true;
    library->name = registration->name;
    library->lookup = registration->lookup;
    library->uses = 1;
    libs.loaded.push_back(std::move(library));
    return libs.loaded.back().get();
}

// The library's shared object: the candidate paths first, then, for a bare
// name, the dynamic loader's search (LD_LIBRARY_PATH, the system's folders),
// so that a library installed with the system's is found as any is.
void* OpenSharedObject(const char* name) {
    for (const std::string& path : CandidatePaths(name)) {
        if (access(path.c_str(), F_OK) != 0) continue;
        if (void* object = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL)) return object;
    }
    if (std::string_view(name).find('/') != std::string_view::npos) return nullptr;
    return dlopen(SharedObjectName(name).c_str(), RTLD_NOW | RTLD_LOCAL);
}

HMODULE LoadFile(Libraries& libs, const char* name) {
    void* object = OpenSharedObject(name);
    if (object == nullptr) return nullptr;
    AttachHost(object);
    std::unique_lock lock(libs.mutex);
    for (const auto& library : libs.loaded) {
        if (library->object == object) {
            ++library->uses;
            lock.unlock();
            dlclose(object);  // the record holds the one reference we keep
            return library.get();
        }
    }
    auto library = std::make_unique<LoadedLibrary>();
    library->object = object;
    library->uses = 1;
    libs.loaded.push_back(std::move(library));
    return libs.loaded.back().get();
}

}  // namespace

HMODULE LoadLibraryA(LPCSTR name) {
    if (name == nullptr || name[0] == '\0') {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    if (platform::CreationFails()) {
        return nullptr;
    }
    Libraries& libs = TheLibraries();
    if (HMODULE module = LoadRegistered(libs, name)) return module;
    if (HMODULE module = LoadFile(libs, name)) return module;
    SetLastError(ERROR_MOD_NOT_FOUND);
    return nullptr;
}

void* GetProcAddress(HMODULE module, LPCSTR procName) {
    Libraries& libs = TheLibraries();
    void* address = nullptr;
    platform::LibraryLookup lookup = nullptr;
    {
        std::lock_guard lock(libs.mutex);
        LoadedLibrary* library = FindLoaded(libs, module);
        if (library == nullptr) {
            SetLastError(ERROR_INVALID_HANDLE);
            return nullptr;
        }
        if (procName == nullptr) {
            SetLastError(ERROR_PROC_NOT_FOUND);
            return nullptr;
        }
        if (library->inProcess) {
            lookup = library->lookup;
        } else {
            address = dlsym(library->object, procName);
        }
    }
    // A fake's lookup is test code: it runs without our lock, free to load too.
    if (lookup != nullptr) address = lookup(procName);
    if (address == nullptr) SetLastError(ERROR_PROC_NOT_FOUND);
    return address;
}

BOOL FreeLibrary(HMODULE module) {
    Libraries& libs = TheLibraries();
    void* unload = nullptr;
    {
        std::lock_guard lock(libs.mutex);
        LoadedLibrary* library = FindLoaded(libs, module);
        if (library == nullptr) {
            SetLastError(ERROR_INVALID_HANDLE);
            return FALSE;
        }
        if (--library->uses > 0) return TRUE;
        unload = library->object;
        std::erase_if(libs.loaded, [&](const auto& l) { return l.get() == library; });
    }
    if (unload != nullptr) dlclose(unload);
    return TRUE;
}

namespace platform {

void RegisterLibrary(const std::string& name, LibraryLookup lookup) {
    Libraries& libs = TheLibraries();
    std::lock_guard lock(libs.mutex);
    // A library loaded under the name answers with the new lookup from now on.
    for (const auto& library : libs.loaded) {
        if (library->inProcess && SameNameIgnoringCase(library->name, name)) library->lookup = lookup;
    }
    for (Registration& r : libs.registered) {
        if (SameNameIgnoringCase(r.name, name)) {
            r.lookup = lookup;
            return;
        }
    }
    libs.registered.push_back({name, lookup});
}

// A library loaded under the name stays usable until its last use ends, as a
// mapped DLL does; only new loads stop finding it.
void UnregisterLibrary(const std::string& name) {
    Libraries& libs = TheLibraries();
    std::lock_guard lock(libs.mutex);
    std::erase_if(libs.registered, [&](const Registration& r) { return SameNameIgnoringCase(r.name, name); });
}

std::string DescribeMissingLibrary(const char* name) {
    const std::string_view given = name == nullptr ? "" : name;
    if (given.empty() || given.find('/') != std::string_view::npos) {
        return std::string(given) + " was not found";
    }
    const std::string file = SharedObjectName(given);
    std::string text = file + " was not found (";
    if (std::getenv("LANGMON_LIBRARY_PATH") == nullptr) text += "LANGMON_LIBRARY_PATH is not set; ";
    text += "tried";
    const char* separator = " ";
    std::vector<std::string> tried = CandidatePaths(name);
    for (const std::string& directory : LoaderDirectories()) {
        const std::string path = directory + "/" + file;
        if (std::find(tried.begin(), tried.end(), path) == tried.end()) tried.push_back(path);
    }
    for (const std::string& path : tried) {
        text += separator + path;
        separator = ", ";
    }
    return text + "); setting LANGMON_LIBRARY_PATH to the folder that holds " + file + " makes it found";
}

std::size_t LoadedLibraryUses() {
    Libraries& libs = TheLibraries();
    std::lock_guard lock(libs.mutex);
    std::size_t uses = 0;
    for (const auto& library : libs.loaded) uses += library->uses;
    return uses;
}

}  // namespace platform
}  // namespace langmon
