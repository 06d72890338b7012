#pragma once

#include <support/processes/Program.h>

#include <memory>
#include <sys/types.h>
#include <thread>

/// A program that runs beside the test (socat, for example). It is ended with the test, also when the test is killed: a
/// program that continued would read the bytes of a later test whose terminal gets the same number.
///
///     Running_program peer("socat", {"TCP-LISTEN:" + port + ",bind=127.0.0.1", "PIPE"});
class Running_program {
  public:
    explicit Running_program(std::string path, std::vector<std::string> arguments = {});
    /// Ends it, unless it has ended.
    ~Running_program();
    Running_program(const Running_program&) = delete;
    Running_program& operator=(const Running_program&) = delete;

    /// Sends it a signal, unless it has ended, and waits for its end. \return its result
    const Program_result& end(int signal_number);

  private:
    int process_ = -1; ///< a descriptor of the process, which never refers to another process
    Program_result result_;
    std::thread runner_;
};
