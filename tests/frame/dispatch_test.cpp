// Code-path selection, the export tables and the version records.
#include "frame/exports.h"
#include "nkpcore.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#if !defined(_WIN32)
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>
#else
#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <thread>
#endif

namespace {

// A mask and the path it selects: both SSSE3 and MOVBE for the second.
const struct {
    const char* name;
    uint64_t mask;
    int32_t path;
} kSelection[] = {
    {"none", 0, 0},
    {"ssse3_only", NKP_CPU_SSSE3, 0},
    {"movbe_only", NKP_CPU_MOVBE, 0},
    {"both", NKP_CPU_SSSE3 | NKP_CPU_MOVBE, 1},
    {"both_and_more", ~uint64_t{0}, 1},
    {"everything_but_movbe", ~NKP_CPU_MOVBE, 0},
    {"everything_but_ssse3", ~NKP_CPU_SSSE3, 0},
};

TEST(CodePath, ActivePathFollowsTheFeatureMaskAtStart) {
    // The selection also runs in programs that link the objects statically,
    // so NKPCORE_CPU_FEATURES steers a whole test run onto either path, and
    // the export answers with that path's record.
    EXPECT_EQ(nkp_code_path, nkp::select_code_path(nkpGetEnabledCpuFeatures()));
    EXPECT_EQ(nkpacGetLibVersion(), nkpt_nkpacGetLibVersion[nkp_code_path]());
}

#if !defined(_WIN32)
// Loads the shared library in a child process whose nkpcore reports `mask`
// and returns the code the active version record names.
std::string path_code_when_loaded_with(uint64_t mask) {
    int fds[2];
    if (pipe(fds) != 0) return "pipe";
    const pid_t pid = fork();
    if (pid == 0) {
        close(fds[0]);
        nkpcoreSetCpuFeatures(mask);
        void* lib = dlopen(NKPAC_SHARED_LIB, RTLD_NOW | RTLD_LOCAL);
        char code[4] = {'?', '?', 0, 0};
        auto get = lib ? reinterpret_cast<const nkpLibraryVersion* (*)()>(dlsym(lib, "nkpacGetLibVersion")) : nullptr;
        if (get) std::memcpy(code, get()->targetCpu, 4);
        _exit(write(fds[1], code, 4) == 4 ? 0 : 1);
    }
    close(fds[1]);
    char code[5] = {};
    const ssize_t n = read(fds[0], code, 4);
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    return n == 4 ? std::string(code) : "child failed";
}
#else
// nkpac.dll sits next to the test program, which does not import it.
// Loading it after the test hook has set nkpcore's mask runs its entry
// point's selection with that mask; nkpcore.dll is the one this program
// already uses.
struct LoadedDll {
    HMODULE module = LoadLibraryA("nkpac.dll");
    ~LoadedDll() {
        if (module) FreeLibrary(module);
    }
    // The code the active version record names, as the export reports it.
    std::string path_code() const {
        auto get = module ? reinterpret_cast<const nkpLibraryVersion* (*)()>(
                                reinterpret_cast<void (*)()>(GetProcAddress(module, "nkpacGetLibVersion")))
                          : nullptr;
        return get ? std::string(get()->targetCpu) : "not loaded";
    }
};

std::string path_code_when_loaded_with(uint64_t mask) {
    EXPECT_EQ(GetModuleHandleA("nkpac.dll"), nullptr) << "the test program must not import nkpac.dll";
    nkpcoreSetCpuFeatures(mask);
    const std::string code = LoadedDll().path_code();
    nkpcoreResetCpuFeatures();
    return code;
}

TEST(CodePath, DllChoosesOnlyOnce) {
    // Thread notifications and a second load of the same module leave the
    // path as the first attach chose it, even when the mask has changed since.
    const std::string lp = nkpt_nkpacGetLibVersion[1]()->targetCpu;
    nkpcoreSetCpuFeatures(NKP_CPU_SSSE3 | NKP_CPU_MOVBE);
    LoadedDll dll;
    nkpcoreSetCpuFeatures(0);
    std::string seen_in_thread;
    std::thread([&] { seen_in_thread = dll.path_code(); }).join();
    const std::string again = LoadedDll().path_code();
    nkpcoreResetCpuFeatures();
    EXPECT_TRUE(seen_in_thread == lp && again == lp && dll.path_code() == lp)
        << seen_in_thread << " " << again << " " << dll.path_code();
}
#endif

// The shared library (the DLL on Windows) selects its path when it is
// loaded, from the mask nkpcore reports then.
TEST(CodePath, LibrarySelectsAtLoad) {
    const std::string code[2] = {nkpt_nkpacGetLibVersion[0]()->targetCpu, nkpt_nkpacGetLibVersion[1]()->targetCpu};
    for (const auto& c : kSelection) {
        EXPECT_EQ(nkp::select_code_path(c.mask), c.path) << c.name;
        EXPECT_EQ(path_code_when_loaded_with(c.mask), code[c.path]) << c.name;
    }
}

}  // namespace
