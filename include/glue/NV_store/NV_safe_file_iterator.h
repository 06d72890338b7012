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
/// **How.** The new content is written to a second file in the same folder, whose name is the old one with `suffix`
/// appended. When it is complete, it is flushed to the medium, then renamed over the old file, then the folder is
/// flushed. So the name leads to the old content or to the new, never to a part.
///
/// The content under the name afterwards:
///
/// | event in the middle of a save            | `NV_file_iterator`, F2FS  | `NV_file_iterator`, others | this one   |
/// |------------------------------------------|---------------------------|----------------------------|------------|
/// | a write, flush, rename... fails          | a part                    | a part                     | old        |
/// | the process is killed                    | old, or new if committed  | a part                     | old or new |
/// | the power is cut                         | old, or new if committed  | any part, none, old or new | old or new |
/// | the power is cut after it                | new                       | the same, until the system | new        |
/// |                                          |                           | has written it (seconds)   |            |
/// | dirty flags of nodes when the save fails | cleared if written        | cleared if written         | as before  |
///
/// "Old" and "new" are complete. "A part" means the new settings without their end or without a piece: loading finds
/// the damage. Containers that were complete before it are loaded. A record whose checksum is wrong sets its container
/// to the defaults; an appended record that is incomplete may set the whole tree to the defaults.
///
/// The column for F2FS is what that file system promises for its atomic writes (simulated in the tests). A caller that
/// does not check does not notice a commit or a push that fails there. The last column needs a file system whose
/// renames are atomic, as those with a journal or a log have (ext4, F2FS, UBIFS, XFS, Btrfs). On FAT a killed process
/// leaves old or new, but a power cut during the rename may leave the new content under the second name only. A medium
/// that loses data after it has reported them as written keeps no promise.
///
/// **When is it saved?** When every step up to and including the flush of the folder has succeeded. If only that last
/// flush fails, the name already leads to the complete new content; but a power cut may restore the old, so the save
/// counts as failed: every dirty flag is as it was, and the next save writes all settings again. Two errors are not
/// failures: a file system that cannot flush folders at all (EINVAL), and a file that cannot be closed after the medium
/// has its content.
///
/// **Appending** is as safe: the old content is copied into the new file, and the new records are appended. Each time
/// the whole file is written. A damaged end is copied as it is, see `load_all`.
///
/// **Lists whose children share ids** (see `NV_container`) are saved whole whenever `save` includes the list, in every
/// mode and whatever a selector says about the nodes in it, so that they load as saved.
///
/// **Leftovers.** A killed process leaves the unfinished file. Nobody reads it; the next save removes it. Programs must
/// not use names that end in `suffix` for other files.
///
/// **Two savers**, of one process or of several, do not disturb each other: a save fails while another is in progress,
/// and its flags stay set. The content of the last one that finishes stays.
///
/// **The previous file.** The new one has its permissions, and its owner and group if the process may set them; access
/// lists and other attributes are not kept. A symbolic link stays, and the file to which it leads is replaced, in its
/// own folder; a link that leads to no file gets one. Other hard links keep the old content. A file that the process
/// may not write is not replaced, nor is anything that is not a regular file. The process needs to read, write and
/// search the folder; in a read-only folder every save fails. A new file gets the permissions 0666 less the process's
/// mask. A name has at most 255 characters less those of `suffix`.
///
/// **Messages.** For each failure the debug printer reports what failed and why.
///
/// **Ownership.** The path is copied. **Threads.** Not synchronised: one iterator for each thread; see `save` for the
/// lock of the tree.
class GLUE_EXPORT NV_safe_file_iterator : public NV_file_iterator {
  public:
    /// The end of the name of an unfinished file.
    static constexpr const char* suffix = ".saving";

    /// Opens nothing yet.
    explicit NV_safe_file_iterator(const char* path);
    /// Drops a save that was not committed.
    ~NV_safe_file_iterator() override;

    /// Saves a tree, or a node with all nodes below it, and closes the file.
    ///
    /// On failure every node has the dirty flags that it had, together with those of changes made since, and the old
    /// file is unchanged (except when only the flush of the folder failed, see above). No node may be removed until
    /// this returns.
    ///
    /// Holds the lock of the tree while it reads the tree and while it restores flags, not while it waits for the
    /// medium. When the calling thread holds the lock already, it neither acquires nor releases it.
    /// \param mode  one of those for writing and appending
    /// \return whether the tree is saved, see above; false also for any other mode
    [[nodiscard]] bool save(NV_item& tree, modes_t mode);

    // ---- The same in steps, to write other things than a tree: `set_mode`, pushes, `commit` or `drop` ----
    //
    // The caller restores flags that nodes have lost, and lists whose children share ids get no special treatment.

    /// Closes the open file (one that is being written by `commit`), then opens for the new purpose. Check `get_mode`
    /// afterwards: it is `closed` when the commit failed, or when the file could not be opened.
    void set_mode(modes_t mode) override;
    /// After a push that failed, all later ones and the commit fail.
    bool push_bytes(unsigned char* bytes, int count) override;
    /// Makes the pushed bytes the content of the file, and closes it. \return whether it is saved, see above; false
    /// also when no file is open for writing
    [[nodiscard]] bool commit();
    /// Closes. The bytes that were pushed since the file was opened for writing are dropped; the old file is unchanged.
    void drop();

  private:
    /// The attributes of the file that is to be replaced.
    struct Previous {
        bool exists = false;
        mode_t permissions = 0;
        uid_t owner = 0;
        gid_t group = 0;
    };

    bool begin(modes_t mode);
    bool locate();
    bool read_previous();
    bool create_unfinished();
    bool adopt(int fd);
    bool remove_leftover() const;
    bool is_unfinished_file(int fd) const;
    bool copy_previous() const;
    bool put_in_place();
    void release();
    bool failed(const char* what) const;

    std::string name_;       ///< of the file within its folder, after following links
    std::string unfinished_; ///< its name until it is complete
    int folder_ = -1;
    Previous previous_;
    bool push_failed_ = false;
    bool in_place_ = false; ///< the new file already has the name
};

} // namespace NV_store
