#pragma once

#include <glue/NV_store/NV_stream_iterator.h>
#include <glue/data_stream/PCFile_data_stream.h>

namespace NV_store {

/// Settings in a file of the unit's file store. <platform/pcf.h> describes the store and what survives a power cut,
/// `NV_file_iterator` has a sample.
///
/// A save of all settings removes the file first: an interrupted one leaves the beginning of the new settings, or no
/// file. When the store becomes full in the middle of a save, it closes the file and notifies the waiters of
/// `PCFile_data_stream`; on purpose the save itself goes on and reports success, like every save to a stream.
///
/// **Ownership.** The name is copied. The file is open from one `set_mode` to the next; the destructor closes it.
/// **Threads.** Not synchronised. The store has one reader and one writer at a time in the whole process: opening
/// tries `attempts` times, `PCFile_data_stream::retry_delay` apart.
class GLUE_EXPORT NV_pcfile_iterator : public NV_stream_iterator {
  public:
    static constexpr unsigned longest_name = 31; ///< characters of a name that are kept
    static constexpr int attempts = 5;           ///< to open the file
    /// The total of `get_free_space`, whatever the size of the store.
    static constexpr unsigned int nominal_size = 16384;

    /// Opens nothing yet.
    /// \param name  cut to `longest_name` characters
    explicit NV_pcfile_iterator(const char* name);
    ~NV_pcfile_iterator() override;

    /// Closes the open file, then opens it for the new purpose: `reading`; `writing_*`, after removing the old file;
    /// `appending_*`. On purpose a file that cannot be removed, for example while somebody reads it, is appended to.
    ///
    /// Check `get_mode` afterwards: it is `closed`, with no file open, when the file could not be closed (also because
    /// it did not fit the store) or not be opened. Other values are stored as they are, without a file.
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
