#include "File_store.h"

#include <platform/Debug.h>
#include <platform/stzncpy.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <limits>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace platform_detail {

namespace {

void report(const char* what, const std::string& name) {
    Debug::Print::dprint("File store: %s \"%s\": %s\n", what, name.c_str(), std::strerror(errno));
}

bool is_valid(std::string_view name) {
    return !name.empty() && name.size() <= pcf_longest_name && name[0] != '.' &&
           name.find('/') == std::string_view::npos;
}

/// Opens a file of a directory, never with the number of a standard stream: in a process that runs without those,
/// printed text would otherwise be written to the store.
int open_in(int directory, const char* name, int flags) {
    constexpr mode_t readable_for_all = 0644;
    const int fd = openat(directory, name, flags | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY, readable_for_all);
    if (fd < 0 || fd > STDERR_FILENO)
        return fd;
    const int copy = fcntl(fd, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    ::close(fd);
    return copy;
}

/// Writes all bytes unless the disk is full or reports an error. \return how many were written
std::size_t write_all(int fd, const char* data, std::size_t size) {
    std::size_t written = 0;
    while (written < size) {
        const ssize_t result = ::write(fd, data + written, size - written);
        if (result < 0 && errno == EINTR)
            continue;
        if (result <= 0)
            break;
        written += static_cast<std::size_t>(result);
    }
    return written;
}

} // namespace

void File_store::Open_file::close() {
    if (in_use())
        ::close(fd);
    fd = -1;
}

// ---- Mounting ----

bool File_store::mount(const char* directory, std::uint32_t total) {
    const std::lock_guard guard(mutex_);
    if (directory_ >= 0)
        return false;
    directory_ = open_in(AT_FDCWD, directory, O_RDONLY | O_DIRECTORY);
    if (directory_ < 0 || flock(directory_, LOCK_EX | LOCK_NB) != 0 || !read_directory()) {
        report("cannot mount", directory);
        if (directory_ >= 0)
            ::close(directory_);
        directory_ = -1;
        return false;
    }
    path_ = directory;
    total_ = total;
    return true;
}

/// Reads the names and sizes of the files.
bool File_store::read_directory() {
    files_.clear();
    used_ = 0;
    const int fd = open_in(directory_, ".", O_RDONLY | O_DIRECTORY);
    DIR* const listing = fd < 0 ? nullptr : fdopendir(fd);
    if (!listing)
        return false;
    errno = 0;
    while (const dirent* const entry = readdir(listing))
        add_if_valid(entry->d_name);
    const bool complete = errno == 0;
    closedir(listing);
    return complete;
}

void File_store::add_if_valid(const char* name) {
    struct stat status {};
    if (is_valid(name) && fstatat(directory_, name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(status.st_mode)) {
        const auto size = static_cast<std::uint64_t>(status.st_size);
        files_.emplace(name, size);
        used_ += size;
    }
    errno = 0; // an entry that cannot be examined is no file of the store
}

void File_store::unmount() {
    const std::lock_guard guard(mutex_);
    if (directory_ < 0)
        return;
    reading_.close();
    if (writing_.in_use())
        finish_writing();
    ::close(directory_);
    directory_ = -1;
    files_.clear();
}

bool File_store::is_mounted() {
    const std::lock_guard guard(mutex_);
    return directory_ >= 0;
}

// ---- The store as a whole ----

bool File_store::info(PcfInfo& info) {
    const std::lock_guard guard(mutex_);
    if (directory_ < 0)
        return false;
    info.total = total_;
    info.free = free_space();
    return true;
}

std::uint32_t File_store::free_space() const {
    return used_ >= total_ ? 0 : static_cast<std::uint32_t>(total_ - used_);
}

const char* File_store::path() {
    const std::lock_guard guard(mutex_);
    return path_.c_str();
}

int File_store::count() {
    const std::lock_guard guard(mutex_);
    return static_cast<int>(files_.size());
}

bool File_store::name_at(int index, char* name) {
    const std::lock_guard guard(mutex_);
    if (index < 0 || static_cast<std::size_t>(index) >= files_.size())
        return false;
    stzncpy(name, std::next(files_.begin(), index)->first.c_str(), pcf_longest_name + 1);
    return true;
}

bool File_store::exists(std::string_view name) {
    const std::lock_guard guard(mutex_);
    return files_.find(name) != files_.end();
}

bool File_store::remove(std::string_view name) {
    const std::lock_guard guard(mutex_);
    const auto file = files_.find(name);
    if (file == files_.end() || is_open(file))
        return false;
    if (unlinkat(directory_, file->first.c_str(), 0) != 0 && errno != ENOENT) {
        report("cannot remove", file->first);
        return false;
    }
    const bool is_permanent = fsync(directory_) == 0;
    if (!is_permanent)
        report("may have failed to remove", file->first);
    used_ -= file->second;
    files_.erase(file);
    return is_permanent;
}

bool File_store::is_open(Files::iterator file) const {
    return (reading_.in_use() && reading_.file == file) || (writing_.in_use() && writing_.file == file);
}

// ---- Reading ----

PcfResult File_store::open_read(std::string_view name, unsigned long offset) {
    const std::lock_guard guard(mutex_);
    const auto file = files_.find(name);
    if (file == files_.end())
        return pcf_missing;
    if (reading_.in_use())
        return pcf_busy;
    if (offset > static_cast<unsigned long>(std::numeric_limits<off_t>::max()) || !open_into(reading_, file, O_RDONLY))
        return pcf_failed;
    if (lseek(reading_.fd, static_cast<off_t>(offset), SEEK_SET) < 0) {
        report("cannot read", file->first);
        reading_.close();
        return pcf_failed;
    }
    return pcf_ok;
}

bool File_store::open_into(Open_file& slot, Files::iterator file, int flags) {
    slot.fd = open_in(directory_, file->first.c_str(), flags);
    slot.file = file;
    slot.is_new = (flags & O_CREAT) != 0;
    if (!slot.in_use())
        report("cannot open", file->first);
    return slot.in_use();
}

int File_store::read(void* buffer, int size, PcfResult& result) {
    const std::lock_guard guard(mutex_);
    result = reading_.in_use() ? pcf_ok : pcf_wrong_state;
    if (!reading_.in_use() || size <= 0)
        return 0;
    ssize_t count = 0;
    do
        count = ::read(reading_.fd, buffer, static_cast<std::size_t>(size));
    while (count < 0 && errno == EINTR);
    if (count < 0) {
        report("cannot read", reading_.file->first);
        result = pcf_failed;
        return 0;
    }
    return static_cast<int>(count);
}

PcfResult File_store::close_read() {
    const std::lock_guard guard(mutex_);
    if (!reading_.in_use())
        return pcf_wrong_state;
    reading_.close();
    return pcf_ok;
}

// ---- Writing ----

bool File_store::open_write(std::string_view name) {
    const std::lock_guard guard(mutex_);
    const auto file = files_.find(name);
    return file != files_.end() && !writing_.in_use() && open_into(writing_, file, O_WRONLY | O_APPEND);
}

bool File_store::create_write(const char* name) {
    const std::lock_guard guard(mutex_);
    if (directory_ < 0 || writing_.in_use() || !is_valid(name))
        return false;
    const auto [file, is_new] = files_.emplace(name, 0);
    if (!is_new)
        return false;
    if (open_into(writing_, file, O_WRONLY | O_APPEND | O_CREAT | O_EXCL))
        return true;
    files_.erase(file);
    return false;
}

int File_store::write(const void* data, int size) {
    const std::lock_guard guard(mutex_);
    if (!writing_.in_use() || size <= 0)
        return 0;
    const std::size_t fits = std::min<std::size_t>(static_cast<std::size_t>(size), free_space());
    const std::size_t written = write_all(writing_.fd, static_cast<const char*>(data), fits);
    if (written < fits)
        report("cannot write", writing_.file->first);
    writing_.file->second += written;
    used_ += written;
    return static_cast<int>(written);
}

bool File_store::close_write() {
    const std::lock_guard guard(mutex_);
    return writing_.in_use() && finish_writing();
}

/// Synchronises the content first, then the name of a new file.
bool File_store::finish_writing() {
    const bool is_kept = fsync(writing_.fd) == 0 && (!writing_.is_new || fsync(directory_) == 0);
    if (!is_kept)
        report("may have failed to keep", writing_.file->first);
    writing_.close();
    return is_kept;
}

} // namespace platform_detail
