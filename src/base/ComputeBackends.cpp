#include "ComputeBackends.h"

#include <ggml-backend.h>

#include <dlfcn.h>

#include <mutex>
#include <string>

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

} // namespace kestil
