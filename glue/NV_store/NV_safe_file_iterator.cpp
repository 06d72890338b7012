// The states of a save:
//
//     closed --begin--> writing --commit--> flush content --> rename --> flush folder --> closed, saved
//                          |                     |               |            |
//                          +--drop---------------+---------------+            +-- closed, in place but not saved
//                          v
//                       closed, unfinished file removed, old file as it was
//
// The iterator that writes the unfinished file holds a lock (flock) on it. An unfinished file without a lock is a
// leftover.

#include <glue/NV_store/NV_safe_file_iterator.h>

#include "NV_store/modes.h"
#include "NV_store/tree_mutex.h"
#include "detail/Lock_unless_held.h"
#include "detail/descriptors.h"

#include <glue/NV_store/NV_container.h>

#include <platform/Debug.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <set>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace NV_store {

namespace {

constexpr int longest_chain_of_links = 40;
constexpr int most_leftovers = 8; // other savers may create and remove some meanwhile
constexpr mode_t permission_bits = 07777;
constexpr int new_file_permissions = 0666;
constexpr int private_permissions = 0600; // until the file gets those of the old one

/// The dirty flags of a tree's nodes before a save.
class Kept_flags {
  public:
    void keep(NV_item& tree) {
        for (NV_item* node = &tree; node; node = node->get_next_in_tree(&tree))
            flags_.emplace_back(node, node->get_flags());
    }
    void restore() const {
        for (const auto& [node, flags] : flags_)
            node->give_back_dirty(flags);
    }

  private:
    std::vector<std::pair<NV_item*, unsigned char>> flags_;
};

/// Includes everything in the lists whose children share ids. A reader distinguishes those children by their order:
/// when a record is missing, it loads the next one into the wrong child. The iterator's own selector decides about all
/// other items.
class Whole_lists : public NV_default_selector {
  public:
    /// Is the iterator's selector until it is destroyed.
    Whole_lists(NV_item& tree, NV_iterator& it) : it_(it), own_(it.get_selector()) {
        std::set<std::pair<const NV_container*, unsigned short>> ids;
        for (NV_item* node = tree.get_next_in_tree(&tree); node; node = node->get_next_in_tree(&tree)) {
            const NV_container* const parent = node->get_parent();
            if (parent->get_type() == DTS::Defs::type_list && !ids.emplace(parent, node->get_id()).second)
                lists_.insert(parent);
        }
        it_.set_selector(this);
    }
    ~Whole_lists() override { it_.set_selector(own_); }
    Whole_lists(const Whole_lists&) = delete;
    Whole_lists& operator=(const Whole_lists&) = delete;

    bool include_in_serialise(const NV_item& item, const NV_iterator* it, bool& ok,
                              bool ignore_selector) const override {
        if (!is_in_whole_list(item))
            return own_ ? own_->include_in_serialise(item, it, ok, ignore_selector)
                        : NV_default_selector::include_in_serialise(item, it, ok, ignore_selector);
        ok = true;
        return true;
    }

  private:
    bool is_in_whole_list(const NV_item& item) const {
        for (const NV_container* parent = item.get_parent(); parent; parent = parent->get_parent())
            if (lists_.count(parent) > 0)
                return true;
        return false;
    }

    NV_iterator& it_;
    const NV_iterator::NV_selector* const own_;
    std::set<const NV_container*> lists_;
};

/// The path up to and including its last "/"; "" when there is none.
std::string folder_part(const std::string& path) {
    return path.substr(0, path.rfind('/') + 1);
}

/// Replaces a path that is a symbolic link by its target, which need not exist.
/// \return false when too many links follow each other
bool follow_links(std::string& path) {
    for (int followed = 0; followed < longest_chain_of_links; ++followed) {
        char target[4096];
        const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
        if (length < 0)
            return true; // no link, or no file: opening it shows which
        const std::string next(target, static_cast<std::size_t>(length));
        path = next[0] == '/' ? next : folder_part(path).append(next);
    }
    errno = ELOOP;
    return false;
}

/// Waits until the medium has the content.
bool flush(int fd) {
    int result = 0;
    do
        result = ::fsync(fd);
    while (result != 0 && errno == EINTR);
    return result == 0;
}

/// Some file systems cannot flush a folder; that is not a failure.
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
        const Whole_lists selector(tree, *this);
        written = tree.serialise(this);
    }
    if (written && commit())
        return true;
    drop();
    const glue_detail::Lock_unless_held guard(tree_mutex(tree));
    flags.restore();
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
    if (!locate() || !read_previous() || !create_unfinished())
        return false;
    // Again, now that other savers are locked out: one of them may have created the file meanwhile.
    if (!read_previous() || (is_for_appending(mode) && !copy_previous()))
        return false;
    if (!is_for_appending(mode))
        byte_count_ = 0;
    return true;
}

/// Opens the folder of the file, and determines its name there.
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

bool NV_safe_file_iterator::read_previous() {
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

bool NV_safe_file_iterator::create_unfinished() {
    const int permissions = previous_.exists ? private_permissions : new_file_permissions;
    for (int attempt = 0; attempt <= most_leftovers; ++attempt) {
        const int fd = glue_detail::open_above_standard(folder_, unfinished_.c_str(),
                                                        O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, permissions);
        if (fd >= 0 && adopt(fd))
            return true;
        if (fd < 0 && errno != EEXIST)
            return failed("cannot make a new file");
        if (!remove_leftover())
            return false;
    }
    errno = EBUSY;
    return failed("another save is in progress");
}

/// Locks and keeps a new file, unless another saver has removed it as a leftover meanwhile.
bool NV_safe_file_iterator::adopt(int fd) {
    if (lock_without_waiting(fd) && is_unfinished_file(fd)) {
        file_ = {fd, false};
        return true;
    }
    ::close(fd);
    return false;
}

/// Removes the unfinished file of a killed process, if there is one. \return false when it must not be removed
bool NV_safe_file_iterator::remove_leftover() const {
    const int fd = glue_detail::open_above_standard(folder_, unfinished_.c_str(),
                                                    O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0);
    if (fd < 0)
        return errno == ENOENT || failed("cannot look at a leftover");
    bool done = true;
    if (!lock_without_waiting(fd))
        done = failed(errno == EWOULDBLOCK ? "another save is in progress" : "cannot lock a leftover");
    else if (is_unfinished_file(fd) && ::unlinkat(folder_, unfinished_.c_str(), 0) != 0)
        done = failed("cannot remove a leftover");
    ::close(fd);
    return done;
}

/// Whether the unfinished file's name still leads to the descriptor's file.
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
        errno = EIO; // the reason was reported when it happened
        return failed("not everything was written");
    }
    if (previous_.exists) {
        // Not every process may set them.
        [[maybe_unused]] const int ignored = ::fchown(file_.first, previous_.owner, previous_.group);
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

/// Closes, and removes the unfinished file if there still is one. A close that fails loses nothing that was flushed.
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
