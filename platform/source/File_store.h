#pragma once

#include <platform/pcf.h>

#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace platform_detail {

/// The file store behind the pcf functions, which are its operations one by one; pcf.h tells what they do.
///
/// The names and sizes of the files are kept in memory: the directory is read when it is mounted, and is the store's
/// alone from then on.
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

    /// The place for a file that is open.
    struct Open_file {
        int fd = -1;
        Files::iterator file;
        bool is_new = false;

        bool taken() const { return fd >= 0; }
        void close();
    };

    bool read_directory();
    void note_file(const char* name);
    bool put_into(Open_file& place, Files::iterator file, int flags);
    bool is_open(Files::iterator file) const;
    bool finish_writing();
    std::uint32_t room() const;

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
