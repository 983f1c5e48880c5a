#include "ComputeBackends.h"

#include <ggml-backend.h>

#include <dlfcn.h>

#include <mutex>
#include <string>

#if defined(__x86_64__)
#include <cpuid.h>
#endif

namespace kestil {

bool loadComputeBackends()
{
    static std::once_flag once;
    std::call_once(once, [] {
        if (ggml_backend_reg_count() > 0)
            return;
        // The modules lie beside the ggml library that this process runs
        // with: the dependency prefix in a build, the program's private
        // library folder once installed. ggml's own default would look in the
        // executable's folder and the working folder, neither of which holds
        // them.
        Dl_info info{};
        if (dladdr(reinterpret_cast<void *>(&ggml_backend_load_all_from_path), &info) != 0 &&
            info.dli_fname) {
            std::string folder(info.dli_fname);
            const auto slash = folder.rfind('/');
            if (slash != std::string::npos) {
                folder.resize(slash);
                ggml_backend_load_all_from_path(folder.c_str());
            }
        }
        if (ggml_backend_reg_count() == 0)
            ggml_backend_load_all();
    });
    return ggml_backend_reg_count() > 0;
}

bool processorRunsComputeBackends()
{
#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
    __builtin_cpu_init();
    // F16C is bit 29 of ECX in leaf 1; not every compiler names it in
    // __builtin_cpu_supports.
    unsigned eax = 0, ebx = 0, ecx = 0, edx = 0;
    const bool f16c = __get_cpuid(1, &eax, &ebx, &ecx, &edx) && (ecx & (1u << 29)) != 0;
    return __builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") && f16c;
#else
    return true;
#endif
}

} // namespace kestil
