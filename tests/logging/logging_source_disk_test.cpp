// Disks that are full, slow or broken, and processes that end.

#include <glue/logging/logging_source.h>

#include <support/builders/Numbered_pieces.h>
#include <support/builders/Random.h>
#include <support/checks/waiting.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/fakes/Replaced_delays.h>
#include <support/faults/Limited_file_size.h>
#include <support/faults/Replaced_calls.h>
#include <support/faults/Replaced_file_calls.h>
#include <support/faults/in_c_library.h>
#include <support/files/Traffic_log.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <iterator>
#include <optional>
#include <pthread.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using testing::HasSubstr;

/// Replaces the disk's operations while it lives.
struct Disk {
    Disk() {
        syncs = 0;
        replaces_sync = true;
    }
    ~Disk() { replaces_sync = false; }

    /// Calls `action` before every write.
    void before_write(const std::function<void()>& action) {
        calls.fwrite = [action](std::size_t, std::size_t) {
            action();
            return std::nullopt;
        };
    }

    Replaced_file_calls calls;

    // Live longer than a disk: a rotation calls `sync` after the source is no longer busy.
    static inline std::atomic<int> syncs{0};
    static inline std::atomic<bool> replaces_sync{false};
};

/// A disk that blocks every write until it is released.
class Blocked_disk {
  public:
    Blocked_disk() {
        disk_.before_write([this] {
            ++writes_;
            eventually([&] { return released_.load(); });
        });
    }
    void release() { released_ = true; }
    bool is_released() const { return released_; }
    void await_write() {
        EXPECT_TRUE(eventually([&] { return writes_ > 0; }));
    }

  private:
    std::atomic<bool> released_{false};
    std::atomic<int> writes_{0};
    Disk disk_;
};

/// Flushes and rotates in a thread of its own.
class Rotating_thread {
  public:
    Rotating_thread()
        : thread_([this] {
              id_ = gettid();
              logging_source_flush(logging_source_receiver, true);
          }) {}
    ~Rotating_thread() { join(); }

    void await_that_it_waits() {
        EXPECT_TRUE(eventually([&] { return id_ != 0 && state() == 'S'; }));
    }
    void join() {
        if (thread_.joinable())
            thread_.join();
    }

  private:
    /// As the system reports it: 'S' is a thread that sleeps.
    char state() const {
        std::ifstream file("/proc/self/task/" + std::to_string(id_) + "/stat");
        const std::string text(std::istreambuf_iterator<char>(file), {});
        return text.substr(text.rfind(')') + 1, 2).back();
    }

    std::atomic<pid_t> id_{0};
    std::thread thread_;
};

/// Destroyed after the writers have ended, because it is constructed before any source is used.
struct After_the_writers {
    ~After_the_writers() {
        if (action)
            action();
    }
    std::function<void()> action;
} after_the_writers;

/// This process starts no writer for this source: a forked child would not have the thread.
constexpr logging_source_t used_in_children = logging_source_corrections;

std::atomic<bool> threads_fail{false};

} // namespace

// The program's own definitions win over those of the shared libraries.

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                              void* argument) noexcept {
    static const auto original = in_c_library(pthread_create);
    return threads_fail ? EAGAIN : original(thread, attributes, entry, argument);
}

extern "C" void sync() noexcept {
    if (Disk::replaces_sync)
        ++Disk::syncs;
}

TEST(logging_source_disk, bytes_that_a_full_disk_refuses_are_dropped_and_counted) {
    Traffic_log log;
    log.configure();
    log.enable();
    log.write("whole ");
    log.settle();
    log.configure();
    log.enable(); // another file
    const Captured_descriptor errors(2);
    const std::string most(96, 'x');
    {
        const Limited_file_size disk(99);
        EXPECT_TRUE(log.write(most + "refused"));
        log.settle();
        EXPECT_EQ(log.dropped(), 4U);
        EXPECT_EQ(log.status().file_bytes, 99U);
    }
    log.write(" and on");
    log.settle();
    EXPECT_THAT(errors.text(), HasSubstr("background log write fail: File too large\n"));
    EXPECT_THAT(log.contents(), testing::UnorderedElementsAre("whole ", most + "ref and on"));
}

TEST(logging_source_disk, bytes_of_a_rotation_that_a_full_disk_refuses_are_dropped_and_counted) {
    Traffic_log log;
    log.keep_history();
    log.write("whole");
    log.rotate();
    log.write(std::string(99, 'x') + "refused");
    const Captured_descriptor errors(2);
    {
        const Limited_file_size disk(99);
        log.rotate();
    }
    EXPECT_EQ(log.dropped(), 7U);
    EXPECT_EQ(log.status().history_bytes, 0U) << "there is no second attempt";
    EXPECT_EQ(errors.text(), "background log write fail: File too large\n");
    log.write("next");
    log.rotate();
    std::string all;
    for (const std::string& name : log.files())
        all += log.folder().content_of(name) + "|";
    EXPECT_EQ(all, "whole|" + std::string(99, 'x') + "|next|");
}

TEST(logging_source_disk, disk_that_hangs_blocks_no_thread_that_logs) {
    Traffic_log log;
    log.configure();
    log.enable();
    {
        Blocked_disk disk;
        const std::string piece(1000, 'x');
        const Stopwatch watch;
        for (int i = 0; i < 400; ++i) // more than the queue holds
            EXPECT_TRUE(log.write(piece));
        EXPECT_LT(watch.elapsed(), std::chrono::seconds(10));
        const auto dropped = log.dropped();
        EXPECT_GT(dropped, 0U);
        EXPECT_EQ(dropped % 1000, 0U) << "pieces are dropped whole";
        disk.release();
        log.settle();
        EXPECT_EQ(log.content().size() + dropped, 400000U);
    }
}

TEST(logging_source_disk, bytes_that_are_logged_while_a_rotation_is_written_are_dropped_and_counted) {
    Traffic_log log;
    log.keep_history();
    log.write("history");
    Blocked_disk disk;
    logging_source_flush(logging_source_receiver, true); // returns while the disk is still blocked
    EXPECT_TRUE(logging_source_is_busy(logging_source_receiver));
    EXPECT_TRUE(log.write("dropped"));
    EXPECT_EQ(log.dropped(), 7U);
    logging_source_flush(logging_source_receiver, true); // does nothing
    disk.release();
    EXPECT_TRUE(eventually([&] { return !logging_source_is_busy(logging_source_receiver); }));
    EXPECT_TRUE(log.write("next"));
    EXPECT_TRUE(eventually([&] { return Disk::syncs >= 1; })) << "the rotation is written to the medium";
    log.rotate();
    EXPECT_EQ(log.files().size(), 2U);
}

TEST(logging_source_disk, bytes_that_are_logged_before_a_rotation_begins_are_included_in_it) {
    Traffic_log log;
    log.configure();
    log.enable();
    Blocked_disk disk;
    log.write("of the file before");
    log.configure(); // closes the file, after the bytes that are queued for it
    log.write("history ");
    Rotating_thread rotation;
    EXPECT_TRUE(eventually([&] { return log.files().size() == 2; }));
    EXPECT_TRUE(log.write("and later"));
    EXPECT_EQ(log.dropped(), 0U);
    disk.release();
    rotation.join();
    log.rotate();
    EXPECT_THAT(log.contents(), testing::ElementsAre("of the file before", "history and later", ""));
}

TEST(logging_source_disk, configuring_another_size_does_not_wait_for_the_disk_and_keeps_what_is_queued) {
    Traffic_log log;
    log.configure();
    log.enable();
    Blocked_disk disk;
    const std::string queued(200000, 'q');
    log.write("taken out");
    disk.await_write();
    log.write(queued);
    log.configure(Traffic_log::long_span, 100000);
    EXPECT_FALSE(disk.is_released());
    const std::string history(99999, 'h');
    log.write(history);
    log.enable();
    disk.release();
    log.settle();
    EXPECT_THAT(log.contents(), testing::UnorderedElementsAre("taken out" + queued, history));
    EXPECT_EQ(log.dropped(), 0U);
}

TEST(logging_source_disk, flush_waits_only_for_bytes_that_were_logged_before_it) {
    Traffic_log log;
    log.configure();
    log.enable();
    Disk disk;
    std::atomic<bool> flushed{false};
    disk.before_write([&] { // each write is followed by another
        if (!flushed)
            log.write("later ");
    });
    log.write("before ");
    std::thread flush([&] {
        log.settle();
        flushed = true;
    });
    EXPECT_TRUE(eventually([&] { return flushed.load(); }));
    flushed = true; // ends the traffic when the flush has not returned
    flush.join();
    log.settle();
    EXPECT_EQ(log.content().substr(0, 13), "before later ");
}

TEST(logging_source_disk, rotation_does_not_begin_when_the_source_is_switched_off_while_it_waits) {
    Traffic_log log;
    log.configure();
    log.enable();
    Blocked_disk disk;
    log.write("x");
    disk.await_write();
    Rotating_thread rotation;
    rotation.await_that_it_waits();
    log.enable(false);
    disk.release();
    rotation.join();
    EXPECT_EQ(log.files().size(), 1U);
}

TEST(logging_source_disk, many_threads_that_rotate_all_return) {
    Traffic_log log;
    log.keep_history();
    Disk disk; // no real sync
    std::atomic<int> returned{0};
    std::vector<std::thread> threads;
    for (int caller = 0; caller < 8; ++caller)
        threads.emplace_back([&] {
            for (int i = 0; i < 100; ++i)
                logging_source_flush(logging_source_receiver, true);
            ++returned;
        });
    ASSERT_TRUE(eventually([&] { return returned == 8; }, std::chrono::seconds(60))) << returned;
    for (std::thread& thread : threads)
        thread.join();
}

TEST(logging_source_disk, bytes_that_are_logged_after_the_writers_have_ended_are_not_written_and_block_nothing) {
    Traffic_log log(used_in_children);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        alarm(300); // ends a process that hangs
        log.configure();
        log.enable();
        log.write("written");
        after_the_writers.action = [&log] {
            log.write("too late");
            log.settle();
            logging_source_flush(used_in_children, true);
            log.configure();
            log.write("never written");
            log.enable();
            logging_source_flush(used_in_children, true);
        };
        std::exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(log.content(), "written") << "no writer is left";
}

TEST(logging_source_disk, writer_that_cannot_be_started_is_reported_once_and_blocks_nothing) {
    Traffic_log log(used_in_children);
    const Captured_descriptor errors(2);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        alarm(300); // ends a process that hangs
        threads_fail = true;
        log.configure(0, 0);
        log.enable();
        log.enable();
        log.write("dropped");
        log.settle();
        logging_source_flush(used_in_children, true);
        if (log.dropped() != 7 || log.status().path[0] != '\0' || !log.files().empty())
            _exit(1);
        threads_fail = false;
        log.enable();
        log.write("written");
        log.settle();
        std::exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(log.content(), "written");
    EXPECT_EQ(errors.text(), log.folder().path("traffic_raw_*") + ": cannot start the thread that writes it\n");
}

TEST(logging_source_disk, status_has_the_bytes_that_wait_for_the_disk) {
    Traffic_log log;
    log.configure();
    log.enable();
    EXPECT_EQ(log.status().queued, 0U);
    {
        Blocked_disk disk;
        log.write("taken out");
        disk.await_write();
        log.write(" and queued");
        log.configure();
        log.enable(); // another file: the bytes queued for the previous one still count
        log.write("!");
        EXPECT_EQ(log.status().queued, 21U);
        disk.release();
        log.settle();
    }
    EXPECT_EQ(log.status().queued, 0U);
}

TEST(logging_source_disk, process_that_exits_has_written_everything) {
    Traffic_log log(used_in_children);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        log.configure();
        log.enable();
        for (int i = 0; i < 100; ++i)
            log.write(std::string(1000, static_cast<char>('a' + i % 26)));
        std::exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(log.content().size(), 100000U);
}

TEST(logging_source_disk, process_that_exits_waits_a_limited_time_for_a_disk_that_hangs) {
    Traffic_log log(used_in_children);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        alarm(300); // ends a process that hangs
        log.configure();
        log.enable();
        Disk disk;
        disk.before_write([] { pause(); });
        while (log.dropped() == 0)
            log.write(std::string(1000, 'x')); // until the queue is full
        const Replaced_delays delays;
        after_the_writers.action = [&delays] {
            // 100 waits of 10 ms for this writer, and for each that the parent has started before the fork
            const int waits = delays.count;
            const bool limited = waits % 100 == 0 && waits >= 100 && waits <= 100 * logging_source_count;
            _exit(limited && delays.milliseconds == 10 * waits ? 0 : 1);
        };
        std::exit(2);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(logging_source_disk, process_that_exits_does_not_wait_for_a_disk_that_hangs_while_a_file_is_opened) {
    Traffic_log log(used_in_children);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        alarm(300); // ends a process that hangs
        log.configure();
        std::atomic<bool> opens{false};
        Replaced_calls calls;
        calls.wall_clock_ms = [&opens] { // for the name of the file
            opens = true;
            pause();
            return 0;
        };
        std::thread([&log] { log.enable(); }).detach();
        eventually([&opens] { return opens.load(); });
        const Replaced_delays delays;
        std::exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
}

TEST(logging_source_disk, killed_process_leaves_the_beginning_of_what_it_logged) {
    std::string all;
    for (int i = 0; i < 200000; ++i)
        all += std::to_string(i) + "\n";
    for (int round = 0; round < 5; ++round) {
        Traffic_log log(used_in_children);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            log.configure();
            log.enable();
            for (std::size_t at = 0; at < all.size(); at += 100) {
                log.write(all.substr(at, 100));
                if (at % 50000 == 0)
                    log.settle();
            }
            _exit(0);
        }
        const std::size_t least = 1000 + 100000 * static_cast<std::size_t>(round);
        EXPECT_TRUE(eventually([&] { return !log.files().empty() && log.content().size() > least; }));
        kill(child, SIGKILL);
        ASSERT_EQ(waitpid(child, nullptr, 0), child);
        const std::string found = log.content();
        EXPECT_GT(found.size(), least);
        EXPECT_EQ(found, all.substr(0, found.size()));
    }
}

TEST(logging_source_disk, process_killed_between_rotations_leaves_files_without_a_gap) {
    std::string all;
    for (int i = 0; i < 2000000; ++i)
        all += std::to_string(i) + "\n";
    Random random;
    for (int round = 0; round < 8; ++round) {
        Traffic_log log(used_in_children);
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            const Disk no_real_sync;
            log.configure(0, 0);
            log.enable();
            log.configure(Traffic_log::long_span, 10000);
            for (std::size_t at = 0; at < all.size(); at += 1000) {
                log.write(all.substr(at, 1000));
                if (at % 5000 == 0)
                    log.rotate(); // waits until the rotation is written: nothing is dropped
            }
            _exit(0);
        }
        const unsigned files = random.between(1, 40);
        EXPECT_TRUE(eventually([&] { return log.files().size() > files; }));
        for (unsigned looks = random.between(0, 20); looks > 0; --looks)
            log.files(); // lets the child reach any point of a rotation
        kill(child, SIGKILL);
        ASSERT_EQ(waitpid(child, nullptr, 0), child);
        std::string found;
        for (const std::string& name : log.files())
            found += log.folder().content_of(name);
        EXPECT_EQ(found, all.substr(0, found.size())) << "in the order of their names";
    }
}

TEST(logging_source_disk, all_bytes_of_many_callers_are_written_or_counted) {
    Traffic_log log;
    log.keep_history(Traffic_log::long_span, 1 << 20);
    constexpr int pieces = 2000;
    std::atomic<std::size_t> written{0};
    std::vector<std::thread> threads;
    for (int caller = 0; caller < Numbered_pieces::callers; ++caller)
        threads.emplace_back([&, caller] {
            for (int i = 0; i < pieces; ++i) {
                const std::string piece = Numbered_pieces::piece(caller, i);
                log.write(piece);
                written += piece.size();
                if (caller == 0 && i % 500 == 250)
                    logging_source_flush(logging_source_receiver, true);
                if (caller == 1 && i % 700 == 350)
                    log.enable();
                if (caller == 2 && i % 100 == 50)
                    log.status();
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    log.enable(); // writes the history that is left to a file
    log.settle();
    log.configure(Traffic_log::long_span, 1 << 20);

    Numbered_pieces found;
    for (const std::string& name : log.files())
        found.expect_whole_and_in_order(log.folder().content_of(name));
    EXPECT_EQ(found.bytes() + log.dropped(), written);
}

TEST(logging_source_disk, disk_that_becomes_full_within_a_small_piece_is_counted_to_the_byte) {
    Traffic_log log;
    log.configure();
    log.enable();
    const Captured_descriptor errors(2);
    {
        const Limited_file_size disk(1000);
        for (int i = 0; i < 30; ++i) {
            log.write(std::string(70, 'x'));
            log.settle();
        }
    }
    EXPECT_EQ(log.content(), std::string(1000, 'x'));
    EXPECT_EQ(log.dropped(), 1100U);
    EXPECT_EQ(log.status().file_bytes, 1000U);
    EXPECT_THAT(errors.text(), HasSubstr("background log write fail: File too large\n"));
}
