#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

/// A stdio file in memory, for code that prints to one.
class Text_file {
  public:
    Text_file() : file_(open_memstream(&data_, &size_)) {}
    ~Text_file() {
        std::fclose(file_);
        std::free(data_);
    }
    Text_file(const Text_file&) = delete;
    Text_file& operator=(const Text_file&) = delete;

    std::FILE* get() { return file_; }

    /// Everything printed so far.
    std::string text() {
        std::fflush(file_);
        return std::string(data_, size_);
    }

  private:
    char* data_ = nullptr;
    std::size_t size_ = 0;
    std::FILE* file_;
};
