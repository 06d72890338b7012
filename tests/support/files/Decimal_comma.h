#pragma once

#include <support/files/Temporary_folder.h>

#include <string>

/// Switches this process to a locale whose numbers have a decimal comma, until it is destroyed. It makes the locale
/// itself with `localedef`, in a folder of its own, so the machine needs none.
///
///     const Decimal_comma locale;
///     ASSERT_TRUE(locale.is_set()) << locale.problem();
class Decimal_comma {
  public:
    Decimal_comma();
    ~Decimal_comma();
    Decimal_comma(const Decimal_comma&) = delete;
    Decimal_comma& operator=(const Decimal_comma&) = delete;

    bool is_set() const { return problem_.empty(); }
    /// Why the locale could not be made or set.
    const std::string& problem() const { return problem_; }

  private:
    Temporary_folder folder_;
    std::string locale_before_;
    std::string path_before_;
    bool had_path_ = false;
    std::string problem_;
};
