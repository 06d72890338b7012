#include <support/faults/Replaced_file_calls.h>

#include <support/faults/Replaced_ioctl.h>
#include <support/faults/in_c_library.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

std::atomic<Replaced_file_calls*> replaced{nullptr}; // other threads may read it

/// The test's answer; no value when it has none.
template <typename Member, typename... Arguments>
Replaced_file_calls::Answer answer(Member member, Arguments... arguments) {
    Replaced_file_calls* const present = replaced;
    if (!present || !(present->*member))
        return std::nullopt;
    return (present->*member)(arguments...);
}

} // namespace

Replaced_file_calls::Replaced_file_calls() {
    EXPECT_EQ(replaced.load(), nullptr);
    replaced = this;
}

Replaced_file_calls::~Replaced_file_calls() {
    replaced = nullptr;
}

std::string name_of(int fd) {
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd)).filename().string();
}

// The dynamic linker prefers these definitions of the program to those of the shared libraries.

extern "C" int openat(int folder, const char* name, int flags, ...) {
    static const auto original = in_c_library(openat);
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    const auto instead = answer(&Replaced_file_calls::openat, name, flags);
    return instead ? *instead : original(folder, name, flags, mode);
}

extern "C" int unlinkat(int folder, const char* name, int flags) noexcept {
    static const auto original = in_c_library(unlinkat);
    const auto instead = answer(&Replaced_file_calls::unlinkat, name);
    return instead ? *instead : original(folder, name, flags);
}

extern "C" int fsync(int fd) {
    static const auto original = in_c_library(fsync);
    const auto instead = answer(&Replaced_file_calls::fsync, fd);
    return instead ? *instead : original(fd);
}

extern "C" int fstat(int fd, struct stat* status) noexcept {
    static const auto original = in_c_library(fstat);
    const auto instead = answer(&Replaced_file_calls::fstat, fd);
    return instead ? *instead : original(fd, status);
}

extern "C" int close(int fd) {
    static const auto original = in_c_library(close);
    const auto instead = answer(&Replaced_file_calls::close, fd);
    return instead ? *instead : original(fd);
}

namespace {

const Replaced_ioctl answered_by_a_test([](int fd, unsigned long request, void*, int& result) {
    const auto instead = answer(&Replaced_file_calls::ioctl, fd, request);
    if (instead)
        result = *instead;
    return instead.has_value();
});

} // namespace

extern "C" int ftruncate(int fd, off_t length) noexcept {
    static const auto original = in_c_library(ftruncate);
    const auto instead = answer(&Replaced_file_calls::ftruncate, fd, length);
    return instead ? *instead : original(fd, length);
}

extern "C" off_t lseek(int fd, off_t offset, int whence) noexcept {
    static const auto original = in_c_library(lseek);
    const auto instead = answer(&Replaced_file_calls::lseek, fd);
    return instead ? *instead : original(fd, offset, whence);
}

extern "C" int flock(int fd, int operation) noexcept {
    static const auto original = in_c_library(flock);
    const auto instead = answer(&Replaced_file_calls::flock, fd);
    return instead ? *instead : original(fd, operation);
}

extern "C" int fchmod(int fd, mode_t mode) noexcept {
    static const auto original = in_c_library(fchmod);
    const auto instead = answer(&Replaced_file_calls::fchmod, fd);
    return instead ? *instead : original(fd, mode);
}

extern "C" int fchown(int fd, uid_t owner, gid_t group) noexcept {
    static const auto original = in_c_library(fchown);
    const auto instead = answer(&Replaced_file_calls::fchown, fd);
    return instead ? *instead : original(fd, owner, group);
}

extern "C" int renameat(int from_folder, const char* from, int to_folder, const char* to) noexcept {
    static const auto original = in_c_library(renameat);
    const auto instead = answer(&Replaced_file_calls::renameat, from, to);
    return instead ? *instead : original(from_folder, from, to_folder, to);
}

extern "C" int fstatat(int folder, const char* name, struct stat* status, int flags) noexcept {
    static const auto original = in_c_library(fstatat);
    const auto instead = answer(&Replaced_file_calls::fstatat, name);
    return instead ? *instead : original(folder, name, status, flags);
}

extern "C" int faccessat(int folder, const char* name, int mode, int flags) noexcept {
    static const auto original = in_c_library(faccessat);
    const auto instead = answer(&Replaced_file_calls::faccessat, name);
    return instead ? *instead : original(folder, name, mode, flags);
}

extern "C" int fseek(std::FILE* file, long offset, int whence) {
    static const auto original = in_c_library(fseek);
    const auto instead = answer(&Replaced_file_calls::fseek, whence);
    return instead ? *instead : original(file, offset, whence);
}

extern "C" long ftell(std::FILE* file) {
    static const auto original = in_c_library(ftell);
    const auto instead = answer(&Replaced_file_calls::ftell);
    return instead ? *instead : original(file);
}

extern "C" int fsetpos(std::FILE* file, const std::fpos_t* position) {
    static const auto original = in_c_library(fsetpos);
    const auto instead = answer(&Replaced_file_calls::fsetpos);
    return instead ? *instead : original(file, position);
}

extern "C" std::size_t fread(void* destination, std::size_t size, std::size_t count, std::FILE* file) {
    static const auto original = in_c_library(fread);
    const auto instead = answer(&Replaced_file_calls::fread, size, count);
    return instead ? static_cast<std::size_t>(*instead) : original(destination, size, count, file);
}

/// Weak: a test that needs the file, too, defines its own.
extern "C" [[gnu::weak]] std::size_t fwrite(const void* source, std::size_t size, std::size_t count, std::FILE* file) {
    static const auto original = in_c_library(fwrite);
    const auto instead = answer(&Replaced_file_calls::fwrite, size, count);
    return instead ? static_cast<std::size_t>(*instead) : original(source, size, count, file);
}

extern "C" int ferror(std::FILE* file) noexcept {
    static const auto original = in_c_library(ferror);
    const auto instead = answer(&Replaced_file_calls::ferror);
    return instead ? *instead : original(file);
}
