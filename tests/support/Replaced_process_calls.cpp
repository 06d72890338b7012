#include <support/Replaced_process_calls.h>

#include <dlfcn.h>
#include <gtest/gtest.h>

namespace {

Replaced_process_calls* replaced = nullptr;

template <typename Function>
Function* in_c_library(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

Replaced_process_calls::Replaced_process_calls() {
    EXPECT_EQ(replaced, nullptr);
    replaced = this;
}

Replaced_process_calls::~Replaced_process_calls() {
    replaced = nullptr;
}

pid_t original_waitpid(pid_t pid, int* status, int options) {
    static const auto original = in_c_library<pid_t(pid_t, int*, int)>("waitpid");
    return original(pid, status, options);
}

// The program's own definitions win over those of the shared libraries.

extern "C" pid_t fork() noexcept {
    static const auto original = in_c_library<pid_t()>("fork");
    return replaced && replaced->fork ? replaced->fork() : original();
}

extern "C" pid_t waitpid(pid_t pid, int* status, int options) {
    return replaced && replaced->waitpid ? replaced->waitpid(pid, options) : original_waitpid(pid, status, options);
}

extern "C" int kill(pid_t pid, int signal) noexcept {
    static const auto original = in_c_library<int(pid_t, int)>("kill");
    return replaced && replaced->kill ? replaced->kill(pid, signal) : original(pid, signal);
}

extern "C" int wordexp(const char* text, wordexp_t* words, int flags) {
    static const auto original = in_c_library<int(const char*, wordexp_t*, int)>("wordexp");
    return replaced && replaced->wordexp ? replaced->wordexp(text) : original(text, words, flags);
}

extern "C" void wordfree(wordexp_t* words) noexcept {
    static const auto original = in_c_library<void(wordexp_t*)>("wordfree");
    if (replaced && replaced->wordfree)
        replaced->wordfree();
    else
        original(words);
}
