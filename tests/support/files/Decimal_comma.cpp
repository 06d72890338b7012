#include <support/files/Decimal_comma.h>

#include <support/processes/Program.h>

#include <clocale>
#include <cstdlib>
#include <cstring>

Decimal_comma::Decimal_comma() : locale_before_(std::setlocale(LC_ALL, nullptr)) {
    if (const char* const path = std::getenv("LOCPATH")) {
        path_before_ = path;
        had_path_ = true;
    }
    // In an emulator localedef is the host's, but the locale is for the test's processor.
    const Program_result made = Program("localedef", {"--no-archive", "--little-endian", "-i", "de_DE", "-f", "UTF-8",
                                                      folder_.path("de_DE.UTF-8")})
                                    .run();
    setenv("LOCPATH", folder_.path().c_str(), 1);
    if (!std::setlocale(LC_ALL, "de_DE.UTF-8"))
        problem_ = "no locale; localedef ended with status " + std::to_string(made.status) + ": " + made.errors;
    else if (std::strcmp(std::localeconv()->decimal_point, ",") != 0)
        problem_ = "the locale has no decimal comma";
}

Decimal_comma::~Decimal_comma() {
    std::setlocale(LC_ALL, locale_before_.c_str());
    if (had_path_)
        setenv("LOCPATH", path_before_.c_str(), 1);
    else
        unsetenv("LOCPATH");
}
