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
    operator const char* const*() const { return vector_.data(); }

  private:
    std::vector<std::string> words_;
    std::vector<const char*> vector_;
};

/// A script for the shell.
Child_program shell(const std::string& script);
/// Gives back what it is sent, until that ends.
Child_program echo();

/// Takes what a child prints until `count` bytes have come; fewer when they do not within 20 seconds.
std::string output_of(Process_data_stream& stream, std::size_t count);
/// The same until its output ends.
std::string output_of(Process_data_stream& stream);
/// Takes a line of output, without the line feed.
std::string line_of(Process_data_stream& stream);

/// Whether this process has no children: none that run and none that wait to be reaped. Reaps none.
bool no_children();
/// The names of this process's threads that begin with `prefix`.
std::multiset<std::string> threads_named(const std::string& prefix);

/// Limits the number of open descriptors while it lives: to those that are open, filling the gaps between them, and
/// `more`.
class Limited_descriptors {
  public:
    explicit Limited_descriptors(int more);
    ~Limited_descriptors();
    Limited_descriptors(const Limited_descriptors&) = delete;
    Limited_descriptors& operator=(const Limited_descriptors&) = delete;

  private:
    unsigned long limit_before_;
    std::vector<int> fillers_;
};

/// Opens descriptors, which children inherit, while it lives: until the next one would have the number `first_free`.
class Many_descriptors {
  public:
    explicit Many_descriptors(int first_free);
    ~Many_descriptors();
    Many_descriptors(const Many_descriptors&) = delete;
    Many_descriptors& operator=(const Many_descriptors&) = delete;

  private:
    unsigned long limit_before_;
    std::vector<int> descriptors_;
};
