#include <glue/NV_store/NV_pcfile_iterator.h>

#include "NV_store/modes.h"

#include <platform/stzncpy.h>

namespace NV_store {

NV_pcfile_iterator::NV_pcfile_iterator(const char* name) {
    use(file_);
    stzncpy(name_, name, sizeof name_);
}

/// The stream would end the process if it were destroyed with a file open.
NV_pcfile_iterator::~NV_pcfile_iterator() {
    close();
}

void NV_pcfile_iterator::set_mode(modes_t mode) {
    const bool is_closed = close();
    mode_ = closed;
    if (is_closed && open_for(mode))
        mode_ = mode;
}

/// \return true also when no file was open
bool NV_pcfile_iterator::close() {
    file_.drop_all(); // bytes of one file must not be read from the next
    if (mode_ == reading)
        return file_.close_read() == PCFile_data_stream::success;
    return !is_for_writing(mode_) || file_.close_write() == PCFile_data_stream::success;
}

/// \return true also when the mode needs no file
bool NV_pcfile_iterator::open_for(modes_t mode) {
    if (mode == reading)
        return file_.open_read(name_, attempts) == PCFile_data_stream::success;
    if (!is_for_writing(mode))
        return true;
    const bool from_start = !is_for_appending(mode);
    if (from_start && PCFile_data_stream::exists(name_))
        PCFile_data_stream::remove(name_);
    const bool opened = file_.open_write(name_, attempts) == PCFile_data_stream::success;
    if (opened && from_start)
        byte_count_ = 0;
    return opened;
}

void NV_pcfile_iterator::get_free_space(unsigned int& used, unsigned int& total) const {
    used = byte_count_;
    total = nominal_size;
}

} // namespace NV_store
