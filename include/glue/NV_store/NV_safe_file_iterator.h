#pragma once

#include <glue/NV_store/NV_file_iterator.h>

#include <sys/types.h>

namespace NV_store {

class NV_item;

/// Settings in a file whose saves are all or nothing, on any file system. An addition of ours.
///
///     NV_store::NV_safe_file_iterator file("/var/lib/unit/settings");
///     if (!file.save(settings, NV_store::NV_iterator::writing_all))
///         warn("settings not saved");                     // they are still marked as not saved: try again later
///
///     file.set_mode(NV_store::NV_iterator::reading);
///     NV_store::load_all(settings, file);
///     file.set_mode(NV_store::NV_iterator::closed);
///
/// **How.** The new content goes to a file of its own beside the old one, named after it with `suffix` behind. When all
/// of it is there it is flushed to the medium, then renamed over the old file, then the folder is flushed. So the name
/// leads to the old content or to the new, never to a part.
///
/// What is under the name afterwards:
///
/// | what happens in the middle of a save     | `NV_file_iterator`, F2FS  | `NV_file_iterator`, others | this one   |
/// |------------------------------------------|---------------------------|----------------------------|------------|
/// | a write, flush, rename... fails          | a part                    | a part                     | old        |
/// | the process is killed                    | old, or new if committed  | a part                     | old or new |
/// | the power is cut                         | old, or new if committed  | any part, none, old or new | old or new |
/// | the power is cut after it                | new                       | the same, until the system | new        |
/// |                                          |                           | has written it (seconds)   |            |
/// | dirty flags of nodes when the save fails | cleared for what went out | cleared for what went out  | as before  |
///
/// "Old" and "new" are whole. "A part" means the new settings with an end or a piece of them missing: loading finds
/// the damage. Containers that were complete before it are loaded; a record whose checksum is wrong returns its
/// container, and one that was appended and is torn may return the whole tree, to the defaults.
///
/// The column for F2FS is what that file system promises for its atomic writes (simulated in the tests). A commit that
/// fails there, and a push that does, go unnoticed by who does not look. The last column needs a file system that keeps
/// a rename as a whole, as those with a journal or a log do (ext4, F2FS, UBIFS, XFS, Btrfs); on FAT a killed process
/// leaves old or new, but a power cut in the moment of the rename may leave the new content under the other name only.
/// A medium that loses what it has reported as written keeps no promise.
///
/// **When is it saved?** When every step up to and including the flush of the folder has succeeded. If only that last
/// flush fails, the new content is under the name already, whole; but a power cut may bring the old back, so the save
/// counts as failed: every dirty flag is as it was, and the next save writes all of it again. Two failures are none:
/// that a file system cannot flush folders at all (EINVAL), for there is nothing more to do there; and that a file
/// cannot be closed any more once the medium has its content.
///
/// **Appending** is as safe: the old content is copied into the new file, and what is to be appended goes behind it.
/// That writes the whole file each time. A damaged end is copied as it is, see `load_all`.
///
/// **Leftovers.** A killed process leaves the unfinished file behind. Nobody reads it; the next save removes it.
/// Programs must not use names that end in `suffix` for other things.
///
/// **Two savers**, of one process or of several, do not disturb each other: who comes while a save is under way is
/// refused, and its flags stay set. The last one that finishes is the one whose content stays.
///
/// **The previous file.** The new one has its permissions, and its owner and group as far as the process may give files
/// away; access lists and other attributes are not kept. A symbolic link stays, and the file that it leads to is
/// replaced, in its own folder; a link to nowhere gets its file. Other hard links keep the old content. A file that the
/// process may not write is not replaced; nor is what is no regular file. The process needs to read, write and search
/// the folder; when it is read-only, every save fails. A new file gets the permissions 0666 less the process's mask. A
/// name has at most 255 characters less those of `suffix`.
///
/// **Messages.** Each failure to save says through the debug printer what failed and why.
///
/// **Ownership.** The path is copied. **Threads.** Not synchronised: an iterator for each thread; see `save` for the
/// lock of the tree.
class GLUE_EXPORT NV_safe_file_iterator : public NV_file_iterator {
  public:
    /// What the name of an unfinished file ends in.
    static constexpr const char* suffix = ".saving";

    /// Opens nothing yet.
    explicit NV_safe_file_iterator(const char* path);
    /// Drops a save that was not committed.
    ~NV_safe_file_iterator() override;

    /// Saves a tree, or the part of one from a node down, and closes.
    ///
    /// On failure every node has the dirty flags that it had, together with those of changes made meanwhile, and the
    /// old file is as it was (but see above for the flush of the folder). The nodes stay where they are until this
    /// returns.
    ///
    /// Holds the lock of the tree while it reads it, and while it gives flags back, not while it waits for the medium;
    /// when the calling thread holds the lock already it is left at that.
    /// \param mode  one of those for writing and appending
    /// \return whether it is saved, see above; false, too, for another mode
    bool save(NV_item& tree, modes_t mode);

    // The same in steps, for whoever writes other things than a tree: `set_mode`, pushes, `commit` or `drop`. Flags
    // that nodes lose on the way are then the caller's to care for.

    /// Closes what is open, a file being written by `commit`, then opens for the new purpose. Ask `get_mode`
    /// afterwards: it is `closed` when the commit failed or there is nothing to read or no way to write.
    void set_mode(modes_t mode) override;
    /// A push that fails makes all that follow fail, and the commit.
    bool push_bytes(unsigned char* bytes, int count) override;
    /// Makes what was pushed the content of the file, and closes. \return whether it is saved, see above; false, too,
    /// when no file is open for writing
    bool commit();
    /// Closes; what was pushed since the file was opened for writing is lost, and the old file as it was.
    void drop();

  private:
    /// What is known of the file that is to be replaced.
    struct Previous {
        bool exists = false;
        mode_t permissions = 0;
        uid_t owner = 0;
        gid_t group = 0;
    };

    bool begin(modes_t mode);
    bool locate();
    bool look_at_previous();
    bool make_unfinished();
    bool take(int fd);
    bool remove_leftover() const;
    bool is_unfinished_file(int fd) const;
    bool copy_previous() const;
    bool put_in_place();
    void release();
    bool failed(const char* what) const;

    std::string name_;       ///< of the file within its folder, links followed
    std::string unfinished_; ///< what it is called until it is complete
    int folder_ = -1;
    Previous previous_;
    bool push_failed_ = false;
    bool in_place_ = false; ///< the new file has the name already
};

} // namespace NV_store
