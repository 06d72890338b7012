#include "Command_interpreter.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace simulator {

namespace {

constexpr std::string_view blanks = " \t";

std::string_view trimmed(std::string_view text) {
    const auto first = text.find_first_not_of(blanks);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// The "%...%" that a line begins with; "" when it begins with none.
std::string_view request_of(std::string_view line) {
    if (line.empty() || line.front() != '%')
        return {};
    const auto end = line.find('%', 1);
    return end == std::string_view::npos ? std::string_view() : line.substr(0, end + 1);
}

} // namespace

std::string Command_interpreter::reply_to(std::string_view line) {
    line = trimmed(line);
    if (line.empty())
        return {};
    if (line.size() > longest_line)
        return message(refused(Vesk::err_wrong_command), {});
    const std::string_view request = request_of(line);
    return message(obey(trimmed(line.substr(request.size()))), request);
}

Command_interpreter::Answer Command_interpreter::obey(std::string_view command) {
    const auto comma = command.find(',');
    const bool has_value = comma != std::string_view::npos;
    const std::string_view name = command.substr(0, comma);
    const std::string_view value = has_value ? command.substr(comma + 1) : std::string_view();
    if (name == "version" && !has_value)
        return done("{receiver_simulator}");
    if (name == "rate")
        return has_value ? set_rate(value) : [this] {
            char text[32];
            std::snprintf(text, sizeof text, "{%g}", settings_.rate);
            return done(text);
        }();
    if (name == "messages")
        return switch_messages(value);
    return refused(Vesk::err_wrong_command);
}

Command_interpreter::Answer Command_interpreter::set_rate(std::string_view value) {
    const std::string text(value);
    char* end = nullptr;
    const double rate = std::strtod(text.c_str(), &end);
    if (text.empty())
        return refused(Vesk::err_value_missed);
    if (*end != '\0' || !std::isfinite(rate) || rate < 0)
        return refused(Vesk::err_value_out_of_range);
    settings_.rate = rate;
    return done();
}

Command_interpreter::Answer Command_interpreter::switch_messages(std::string_view value) {
    if (value.empty())
        return refused(Vesk::err_1st_parameter_missed);
    if (value != "on" && value != "off")
        return refused(Vesk::err_wrong_1st_parameter);
    settings_.messages = value == "on";
    return done();
}

Command_interpreter::Answer Command_interpreter::done(std::string text) {
    return {"RE", std::move(text)};
}

/// The phrase begins with its comma.
Command_interpreter::Answer Command_interpreter::refused(Vesk::vesk_ret_t code) {
    return {"ER", "{" + std::to_string(code) + Vesk::errcode2str(code) + "}"};
}

/// The length counts the carriage return, as it does in every reply; the line feed follows the message.
std::string Command_interpreter::message(const Answer& answer, std::string_view request) {
    const std::string body = std::string(request) + answer.text + "\r";
    char header[8];
    std::snprintf(header, sizeof header, "%.2s%03X", answer.identifier, static_cast<unsigned>(body.size()));
    return header + body + "\n";
}

} // namespace simulator
