#pragma once

#include <cstdlib>
#include <dlfcn.h>

/// The C library's own function behind one that the test program has in its place, as which it is declared.
///
///     extern "C" int fsync(int fd) {
///         static const auto original = in_c_library(fsync);
///
/// It is found by the name that the linker knows: with 32 bits, functions of times and files have others there than in
/// the source, `lseek64` for one.
template <typename Function>
Function* in_c_library(Function& replacement) {
    const auto address = reinterpret_cast<void*>(&replacement);
    Dl_info info;
    if (dladdr(address, &info) == 0 || info.dli_saddr != address)
        std::abort(); // the libraries do not get to see the replacement
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, info.dli_sname));
}
