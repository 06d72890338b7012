#pragma once

#include <glue/export.h>

#include <platform/NV_iterator.h>

#include <string>
#include <utility>

namespace NV_store {

/// Settings in a file.
///
///     NV_store::NV_file_iterator file("/var/lib/unit/settings");
///     file.set_mode(NV_store::NV_iterator::writing_all);
///     const bool written = settings.serialise(&file);
///     file.set_mode(NV_store::NV_iterator::closed);       // commits, on F2FS
///
///     file.set_mode(NV_store::NV_iterator::reading);
///     NV_store::load_all(settings, file);
///     file.set_mode(NV_store::NV_iterator::closed);
///
/// On F2FS, whose files can be written atomically, a save is committed when the iterator is closed or destroyed; if the
/// process is killed before that, the previous file stays. On every other file system the file is truncated and
/// rewritten in place. `NV_safe_file_iterator` has a table of what survives which event, and saves that are all or
/// nothing everywhere.
///
/// **Ownership.** The path is copied; the file is open from one `set_mode` to the next. **Threads.** Not synchronised.
class GLUE_EXPORT NV_file_iterator : public NV_iterator {
  public:
    /// Opens nothing yet.
    explicit NV_file_iterator(const char* path);
    /// Closes the file, which commits what was written atomically.
    ~NV_file_iterator() override;

    /// Closes the open file, then opens it for the new purpose: `reading`, `writing_*` (created or truncated) or
    /// `appending_*` (created if missing). Permissions of a new file: 0777 less the process's mask.
    ///
    /// Check `get_mode` afterwards: it is `closed`, with no file open, when the file could not be closed or not be
    /// opened. On purpose a commit that fails is not reported. Other values are stored as they are, without a file.
    void set_mode(modes_t mode) override;
    /// \return whether a file is open, for reading or for writing
    bool is_readable() override;
    /// Writes to the file, in the modes for writing and appending. On purpose bytes that could not be written also
    /// count as used.
    bool push_bytes(unsigned char* bytes, int count) override;
    /// Reads from the file, in mode `reading`. When fewer bytes are left, they are consumed.
    bool pop_bytes(unsigned char* bytes, int count) override;
    /// The same; the position in the file is restored, also when there were too few bytes.
    bool peek_bytes(unsigned char* bytes, int count) override;
    /// \param used   bytes written since the file was last written from the start; appended bytes are added
    /// \param total  `nominal_size`, whatever the free space of the file system
    void get_free_space(unsigned int& used, unsigned int& total) const override;

    /// The total of `get_free_space`: the space that a unit has for a settings file.
    static constexpr unsigned int nominal_size = 16384;

    // ---- Atomic files ----

    /// Opens a file for writing so that nothing is kept before `close_atomic`, where the file system supports that
    /// (F2FS). Elsewhere, and when `flags` ask for reading only, opens it the ordinary way.
    /// \param fallback_flags  for opening the ordinary way
    /// \param permissions     of a new file
    /// \return the descriptor, negative with the reason in `errno` on failure; and whether the file is atomic
    [[nodiscard]] static std::pair<int, bool> open_atomic_fallback(const char* path, int flags, int fallback_flags,
                                                                   int permissions);

    /// Commits the bytes of an atomic file, and closes the file.
    /// \return the result of closing, 0 or -1; on purpose not that of the commit. -1 for a negative descriptor
    static int close_atomic(std::pair<int, bool> file);

    // ---- Whole transfers: an interrupted one and one to a full pipe are continued ----

    /// \return the bytes written: all of them, or fewer when the descriptor takes no more. -1 for a null buffer, a
    ///         negative count, and, after a message on standard output, an error
    static int blocking_write(int fd, const unsigned char* bytes, int count);
    /// The same for reading; fewer at the end of the file.
    static int blocking_read(int fd, unsigned char* bytes, int count);

  protected:
    const std::string& path() const { return path_; }

    static constexpr std::pair<int, bool> no_file{-1, false};
    std::pair<int, bool> file_ = no_file; ///< the descriptor, and whether it is atomic
    unsigned int byte_count_ = 0;

  private:
    std::pair<int, bool> open_for(modes_t mode) const;

    std::string path_;
};

} // namespace NV_store
