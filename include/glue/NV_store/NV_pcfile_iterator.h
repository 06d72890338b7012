#pragma once

#include <glue/NV_store/NV_stream_iterator.h>
#include <glue/data_stream/PCFile_data_stream.h>

namespace NV_store {

/// Settings in a file of the unit's file store; see <platform/pcf.h> for the store and for what of it survives a power
/// cut, `NV_file_iterator` for a sample.
///
/// A save of all removes the file first: cut off, it leaves a beginning of the new settings, or none. A store that gets
/// full in the middle of a save closes the file and tells the waiters of `PCFile_data_stream`; on purpose the save
/// itself goes on and reports success, like every save to a stream.
///
/// **Ownership.** The name is copied. The file is open from one `set_mode` to the next; destroying the iterator closes
/// it. **Threads.** Not synchronised. The store has one reader and one writer at a time in the whole process: opening
/// tries `attempts` times, `PCFile_data_stream::retry_delay` apart.
class GLUE_EXPORT NV_pcfile_iterator : public NV_stream_iterator {
  public:
    /// Characters of a name that are kept, and how often the store is asked to open it.
    static constexpr unsigned longest_name = 31;
    static constexpr int attempts = 5;
    /// What `get_free_space` says there is in all, whatever the store holds.
    static constexpr unsigned int nominal_size = 16384;

    /// Opens nothing yet. \param name  cut to `longest_name` characters
    explicit NV_pcfile_iterator(const char* name);
    ~NV_pcfile_iterator() override;

    /// Closes the file that is open, then opens it for the new purpose: `reading`; `writing_*`, after removing what
    /// there is under the name; `appending_*`. On purpose a file that cannot be removed, as while somebody reads it, is
    /// appended to.
    ///
    /// Ask `get_mode` afterwards: it is `closed`, with no file open, when the old file could not be closed (one that
    /// did not fit the store included) or the new one not be opened. Other values are stored as they are, without a
    /// file.
    void set_mode(modes_t mode) override;
    /// \param used   bytes written and read since the file was last written from the start
    /// \param total  `nominal_size`
    void get_free_space(unsigned int& used, unsigned int& total) const override;

  private:
    bool close();
    bool open_for(modes_t mode);

    PCFile_data_stream file_;
    char name_[longest_name + 1];
};

} // namespace NV_store
