// The way of a save:
//
//     closed --begin--> writing --commit--> flush content --> rename --> flush folder --> closed, saved
//                          |                     |               |            |
//                          +--drop---------------+---------------+            +-- closed, in place but not saved
//                          v
//                       closed, unfinished file removed, old file as it was
//
// The unfinished file is locked (flock) by whoever writes it. One that nobody holds the lock of is a leftover.

#include <glue/NV_store/NV_safe_file_iterator.h>

#include "NV_store/modes.h"
#include "NV_store/tree_mutex.h"
#include "detail/Lock_unless_held.h"
#include "detail/descriptors.h"

#include <glue/NV_store/NV_item.h>

#include <platform/Debug.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace NV_store {

namespace {

constexpr int longest_chain_of_links = 40;
constexpr int most_leftovers = 8; // others may come and go while this one looks
constexpr mode_t permission_bits = 07777;
constexpr int new_file_permissions = 0666;
constexpr int private_permissions = 0600; // until the file gets those of the one it replaces

/// The dirty flags of a tree's nodes, as they were.
class Kept_flags {
  public:
    void keep(NV_item& tree) {
        for (NV_item* node = &tree; node; node = node->get_next_in_tree(&tree))
            flags_.emplace_back(node, node->get_flags());
    }
    void give_back() const {
        for (const auto& [node, flags] : flags_)
            node->give_back_dirty(flags);
    }

  private:
    std::vector<std::pair<NV_item*, unsigned char>> flags_;
};

/// The path up to and including its last "/"; "" when there is none.
std::string folder_part(const std::string& path) {
    return path.substr(0, path.rfind('/') + 1);
}

/// Replaces a path that is a symbolic link by where that leads to; what it leads to need not exist.
/// \return false with too many links one after the other
bool follow_links(std::string& path) {
    for (int followed = 0; followed < longest_chain_of_links; ++followed) {
        char target[4096];
        const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
        if (length < 0)
            return true; // no link, or nothing at all: opening will tell
        const std::string next(target, static_cast<std::size_t>(length));
        path = next[0] == '/' ? next : folder_part(path).append(next);
    }
    errno = ELOOP;
    return false;
}

/// Waits until the medium has it.
bool flush(int fd) {
    int result = 0;
    do
        result = ::fsync(fd);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

/// Not every file system can flush a folder; nothing is wrong then.
bool flush_folder(int fd) {
    return flush(fd) || errno == EINVAL;
}

bool lock_without_waiting(int fd) {
    int result = 0;
    do
        result = ::flock(fd, LOCK_EX | LOCK_NB);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

} // namespace

NV_safe_file_iterator::NV_safe_file_iterator(const char* path) : NV_file_iterator(path) {}

NV_safe_file_iterator::~NV_safe_file_iterator() {
    drop();
}

bool NV_safe_file_iterator::failed(const char* what) const {
    Debug::Print::dprint("Settings not saved in %s: %s: %s\n", path().c_str(), what, std::strerror(errno));
    return false;
}

// ---- A whole save ----

bool NV_safe_file_iterator::save(NV_item& tree, modes_t mode) {
    if (!is_for_writing(mode))
        return false;
    set_mode(mode);
    if (get_mode() != mode)
        return false;
    Kept_flags flags;
    bool written = false;
    {
        const glue_detail::Lock_unless_held guard(tree_mutex(tree));
        flags.keep(tree);
        written = tree.serialise(this);
    }
    if (written && commit())
        return true;
    drop();
    const glue_detail::Lock_unless_held guard(tree_mutex(tree));
    flags.give_back();
    return false;
}

// ---- Its steps ----

void NV_safe_file_iterator::set_mode(modes_t mode) {
    if (is_for_writing(mode_)) {
        if (!commit())
            return;
    } else {
        NV_file_iterator::set_mode(closed);
    }
    if (!is_for_writing(mode))
        NV_file_iterator::set_mode(mode);
    else if (begin(mode))
        mode_ = mode;
    else
        release();
}

bool NV_safe_file_iterator::push_bytes(unsigned char* bytes, int count) {
    if (!is_for_writing(mode_) || push_failed_)
        return false;
    if (!NV_file_iterator::push_bytes(bytes, count))
        push_failed_ = true;
    return !push_failed_;
}

bool NV_safe_file_iterator::commit() {
    if (!is_for_writing(mode_))
        return false;
    const bool saved = put_in_place();
    release();
    return saved;
}

void NV_safe_file_iterator::drop() {
    if (is_for_writing(mode_))
        release();
    else
        NV_file_iterator::set_mode(closed);
}

bool NV_safe_file_iterator::begin(modes_t mode) {
    push_failed_ = false;
    in_place_ = false;
    if (!locate() || !look_at_previous() || !make_unfinished())
        return false;
    // Now that others are kept out, the truth: one of them may have made the file in the meantime.
    if (!look_at_previous() || (is_for_appending(mode) && !copy_previous()))
        return false;
    if (!is_for_appending(mode))
        byte_count_ = 0;
    return true;
}

/// Opens the folder that the file is in, and finds its name there.
bool NV_safe_file_iterator::locate() {
    std::string whole = path();
    if (!follow_links(whole))
        return failed("too many links");
    const std::string folder = folder_part(whole);
    name_ = whole.substr(folder.size());
    unfinished_ = name_ + suffix;
    folder_ =
        glue_detail::open_above_standard(AT_FDCWD, folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY, 0);
    return folder_ >= 0 || failed("cannot open the folder");
}

bool NV_safe_file_iterator::look_at_previous() {
    previous_ = {};
    struct stat status {};
    if (::fstatat(folder_, name_.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT || failed("cannot look at the old file");
    if (!S_ISREG(status.st_mode)) {
        errno = EINVAL;
        return failed("not a regular file");
    }
    if (::faccessat(folder_, name_.c_str(), W_OK, AT_EACCESS) != 0)
        return failed("the old file may not be written");
    previous_ = {true, status.st_mode & permission_bits, status.st_uid, status.st_gid};
    return true;
}

bool NV_safe_file_iterator::make_unfinished() {
    const int permissions = previous_.exists ? private_permissions : new_file_permissions;
    for (int attempt = 0; attempt <= most_leftovers; ++attempt) {
        const int fd = glue_detail::open_above_standard(folder_, unfinished_.c_str(),
                                                        O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, permissions);
        if (fd >= 0 && take(fd))
            return true;
        if (fd < 0 && errno != EEXIST)
            return failed("cannot make a new file");
        if (!remove_leftover())
            return false;
    }
    errno = EBUSY;
    return failed("another save is under way");
}

/// Makes a new file ours, unless somebody has taken it for a leftover meanwhile.
bool NV_safe_file_iterator::take(int fd) {
    if (lock_without_waiting(fd) && is_unfinished_file(fd)) {
        file_ = {fd, false};
        return true;
    }
    ::close(fd);
    return false;
}

/// Removes what a killed process has left, if there is something. \return false when it is not to be removed
bool NV_safe_file_iterator::remove_leftover() const {
    const int fd = glue_detail::open_above_standard(folder_, unfinished_.c_str(),
                                                    O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0);
    if (fd < 0)
        return errno == ENOENT || failed("cannot look at a leftover");
    bool done = true;
    if (!lock_without_waiting(fd))
        done = failed(errno == EWOULDBLOCK ? "another save is under way" : "cannot lock a leftover");
    else if (is_unfinished_file(fd) && ::unlinkat(folder_, unfinished_.c_str(), 0) != 0)
        done = failed("cannot remove a leftover");
    ::close(fd);
    return done;
}

/// Whether the descriptor is of what is under the unfinished file's name now.
bool NV_safe_file_iterator::is_unfinished_file(int fd) const {
    struct stat open_file {};
    struct stat named_file {};
    return ::fstat(fd, &open_file) == 0 &&
           ::fstatat(folder_, unfinished_.c_str(), &named_file, AT_SYMLINK_NOFOLLOW) == 0 &&
           open_file.st_dev == named_file.st_dev && open_file.st_ino == named_file.st_ino;
}

bool NV_safe_file_iterator::copy_previous() const {
    if (!previous_.exists)
        return true;
    const int from = glue_detail::open_above_standard(folder_, name_.c_str(), O_RDONLY | O_NOFOLLOW, 0);
    if (from < 0)
        return failed("cannot open the old file");
    unsigned char block[4096];
    int count = 0;
    bool copied = true;
    while (copied && (count = blocking_read(from, block, sizeof block)) > 0)
        copied = blocking_write(file_.first, block, count) == count;
    ::close(from);
    return (copied && count == 0) || failed("cannot copy the old file");
}

bool NV_safe_file_iterator::put_in_place() {
    if (push_failed_) {
        errno = EIO; // the reason was told when it happened
        return failed("not everything was written");
    }
    if (previous_.exists) {
        // Not every process may give files away.
        [[maybe_unused]] const int given = ::fchown(file_.first, previous_.owner, previous_.group);
        if (::fchmod(file_.first, previous_.permissions) != 0)
            return failed("cannot set the permissions");
    }
    if (!flush(file_.first))
        return failed("cannot flush the new file");
    if (::renameat(folder_, unfinished_.c_str(), folder_, name_.c_str()) != 0)
        return failed("cannot rename the new file");
    in_place_ = true;
    return flush_folder(folder_) || failed("cannot flush the folder");
}

/// Closes, and removes the unfinished file, if there still is one. What the medium has is not lost by a failing close.
void NV_safe_file_iterator::release() {
    if (file_.first >= 0 && !in_place_)
        ::unlinkat(folder_, unfinished_.c_str(), 0);
    glue_detail::close_if_open(file_.first);
    glue_detail::close_if_open(folder_);
    file_ = no_file;
    folder_ = -1;
    mode_ = closed;
}

} // namespace NV_store
