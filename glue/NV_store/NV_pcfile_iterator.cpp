#include <glue/NV_store/NV_pcfile_iterator.h>

#include "NV_store/modes.h"

#include <platform/stzncpy.h>

namespace NV_store {

NV_pcfile_iterator::NV_pcfile_iterator(const char* name) {
    use(file_);
    stzncpy(name_, name, sizeof name_);
}

/// The stream would end the process if it went with a file open.
NV_pcfile_iterator::~NV_pcfile_iterator() {
    close();
}

void NV_pcfile_iterator::set_mode(modes_t mode) {
    const bool closed_well = close();
    mode_ = closed;
    if (closed_well && open_for(mode))
        mode_ = mode;
}

/// \return true also when nothing was open
bool NV_pcfile_iterator::close() {
    file_.drop_all(); // what was read from one file is none of the next one's
    if (mode_ == reading)
        return file_.close_read() == PCFile_data_stream::success;
    return !is_for_writing(mode_) || file_.close_write() == PCFile_data_stream::success;
}

/// \return true also when the mode asks for no file
bool NV_pcfile_iterator::open_for(modes_t mode) {
    if (mode == reading)
        return file_.open_read(name_, attempts) == PCFile_data_stream::success;
    if (!is_for_writing(mode))
        return true;
    const bool anew = !is_for_appending(mode);
    if (anew && PCFile_data_stream::exists(name_))
        PCFile_data_stream::remove(name_);
    const bool opened = file_.open_write(name_, attempts) == PCFile_data_stream::success;
    if (opened && anew)
        byte_count_ = 0;
    return opened;
}

void NV_pcfile_iterator::get_free_space(unsigned int& used, unsigned int& total) const {
    used = byte_count_;
    total = nominal_size;
}

} // namespace NV_store
