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

struct SelectionCase {
    const char* name;
    uint64_t mask;
    int32_t path;
};

const SelectionCase kSelection[] = {
    {"none", 0, 0},
    {"ssse3_only", NKP_CPU_SSSE3, 0},
    {"movbe_only", NKP_CPU_MOVBE, 0},
    {"both", NKP_CPU_SSSE3 | NKP_CPU_MOVBE, 1},
    {"both_and_more", ~uint64_t{0}, 1},
    {"everything_but_movbe", ~NKP_CPU_MOVBE, 0},
    {"everything_but_ssse3", ~NKP_CPU_SSSE3, 0},
};

TEST(CodePath, SelectionNeedsBothSsse3AndMovbe) {
    for (const auto& c : kSelection) {
        EXPECT_EQ(nkp::select_code_path(c.mask), c.path) << c.name;
    }
}

TEST(CodePath, ActiveRecordMatchesActivePath) {
    // Whatever this machine selected, the export answers with that path's record.
    EXPECT_EQ(nkpacGetLibVersion(), nkpt_nkpacGetLibVersion[nkp_code_path]());
}

TEST(CodePath, IndexFollowsFeatureMaskAtStart) {
    // The selection also runs in programs that link the objects statically,
    // so NKPCORE_CPU_FEATURES steers a whole test run onto either path.
    EXPECT_EQ(nkp_code_path, nkp::select_code_path(nkpGetEnabledCpuFeatures()));
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
        if (lib) {
            auto get = reinterpret_cast<const nkpLibraryVersion* (*)()>(dlsym(lib, "nkpacGetLibVersion"));
            if (get) std::memcpy(code, get()->targetCpu, 4);
        }
        if (write(fds[1], code, 4) != 4) _exit(1);
        _exit(0);
    }
    close(fds[1]);
    char code[5] = {};
    const ssize_t n = read(fds[0], code, 4);
    close(fds[0]);
    int status = 0;
    waitpid(pid, &status, 0);
    return n == 4 ? std::string(code) : "child failed";
}

TEST(CodePath, SharedLibrarySelectsAtLoad) {
    const std::string s3 = nkpt_nkpacGetLibVersion[0]()->targetCpu;
    const std::string lp = nkpt_nkpacGetLibVersion[1]()->targetCpu;
    for (const auto& c : kSelection) {
        EXPECT_EQ(path_code_when_loaded_with(c.mask), c.path ? lp : s3) << c.name;
    }
}
#else
// nkpac.dll sits next to the test program. Loading it after the test hook
// has set nkpcore's mask runs its entry point's selection with that mask;
// nkpcore.dll is the one this program already uses.
class LoadedDll {
public:
    LoadedDll() : module_(LoadLibraryA("nkpac.dll")) {}
    ~LoadedDll() {
        if (module_) FreeLibrary(module_);
    }
    LoadedDll(const LoadedDll&) = delete;
    LoadedDll& operator=(const LoadedDll&) = delete;

    bool loaded() const { return module_ != nullptr; }
    // The code the active version record names, as the export reports it.
    std::string path_code() const {
        auto get = reinterpret_cast<const nkpLibraryVersion* (*)()>(
            reinterpret_cast<void (*)()>(GetProcAddress(module_, "nkpacGetLibVersion")));
        return get ? std::string(get()->targetCpu) : "no export";
    }

private:
    HMODULE module_;
};

// Puts the process's own feature mask back whatever a test did.
struct MaskReset {
    ~MaskReset() { nkpcoreResetCpuFeatures(); }
};

TEST(CodePath, DllSelectsAtProcessAttach) {
    MaskReset reset;
    const std::string s3 = nkpt_nkpacGetLibVersion[0]()->targetCpu;
    const std::string lp = nkpt_nkpacGetLibVersion[1]()->targetCpu;
    ASSERT_EQ(GetModuleHandleA("nkpac.dll"), nullptr) << "the test program must not import nkpac.dll";
    for (const auto& c : kSelection) {
        nkpcoreSetCpuFeatures(c.mask);
        LoadedDll dll;
        ASSERT_TRUE(dll.loaded()) << c.name << ": LoadLibrary failed, error " << GetLastError();
        EXPECT_EQ(dll.path_code(), c.path ? lp : s3) << c.name;
    }
}

TEST(CodePath, DllChoosesOnlyOnce) {
    // Thread notifications and a second load of the same module leave the
    // path as the first attach chose it, even when the mask has changed since.
    MaskReset reset;
    const std::string lp = nkpt_nkpacGetLibVersion[1]()->targetCpu;
    nkpcoreSetCpuFeatures(NKP_CPU_SSSE3 | NKP_CPU_MOVBE);
    LoadedDll dll;
    ASSERT_TRUE(dll.loaded());
    nkpcoreSetCpuFeatures(0);
    std::string seen_in_thread;
    std::thread([&] { seen_in_thread = dll.path_code(); }).join();
    EXPECT_EQ(seen_in_thread, lp);
    LoadedDll again;
    ASSERT_TRUE(again.loaded());
    EXPECT_EQ(again.path_code(), lp);
    EXPECT_EQ(dll.path_code(), lp);
}
#endif

}  // namespace
