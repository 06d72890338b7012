#pragma once

#include <platform/pcf.h>

#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace platform_detail {

/// The file store of the pcf functions, which call its operations one to one; pcf.h describes them.
///
/// The names and sizes of the files are kept in memory: the directory is read when it is mounted, and the store owns it
/// from then on.
class File_store {
  public:
    bool mount(const char* directory, std::uint32_t total);
    void unmount();
    bool is_mounted();

    bool info(PcfInfo& info);
    const char* path();
    int count();
    bool name_at(int index, char* name);
    bool exists(std::string_view name);
    bool remove(std::string_view name);

    PcfResult open_read(std::string_view name, unsigned long offset);
    int read(void* buffer, int size, PcfResult& result);
    PcfResult close_read();

    bool open_write(std::string_view name);
    bool create_write(const char* name);
    int write(const void* data, int size);
    bool close_write();

  private:
    using Files = std::map<std::string, std::uint64_t, std::less<>>; // names and sizes

    /// The slot for an open file.
    struct Open_file {
        int fd = -1;
        Files::iterator file;
        bool is_new = false;

        bool in_use() const { return fd >= 0; }
        void close();
    };

    bool read_directory();
    void add_if_valid(const char* name);
    bool open_into(Open_file& slot, Files::iterator file, int flags);
    bool is_open(Files::iterator file) const;
    bool finish_writing();
    std::uint32_t free_space() const;

    std::mutex mutex_;
    std::string path_;
    int directory_ = -1;
    std::uint32_t total_ = 0;
    std::uint64_t used_ = 0;
    Files files_;
    Open_file reading_;
    Open_file writing_;
};

} // namespace platform_detail
