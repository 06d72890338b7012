#include <support/processes/Running_program.h>

#include <csignal>
#include <future>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr auto time_limit = std::chrono::minutes(4);

int descriptor_of_process(pid_t process) {
    return static_cast<int>(syscall(SYS_pidfd_open, process, 0));
}

} // namespace

Running_program::Running_program(std::string path, std::vector<std::string> arguments) {
    std::promise<int> process;
    auto started = process.get_future();
    arguments.insert(arguments.begin(), {"--pdeathsig", "KILL", "--", std::move(path)});
    Program program("setpriv", std::move(arguments));
    program.time_limit(time_limit);
    runner_ = std::thread([this, program, process = std::move(process)]() mutable {
        bool notified = false;
        program.once_started([&](pid_t number) {
            notified = true;
            process.set_value(descriptor_of_process(number)); // it is not reaped yet, so the number is its own
        });
        result_ = program.run();
        if (!notified)
            process.set_value(-1);
    });
    process_ = started.get();
}

Running_program::~Running_program() {
    end(SIGTERM);
    if (process_ >= 0)
        close(process_);
}

const Program_result& Running_program::end(int signal_number) {
    if (runner_.joinable()) {
        if (process_ >= 0)
            syscall(SYS_pidfd_send_signal, process_, signal_number, nullptr, 0);
        runner_.join();
    }
    return result_;
}
