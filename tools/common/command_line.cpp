#include "command_line.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iostream>

namespace command_line {

namespace {

/// A number, without an exponent if it has up to 16 digits.
std::string plain(double number) {
    char text[32];
    std::snprintf(text, sizeof text, "%.16g", number);
    return text;
}

int help(const CLI::App& app) {
    std::cout << app.help() << std::flush;
    return std::cout ? 0 : complain(app, "cannot write to standard output");
}

} // namespace

CLI::Validator number_between(double low, double high) {
    const std::string range = plain(low) + (std::isfinite(high) ? " to " + plain(high) : " on");
    return CLI::Validator(
        [=](const std::string& text) -> std::string {
            double value = 0;
            if (CLI::detail::lexical_cast(text, value) && std::isfinite(value) && value >= low && value <= high)
                return {};
            return text + " is not a number from " + range;
        },
        "");
}

int complain(const CLI::App& app, std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, ' ');
    std::cerr << app.get_name() << ": " << text << std::endl;
    return failed;
}

std::optional<int> parse(CLI::App& app, int argc, char** argv) {
    app.set_help_flag("--help,-h", "Print this and exit");
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        return help(app);
    } catch (const CLI::ParseError& error) {
        return complain(app, error.what());
    }
    return std::nullopt;
}

} // namespace command_line
