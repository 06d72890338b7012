#pragma once

#include <cstdlib>
#include <dlfcn.h>

/// The C library's own function that a function of the test program, declared alike, replaces.
///
///     extern "C" int fsync(int fd) {
///         static const auto original = in_c_library(fsync);
///
/// It is found by the linker's name: with 32 bits, functions of times and files have other names there than in
/// the source, for example `lseek64`.
template <typename Function>
Function* in_c_library(Function& replacement) {
    const auto address = reinterpret_cast<void*>(&replacement);
    Dl_info info;
    if (dladdr(address, &info) == 0 || info.dli_saddr != address)
        std::abort(); // the libraries do not use the replacement
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, info.dli_sname));
}
