#pragma once

#include <platform/Debug.h>

/// Switches a debug category on while it exists.
class Enabled_category {
  public:
    explicit Enabled_category(unsigned category) : category_(category) { Debug::Print::enable(category, true); }
    ~Enabled_category() { Debug::Print::enable(category_, false); }
    Enabled_category(const Enabled_category&) = delete;
    Enabled_category& operator=(const Enabled_category&) = delete;

  private:
    unsigned category_;
};
