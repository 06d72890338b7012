#pragma once

#include <set>
#include <string>
#include <vector>

/// The numbers of the descriptors that this process has open.
std::set<int> open_descriptor_numbers();

/// A copy of a descriptor with a number that `select` does not know: FD_SETSIZE or above. Raises the process's limit of
/// descriptors where that is needed.
int copy_too_high_for_select(int fd);

/// What a stream of that description reports of such a descriptor.
std::string report_of_high_descriptor(const char* description, int fd);

/// While it lives, limits the number of open descriptors to those that are open now and `more`. It fills the gaps
/// between the open ones.
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

/// While it lives, keeps descriptors open, which children inherit, so that the next one gets the number `first_free`.
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
