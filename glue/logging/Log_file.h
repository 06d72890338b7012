#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

/// The names of a source's files.
struct Log_file_naming {
    std::string directory;
    std::string name;
    std::string suffix;

    /// The directory with its "/". On purpose an empty text is the root: that is where the files are opened.
    std::string folder() const;
    /// Path and name up to the time: all files of the source begin with it.
    std::string prefix() const;
    /// A path for the present time that does not exist yet.
    std::string unused_path() const;
};

/// An open log file. Its last owner closes it.
class Log_file {
  public:
    /// \return null when it cannot be opened; `errno` has the reason
    static std::shared_ptr<Log_file> open(const std::string& path);

    /// Writes all bytes, or reports on standard error why it cannot. \return the bytes written
    std::size_t write(const unsigned char* bytes, std::size_t count);
    /// Passes buffered bytes to the system. A failure is reported on standard error.
    void flush();

    const std::string& path() const { return path_; }

  private:
    struct Closer {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    Log_file(std::string path, std::FILE* file) : path_(std::move(path)), file_(file) {}

    std::string path_;
    std::unique_ptr<std::FILE, Closer> file_;
};
