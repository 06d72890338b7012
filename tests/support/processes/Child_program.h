#pragma once

#include <glue/data_stream/Process_data_stream.h>

#include <set>
#include <string>
#include <vector>

/// A program and its arguments, as `Process_data_stream` takes them.
///
///     Process_data_stream stream(nullptr, Child_program({"printf", "abc"}), nullptr);
class Child_program {
  public:
    explicit Child_program(std::vector<std::string> words);
    Child_program(const Child_program&) = delete;
    Child_program& operator=(const Child_program&) = delete;

    operator const char* const*() const { return vector_.data(); }

  private:
    std::vector<std::string> words_;
    std::vector<const char*> vector_;
};

/// A script for the shell.
Child_program shell(const std::string& script);
/// A program that copies its input to its output until end of input.
Child_program echo();
/// The path of that program.
std::string path_of_echo();

/// Reads the output of a child until `count` bytes are received; fewer after 20 seconds.
std::string output_of(Process_data_stream& stream, std::size_t count);
/// Reads the output of a child until its end.
std::string output_of(Process_data_stream& stream);
/// Reads a line of output; returns it without the line feed.
std::string line_of(Process_data_stream& stream);

/// Whether this process has no children, running or waiting to be reaped. Reaps none.
bool no_children();
/// The names of this process's threads that begin with `prefix`.
std::multiset<std::string> threads_named(const std::string& prefix);
