#pragma once

#include <string>
#include <string_view>
#include <vector>

/// A folder for one test, removed with everything in it when the test ends.
class Temporary_folder {
  public:
    Temporary_folder();
    ~Temporary_folder();
    Temporary_folder(const Temporary_folder&) = delete;
    Temporary_folder& operator=(const Temporary_folder&) = delete;

    const std::string& path() const { return path_; }
    /// The path of a file or folder in it, which need not exist.
    std::string path(std::string_view name) const;

    /// Creates a file with this content. \return its path
    std::string make_file(std::string_view name, std::string_view content) const;
    /// Creates a FIFO. \return its path
    std::string make_fifo(std::string_view name) const;
    /// The whole content of a file. A missing file fails the test.
    std::string content_of(std::string_view name) const;
    bool has(std::string_view name) const;
    /// The names of everything in it, sorted.
    std::vector<std::string> names() const;

  private:
    std::string path_;
};
