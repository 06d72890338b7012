#include <support/Replaced_ioctl.h>
#include <support/Replaced_save_calls.h>

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

Replaced_save_calls* replaced = nullptr;

template <typename Function>
Function* in_c_library(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// What the test answers; nothing when it has no answer.
template <typename Member, typename... Arguments>
Replaced_save_calls::Answer answer(Member member, Arguments... arguments) {
    if (!replaced || !(replaced->*member))
        return std::nullopt;
    return (replaced->*member)(arguments...);
}

std::optional<int> ioctl_of_file(int fd, unsigned long request, void*) {
    return answer(&Replaced_save_calls::ioctl, fd, request);
}

} // namespace

Replaced_save_calls::Replaced_save_calls() {
    EXPECT_EQ(replaced, nullptr);
    replaced = this;
    replace_ioctl(ioctl_of_file);
}

Replaced_save_calls::~Replaced_save_calls() {
    replace_ioctl(nullptr);
    replaced = nullptr;
}

// The program's own definitions win over those of the shared libraries.

extern "C" int close(int fd) {
    static const auto original = in_c_library<int(int)>("close");
    const auto instead = answer(&Replaced_save_calls::close, fd);
    return instead ? *instead : original(fd);
}

extern "C" int ftruncate(int fd, off_t length) noexcept {
    static const auto original = in_c_library<int(int, off_t)>("ftruncate");
    const auto instead = answer(&Replaced_save_calls::ftruncate, fd, length);
    return instead ? *instead : original(fd, length);
}

extern "C" off_t lseek(int fd, off_t offset, int whence) noexcept {
    static const auto original = in_c_library<off_t(int, off_t, int)>("lseek");
    const auto instead = answer(&Replaced_save_calls::lseek, fd);
    return instead ? *instead : original(fd, offset, whence);
}

extern "C" int flock(int fd, int operation) noexcept {
    static const auto original = in_c_library<int(int, int)>("flock");
    const auto instead = answer(&Replaced_save_calls::flock, fd);
    return instead ? *instead : original(fd, operation);
}

extern "C" int fchmod(int fd, mode_t mode) noexcept {
    static const auto original = in_c_library<int(int, mode_t)>("fchmod");
    const auto instead = answer(&Replaced_save_calls::fchmod, fd);
    return instead ? *instead : original(fd, mode);
}

extern "C" int fchown(int fd, uid_t owner, gid_t group) noexcept {
    static const auto original = in_c_library<int(int, uid_t, gid_t)>("fchown");
    const auto instead = answer(&Replaced_save_calls::fchown, fd);
    return instead ? *instead : original(fd, owner, group);
}

extern "C" int renameat(int from_folder, const char* from, int to_folder, const char* to) noexcept {
    static const auto original = in_c_library<int(int, const char*, int, const char*)>("renameat");
    const auto instead = answer(&Replaced_save_calls::renameat, from, to);
    return instead ? *instead : original(from_folder, from, to_folder, to);
}

extern "C" int fstatat(int folder, const char* name, struct stat* status, int flags) noexcept {
    static const auto original = in_c_library<int(int, const char*, struct stat*, int)>("fstatat");
    const auto instead = answer(&Replaced_save_calls::fstatat, name);
    return instead ? *instead : original(folder, name, status, flags);
}

extern "C" int faccessat(int folder, const char* name, int mode, int flags) noexcept {
    static const auto original = in_c_library<int(int, const char*, int, int)>("faccessat");
    const auto instead = answer(&Replaced_save_calls::faccessat, name);
    return instead ? *instead : original(folder, name, mode, flags);
}
