#pragma once

#include <set>
#include <vector>

/// The numbers of the descriptors that this process has open.
std::set<int> open_descriptor_numbers();

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
