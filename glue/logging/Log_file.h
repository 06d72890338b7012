#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

/// What a source's files are called.
struct Log_file_naming {
    std::string directory;
    std::string name;
    std::string suffix;

    /// The directory with its "/". That of an empty text is the root, on purpose: it is where the files are opened.
    std::string folder() const;
    /// Path and name up to the time: what all files of the source begin with.
    std::string prefix() const;
    /// A path for the present moment that does not exist yet.
    std::string free_path() const;
};

/// A log file that is open. Closed by its last owner.
class Log_file {
  public:
    /// \return null when it cannot be opened; `errno` says why
    static std::shared_ptr<Log_file> open(const std::string& path);

    /// Writes all of it, or says why not on standard error. \return how much went out
    std::size_t write(const unsigned char* bytes, std::size_t count);
    /// Hands what is buffered to the system. \return whether that worked; what did not is told of on standard error
    bool flush();

    const std::string& path() const { return path_; }

  private:
    struct Closer {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    Log_file(std::string path, std::FILE* file) : path_(std::move(path)), file_(file) {}

    std::string path_;
    std::unique_ptr<std::FILE, Closer> file_;
};
