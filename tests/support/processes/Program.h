#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

/// The result of a program that a test has run.
struct Program_result {
    std::string output;  ///< the part of its standard output that was read
    std::string errors;  ///< its standard error
    int status = -1;     ///< the exit status; minus the number of the signal that ended it; -1000 when it did not start
    bool in_time = true; ///< false: it was still running at the time limit and was killed
};

/// Runs a program to its end: arguments, standard input, both outputs, exit status.
///
///     const Program_result result = Program(simulator, {"--epochs", "3"}).run();
///     EXPECT_EQ(result.status, 0) << result.errors;
///
/// A `receiver_monitor` that is run in this way, also by a shell, does not use the user's preferences, unless
/// `environment` sets others.
///
/// The program gets a process group of its own, which is killed whole at the time limit. Signals that the test ignores
/// or blocks are at their default in the program.
class Program {
  public:
    static constexpr int did_not_start = -1000;

    /// A `path` without a slash is searched for as by a shell.
    explicit Program(std::string path, std::vector<std::string> arguments = {});

    /// The program's standard input, which is empty by default.
    Program& input(std::string bytes);
    /// Standard output goes to a file (an existing one, "/dev/full" for example) instead of the result.
    Program& output_to(std::string path);
    /// The program starts without a standard output.
    Program& without_output();
    /// The reader closes standard output after `count` bytes.
    Program& reader_leaves_after(std::size_t count);
    /// Sets a variable in the program's environment, which otherwise is a copy of the test's.
    Program& environment(const std::string& name, const std::string& value);
    /// Removes a variable from the program's environment.
    Program& without_environment(const std::string& name);
    /// How long the program may run; a minute by default.
    Program& time_limit(std::chrono::milliseconds limit);

    /// Called with the program's process number as soon as it is known.
    Program& once_started(std::function<void(pid_t)> notify);

    Program_result run() const;

  private:
    std::string path_;
    std::vector<std::string> arguments_;
    std::map<std::string, std::optional<std::string>> environment_ = {{"GLUE_MONITOR_PREFERENCES", ""}};
    std::string input_;
    std::string output_path_;
    bool has_output_ = true;
    std::size_t read_at_most_ = static_cast<std::size_t>(-1);
    std::chrono::milliseconds limit_ = std::chrono::minutes(1);
    std::function<void(pid_t)> notify_started_;
};
