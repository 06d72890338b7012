#include <platform/Task.h>

#include <pthread.h>
#include <system_error>
#include <utility>

namespace {

constexpr std::size_t longest_thread_name = 15;

} // namespace

Task::Task(std::string name, [[maybe_unused]] int stack_size, [[maybe_unused]] int option_a,
           [[maybe_unused]] int option_b)
    : name_("vro." + std::move(name)) {}

Task::~Task() {
    join();
}

bool Task::vro_start([[maybe_unused]] int priority, void* (*entry)(void*), void* argument,
                     [[maybe_unused]] bool detached) {
    if (thread_.joinable())
        return false;
    try {
        thread_ = std::thread([entry, argument, thread_name = name_.substr(0, longest_thread_name)] {
            pthread_setname_np(pthread_self(), thread_name.c_str());
            entry(argument);
        });
    } catch (const std::system_error&) {
        return false;
    }
    return true;
}

void Task::join() {
    if (thread_.joinable())
        thread_.join();
}
