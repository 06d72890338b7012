#include <support/faults/Replaced_process_calls.h>

#include <support/faults/in_c_library.h>

#include <gtest/gtest.h>
#include <mutex>

namespace {

std::mutex replaced_mutex; // detached threads of the library may make such calls at any time
Replaced_process_calls* replaced = nullptr;

/// A copy of the replacement of a call, which can be called without the mutex; empty when there is none.
template <typename Replacement>
Replacement replacement_of(Replacement Replaced_process_calls::*call) {
    const std::lock_guard guard(replaced_mutex);
    return replaced ? replaced->*call : Replacement();
}

} // namespace

Replaced_process_calls::Replaced_process_calls() {
    const std::lock_guard guard(replaced_mutex);
    EXPECT_EQ(replaced, nullptr);
    replaced = this;
}

Replaced_process_calls::~Replaced_process_calls() {
    const std::lock_guard guard(replaced_mutex);
    replaced = nullptr;
}

pid_t original_waitpid(pid_t pid, int* status, int options) {
    static const auto original = in_c_library(waitpid);
    return original(pid, status, options);
}

// The dynamic linker prefers these definitions of the program to those of the shared libraries.

extern "C" pid_t fork() noexcept {
    static const auto original = in_c_library(fork);
    const auto replacement = replacement_of(&Replaced_process_calls::fork);
    return replacement ? replacement() : original();
}

extern "C" pid_t waitpid(pid_t pid, int* status, int options) {
    const auto replacement = replacement_of(&Replaced_process_calls::waitpid);
    return replacement ? replacement(pid, options) : original_waitpid(pid, status, options);
}

extern "C" int kill(pid_t pid, int signal) noexcept {
    static const auto original = in_c_library(kill);
    const auto replacement = replacement_of(&Replaced_process_calls::kill);
    return replacement ? replacement(pid, signal) : original(pid, signal);
}

extern "C" int wordexp(const char* text, wordexp_t* words, int flags) {
    static const auto original = in_c_library(wordexp);
    const auto replacement = replacement_of(&Replaced_process_calls::wordexp);
    return replacement ? replacement(text) : original(text, words, flags);
}

extern "C" void wordfree(wordexp_t* words) noexcept {
    static const auto original = in_c_library(wordfree);
    const auto replacement = replacement_of(&Replaced_process_calls::wordfree);
    if (replacement)
        replacement();
    else
        original(words);
}
