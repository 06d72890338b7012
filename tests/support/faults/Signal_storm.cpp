#include <support/faults/Signal_storm.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int signal_number = SIGALRM;
constexpr std::chrono::milliseconds period(1);

std::atomic<unsigned> signals_received{0};

void count_signal(int) {
    ++signals_received;
}

} // namespace

Signal_storm::Signal_storm() {
    signals_received = 0;
    struct sigaction action {};
    action.sa_handler = count_signal; // no SA_RESTART
    sigaction(signal_number, &action, &action_before_);
    thread_ = std::thread([this] { send_signals(); });
}

Signal_storm::~Signal_storm() {
    over_ = true;
    thread_.join();
    // A pending signal must not meet the default action, which ends the process.
    if (action_before_.sa_handler == SIG_DFL)
        action_before_.sa_handler = SIG_IGN;
    sigaction(signal_number, &action_before_, nullptr);
}

unsigned Signal_storm::count() const {
    return signals_received;
}

void Signal_storm::send_signals() {
    const long process = getpid();
    const long own = syscall(SYS_gettid);
    std::error_code ignored; // threads start and end meanwhile
    for (auto next = std::chrono::steady_clock::now(); !over_; next += period) {
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task", ignored)) {
            const long thread = std::stol(entry.path().filename());
            if (thread != own)
                syscall(SYS_tgkill, process, thread, signal_number);
        }
        std::this_thread::sleep_until(next);
    }
}
