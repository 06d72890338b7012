#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

/// What became of a program that a test has run.
struct Program_result {
    std::string output;  ///< what it wrote to standard output, as far as it was read
    std::string errors;  ///< what it wrote to standard error
    int status = -1;     ///< the exit status; minus the signal's number when one ended it; -1000 when it did not start
    bool in_time = true; ///< false: it was still running at the time limit and was killed
};

/// Runs a program to its end: arguments, standard input, both outputs, exit status.
///
///     const Program_result result = Program(simulator, {"--epochs", "3"}).run();
///     EXPECT_EQ(result.status, 0) << result.errors;
///
/// A `receiver_monitor` that is run so, also by a shell, leaves the preferences of whoever runs the tests alone, unless
/// `environment` says otherwise.
///
/// The program gets a process group of its own, which is killed whole at the time limit. Signals that the test ignores
/// or blocks are at their default in the program.
class Program {
  public:
    static constexpr int did_not_start = -1000;

    /// A `path` without a slash is looked for as a shell would.
    explicit Program(std::string path, std::vector<std::string> arguments = {});

    /// What the program finds on its standard input, which then ends. Nothing, unless said.
    Program& input(std::string bytes);
    /// Standard output goes to a file (an existing one, "/dev/full" for one) instead of the result.
    Program& output_to(std::string path);
    /// The program starts without a standard output.
    Program& without_output();
    /// The reader of standard output goes away after `count` bytes.
    Program& reader_leaves_after(std::size_t count);
    /// A variable of the program's environment; everything else there is as in the test's.
    Program& environment(const std::string& name, const std::string& value);
    /// A variable that the program shall not have.
    Program& without_environment(const std::string& name);
    /// How long the program may run; a minute, unless said.
    Program& time_limit(std::chrono::milliseconds limit);

    /// Whom to tell the program's process number, as soon as it has one.
    Program& once_started(std::function<void(pid_t)> tell);

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
    std::function<void(pid_t)> tell_start_;
};
