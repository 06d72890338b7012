#include <support/processes/Program.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

using Clock = std::chrono::steady_clock;

/// A descriptor that is closed when its owner is destroyed. Programs inherit none of these by accident.
class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Descriptor() { close(); }

    void close() {
        if (fd_ >= 0)
            ::close(std::exchange(fd_, -1));
    }
    int get() const { return fd_; }

  private:
    int fd_ = -1;
};

struct Pipe {
    Descriptor read_end;
    Descriptor write_end;
};

Pipe make_pipe() {
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0)
        return {};
    return {Descriptor(ends[0]), Descriptor(ends[1])};
}

/// While it lives, a write to a program that has closed its standard input does not end the test.
class No_pipe_signal {
  public:
    No_pipe_signal() {
        sigemptyset(&pipe_signal_);
        sigaddset(&pipe_signal_, SIGPIPE);
        pthread_sigmask(SIG_BLOCK, &pipe_signal_, &before_);
    }
    ~No_pipe_signal() {
        static constexpr timespec no_time = {0, 0};
        while (sigtimedwait(&pipe_signal_, nullptr, &no_time) == SIGPIPE) {
        }
        pthread_sigmask(SIG_SETMASK, &before_, nullptr);
    }
    No_pipe_signal(const No_pipe_signal&) = delete;
    No_pipe_signal& operator=(const No_pipe_signal&) = delete;

  private:
    sigset_t pipe_signal_;
    sigset_t before_;
};

/// How a program is started: its descriptors, process group and signals.
class Spawn_plan {
  public:
    Spawn_plan() {
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attributes);
        sigset_t all;
        sigset_t none;
        sigfillset(&all);
        sigemptyset(&none);
        posix_spawnattr_setsigdefault(&attributes, &all);
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setpgroup(&attributes, 0);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
    }
    ~Spawn_plan() {
        posix_spawnattr_destroy(&attributes);
        posix_spawn_file_actions_destroy(&actions);
    }
    Spawn_plan(const Spawn_plan&) = delete;
    Spawn_plan& operator=(const Spawn_plan&) = delete;

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
};

/// Transfers the bytes between a running program and the test.
class Transfer {
  public:
    Transfer(std::string_view input, std::size_t read_at_most, Clock::time_point deadline)
        : input_(input), left_to_read_(read_at_most), deadline_(deadline) {}

    Descriptor to_program;
    Descriptor output;
    Descriptor errors;

    /// Returns when the program has closed both its outputs. \return false after the deadline
    bool run(Program_result& result) {
        const No_pipe_signal no_pipe_signal;
        fcntl(to_program.get(), F_SETFL, O_NONBLOCK);
        if (input_.empty())
            to_program.close();
        while (output.get() >= 0 || errors.get() >= 0) {
            pollfd watched[] = {{to_program.get(), POLLOUT, 0}, {output.get(), POLLIN, 0}, {errors.get(), POLLIN, 0}};
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - Clock::now()).count();
            const int ready = poll(watched, 3, static_cast<int>(std::clamp<long long>(left, 0, 60000)));
            if (ready == 0 && left <= 0)
                return false;
            if (ready <= 0)
                continue;
            if (watched[0].revents)
                send_input();
            if (watched[1].revents)
                read_output(result.output);
            if (watched[2].revents && append_from(errors, result.errors, piece_size) == 0)
                errors.close();
        }
        return true;
    }

  private:
    static constexpr std::size_t piece_size = 65536;

    void send_input() {
        const ssize_t sent = write(to_program.get(), input_.data(), input_.size());
        if (sent > 0)
            input_.remove_prefix(static_cast<std::size_t>(sent));
        if (input_.empty() || (sent < 0 && errno != EAGAIN && errno != EINTR))
            to_program.close();
    }

    void read_output(std::string& text) {
        const std::size_t count = append_from(output, text, std::min(left_to_read_, piece_size));
        left_to_read_ -= count;
        if (count == 0 || left_to_read_ == 0)
            output.close();
    }

    static std::size_t append_from(const Descriptor& from, std::string& text, std::size_t at_most) {
        char piece[piece_size];
        ssize_t n = 0;
        do
            n = read(from.get(), piece, at_most);
        while (n < 0 && errno == EINTR);
        if (n <= 0)
            return 0;
        text.append(piece, static_cast<std::size_t>(n));
        return static_cast<std::size_t>(n);
    }

    std::string_view input_;
    std::size_t left_to_read_;
    Clock::time_point deadline_;
};

/// Checks every millisecond whether the program has ended. Kills the process group after the deadline.
void wait_for_end(pid_t pid, Clock::time_point deadline, Program_result& result) {
    siginfo_t info = {};
    while (result.in_time) {
        info.si_pid = 0;
        if (waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT | WNOHANG) == 0 && info.si_pid == pid)
            break;
        result.in_time = Clock::now() < deadline;
        poll(nullptr, 0, 1);
    }
    if (!result.in_time)
        kill(-pid, SIGKILL);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    result.status = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

/// A null-terminated array of pointers to the texts, valid as long as they are.
std::vector<char*> array_of(const std::vector<std::string>& texts) {
    std::vector<char*> array;
    for (const std::string& text : texts)
        array.push_back(const_cast<char*>(text.c_str()));
    array.push_back(nullptr);
    return array;
}

/// The test's environment with changes: a variable is set, or, without a value, removed.
std::vector<std::string> changed_environment(const std::map<std::string, std::optional<std::string>>& changes) {
    std::vector<std::string> variables;
    for (char** variable = environ; *variable; ++variable)
        if (const std::string text = *variable; changes.count(text.substr(0, text.find('='))) == 0)
            variables.push_back(text);
    for (const auto& [name, value] : changes)
        if (value)
            variables.push_back(name + "=" + *value);
    return variables;
}

} // namespace

Program::Program(std::string path, std::vector<std::string> arguments)
    : path_(std::move(path)), arguments_(std::move(arguments)) {}

Program& Program::input(std::string bytes) {
    input_ = std::move(bytes);
    return *this;
}

Program& Program::environment(const std::string& name, const std::string& value) {
    environment_[name] = value;
    return *this;
}

Program& Program::without_environment(const std::string& name) {
    environment_[name].reset();
    return *this;
}

Program& Program::output_to(std::string path) {
    output_path_ = std::move(path);
    return *this;
}

Program& Program::without_output() {
    has_output_ = false;
    return *this;
}

Program& Program::reader_leaves_after(std::size_t count) {
    read_at_most_ = count;
    return *this;
}

Program& Program::time_limit(std::chrono::milliseconds limit) {
    limit_ = limit;
    return *this;
}

Program& Program::once_started(std::function<void(pid_t)> notify) {
    notify_started_ = std::move(notify);
    return *this;
}

Program_result Program::run() const {
    const Clock::time_point deadline = Clock::now() + limit_;
    Program_result result;
    Transfer transfer(input_, read_at_most_, deadline);
    Pipe input = make_pipe();
    Pipe output = make_pipe();
    Pipe errors = make_pipe();

    Spawn_plan plan;
    posix_spawn_file_actions_adddup2(&plan.actions, input.read_end.get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&plan.actions, errors.write_end.get(), STDERR_FILENO);
    if (!has_output_)
        posix_spawn_file_actions_addclose(&plan.actions, STDOUT_FILENO);
    else if (!output_path_.empty())
        posix_spawn_file_actions_addopen(&plan.actions, STDOUT_FILENO, output_path_.c_str(), O_WRONLY | O_TRUNC, 0);
    else
        posix_spawn_file_actions_adddup2(&plan.actions, output.write_end.get(), STDOUT_FILENO);

    std::vector<std::string> words = {path_};
    words.insert(words.end(), arguments_.begin(), arguments_.end());
    const std::vector<std::string> variables = changed_environment(environment_);
    pid_t pid = -1;
    if (posix_spawnp(&pid, path_.c_str(), &plan.actions, &plan.attributes, array_of(words).data(),
                     array_of(variables).data()) != 0) {
        result.status = did_not_start;
        return result;
    }
    if (notify_started_)
        notify_started_(pid);
    input.read_end.close();
    output.write_end.close();
    errors.write_end.close();
    transfer.to_program = std::move(input.write_end);
    transfer.output = std::move(output.read_end);
    transfer.errors = std::move(errors.read_end);
    result.in_time = transfer.run(result);
    wait_for_end(pid, deadline, result);
    return result;
}
