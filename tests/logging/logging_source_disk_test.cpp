// Disks that are full, slow or gone, and processes that end.

#include <glue/logging/logging_source.h>

#include <support/builders/Numbered_pieces.h>
#include <support/builders/Random.h>
#include <support/checks/waiting.h>
#include <support/fakes/Captured_descriptor.h>
#include <support/faults/Limited_file_size.h>
#include <support/faults/Replaced_file_calls.h>
#include <support/faults/in_c_library.h>
#include <support/files/Traffic_log.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>
#include <pthread.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using testing::HasSubstr;

/// Takes over what the library asks of the disk while it lives.
struct Disk {
    Disk() {
        syncs = 0;
        takes_syncs = true;
    }
    ~Disk() { takes_syncs = false; }

    /// What happens in front of every write.
    void before_write(const std::function<void()>& happens) {
        calls.fwrite = [happens](std::size_t, std::size_t) {
            happens();
            return std::nullopt;
        };
    }

    Replaced_file_calls calls;

    // Outlive each disk: a rotation's sync comes after the source is no longer busy.
    static inline std::atomic<int> syncs{0};
    static inline std::atomic<bool> takes_syncs{false};
};

/// A disk that takes everything, but only after it was told to answer.
class Slow_disk {
  public:
    Slow_disk() {
        disk_.before_write([this] {
            ++asked_;
            eventually([&] { return answers_.load(); });
        });
    }
    void answer() { answers_ = true; }
    bool has_answered() const { return answers_; }
    int asked() const { return asked_; }

  private:
    std::atomic<bool> answers_{false};
    std::atomic<int> asked_{0};
    Disk disk_;
};

/// Destroyed after the writers have ended, because it was there before any source was used.
struct At_the_very_end {
    ~At_the_very_end() {
        if (action)
            action();
    }
    std::function<void()> action;
} at_the_very_end;

/// A source that this process itself never starts a writer for: a forked child would be without it.
constexpr logging_source_t used_in_children = logging_source_corrections;

std::atomic<bool> no_more_threads{false};

} // namespace

// The program's own definitions win over those of the shared libraries.

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*entry)(void*),
                              void* argument) noexcept {
    static const auto original = in_c_library(pthread_create);
    return no_more_threads ? EAGAIN : original(thread, attributes, entry, argument);
}

extern "C" void sync() noexcept {
    if (Disk::takes_syncs)
        ++Disk::syncs;
}

TEST(logging_source_disk, full_disk_loses_what_it_refuses_and_counts_it) {
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

TEST(logging_source_disk, rotation_onto_a_full_disk_loses_what_is_refused_and_counts_it) {
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
    EXPECT_EQ(log.status().history_bytes, 0U) << "it is not tried again";
    EXPECT_EQ(errors.text(), "background log write fail: File too large\n");
    log.write("next");
    log.rotate();
    std::string all;
    for (const std::string& name : log.files())
        all += log.folder().content_of(name) + "|";
    EXPECT_EQ(all, "whole|" + std::string(99, 'x') + "|next|");
}

TEST(logging_source_disk, disk_that_does_not_answer_blocks_nobody_who_logs) {
    Traffic_log log;
    log.configure();
    log.enable();
    std::atomic<bool> answers{false};
    {
        Disk disk;
        disk.before_write([&] { eventually([&] { return answers.load(); }); });
        const std::string piece(1000, 'x');
        const Stopwatch watch;
        for (int i = 0; i < 400; ++i) // more than the queue holds
            EXPECT_TRUE(log.write(piece));
        EXPECT_LT(watch.elapsed(), std::chrono::seconds(10));
        const auto dropped = log.dropped();
        EXPECT_GT(dropped, 0U);
        EXPECT_EQ(dropped % 1000, 0U) << "pieces are dropped whole";
        answers = true;
        log.settle();
        EXPECT_EQ(log.content().size() + dropped, 400000U);
    }
}

TEST(logging_source_disk, bytes_that_come_while_a_rotation_is_written_are_dropped_and_counted) {
    Traffic_log log;
    log.keep_history();
    log.write("history");
    std::atomic<bool> goes_on{false};
    Disk disk;
    disk.before_write([&] { eventually([&] { return goes_on.load(); }); });
    logging_source_flush(logging_source_receiver, true); // returns while the disk is still at it
    EXPECT_TRUE(logging_source_is_busy(logging_source_receiver));
    EXPECT_TRUE(log.write("dropped"));
    EXPECT_EQ(log.dropped(), 7U);
    logging_source_flush(logging_source_receiver, true); // does nothing
    goes_on = true;
    EXPECT_TRUE(eventually([&] { return !logging_source_is_busy(logging_source_receiver); }));
    EXPECT_TRUE(log.write("next"));
    EXPECT_TRUE(eventually([&] { return Disk::syncs >= 1; })) << "what was rotated is brought to the medium";
    log.rotate();
    EXPECT_EQ(log.files().size(), 2U);
}

TEST(logging_source_disk, bytes_that_come_before_a_wanted_rotation_begins_belong_to_it) {
    Traffic_log log;
    log.configure();
    log.enable();
    Slow_disk disk;
    log.write("of the file before");
    log.configure(); // closes it, behind what is queued
    log.write("history ");
    std::thread rotation([] { logging_source_flush(logging_source_receiver, true); });
    EXPECT_TRUE(eventually([&] { return log.files().size() == 2; }));
    EXPECT_TRUE(log.write("and later"));
    EXPECT_EQ(log.dropped(), 0U);
    disk.answer();
    rotation.join();
    log.rotate();
    EXPECT_THAT(log.contents(), testing::ElementsAre("of the file before", "history and later", ""));
}

TEST(logging_source_disk, configuring_another_size_does_not_wait_for_the_disk_and_loses_nothing_queued) {
    Traffic_log log;
    log.configure();
    log.enable();
    Slow_disk disk;
    const std::string queued(200000, 'q');
    log.write("taken out");
    EXPECT_TRUE(eventually([&] { return disk.asked() > 0; }));
    log.write(queued);
    log.configure(Traffic_log::long_span, 100000);
    EXPECT_FALSE(disk.has_answered());
    const std::string history(99999, 'h');
    log.write(history);
    log.enable();
    disk.answer();
    log.settle();
    EXPECT_THAT(log.contents(), testing::UnorderedElementsAre("taken out" + queued, history));
    EXPECT_EQ(log.dropped(), 0U);
}

TEST(logging_source_disk, flush_waits_for_what_was_written_before_it_only) {
    Traffic_log log;
    log.configure();
    log.enable();
    Disk disk;
    std::atomic<bool> flushed{false};
    disk.before_write([&] { // whenever something is written, something else comes
        if (!flushed)
            log.write("later ");
    });
    log.write("before ");
    std::thread flush([&] {
        log.settle();
        flushed = true;
    });
    EXPECT_TRUE(eventually([&] { return flushed.load(); }));
    flushed = true; // ends the traffic in any case
    flush.join();
    log.settle();
    EXPECT_EQ(log.content().substr(0, 13), "before later ");
}

TEST(logging_source_disk, rotation_of_a_source_that_is_switched_off_while_it_waits_is_given_up) {
    Traffic_log log;
    log.configure();
    log.enable();
    Slow_disk disk;
    log.write("x");
    EXPECT_TRUE(eventually([&] { return disk.asked() > 0; }));
    std::thread rotation([] { logging_source_flush(logging_source_receiver, true); });
    EXPECT_FALSE(eventually([&] { return log.files().size() > 1; }, std::chrono::milliseconds(50)));
    log.enable(false);
    disk.answer();
    rotation.join();
    EXPECT_EQ(log.files().size(), 1U);
}

TEST(logging_source_disk, many_who_rotate_all_come_back) {
    Traffic_log log;
    log.keep_history();
    Disk disk; // no real sync
    std::atomic<int> back{0};
    std::vector<std::thread> threads;
    for (int caller = 0; caller < 8; ++caller)
        threads.emplace_back([&] {
            for (int i = 0; i < 100; ++i)
                logging_source_flush(logging_source_receiver, true);
            ++back;
        });
    ASSERT_TRUE(eventually([&] { return back == 8; }, std::chrono::seconds(60))) << back;
    for (std::thread& thread : threads)
        thread.join();
}

TEST(logging_source_disk, who_logs_after_the_writers_have_ended_is_not_kept) {
    Traffic_log log(used_in_children);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        alarm(20); // ends what hangs
        log.configure();
        log.enable();
        log.write("written");
        at_the_very_end.action = [&log] {
            log.write("too late");
            log.settle();
            logging_source_flush(used_in_children, true);
            log.configure();
            log.write("kept for nobody");
            log.enable();
            logging_source_flush(used_in_children, true);
        };
        std::exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(log.content(), "written") << "nobody is left to write another";
}

TEST(logging_source_disk, writer_that_cannot_be_started_is_told_of_once_and_blocks_nobody) {
    Traffic_log log(used_in_children);
    const Captured_descriptor errors(2);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        alarm(20); // ends what hangs
        no_more_threads = true;
        log.configure(0, 0);
        log.enable();
        log.enable();
        log.write("dropped");
        log.settle();
        logging_source_flush(used_in_children, true);
        if (log.dropped() != 7 || log.status().path[0] != '\0' || !log.files().empty())
            _exit(1);
        no_more_threads = false;
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

TEST(logging_source_disk, what_waits_for_the_disk_is_told) {
    Traffic_log log;
    log.configure();
    log.enable();
    EXPECT_EQ(log.status().queued, 0U);
    {
        Slow_disk disk;
        log.write("taken out");
        EXPECT_TRUE(eventually([&] { return disk.asked() > 0; }));
        log.write(" and queued");
        log.configure();
        log.enable(); // another file: what is queued for the one before still counts
        log.write("!");
        EXPECT_EQ(log.status().queued, 21U);
        disk.answer();
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

TEST(logging_source_disk, process_that_exits_with_a_full_queue_does_not_wait_long_for_a_dead_disk) {
    Traffic_log log(used_in_children);
    const Stopwatch watch;
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        log.configure();
        log.enable();
        Disk disk;
        disk.before_write([] { pause(); });
        while (log.dropped() == 0)
            log.write(std::string(1000, 'x')); // until the queue is full
        std::exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_LT(watch.elapsed(), std::chrono::seconds(15));
}

TEST(logging_source_disk, killed_process_leaves_the_beginning_of_what_it_wrote) {
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
        EXPECT_TRUE(eventually([&] { return !log.files().empty() && log.content().size() > 1000; }));
        std::this_thread::sleep_for(std::chrono::milliseconds(3 * round));
        kill(child, SIGKILL);
        ASSERT_EQ(waitpid(child, nullptr, 0), child);
        const std::string found = log.content();
        EXPECT_GT(found.size(), 1000U);
        EXPECT_EQ(found, all.substr(0, found.size()));
    }
}

TEST(logging_source_disk, process_killed_between_rotations_leaves_files_that_follow_each_other) {
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
                    log.rotate(); // waits until it is written: nothing is dropped
            }
            _exit(0);
        }
        const unsigned files = random.between(1, 40);
        EXPECT_TRUE(eventually([&] { return log.files().size() > files; }));
        std::this_thread::sleep_for(std::chrono::microseconds(random.between(0, 2000)));
        kill(child, SIGKILL);
        ASSERT_EQ(waitpid(child, nullptr, 0), child);
        std::string found;
        for (const std::string& name : log.files())
            found += log.folder().content_of(name);
        EXPECT_EQ(found, all.substr(0, found.size())) << "in the order of their names";
    }
}

TEST(logging_source_disk, many_callers_beside_the_writer_lose_nothing_uncounted) {
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
    log.enable(); // whatever is still kept goes to a file
    log.settle();
    log.configure(Traffic_log::long_span, 1 << 20);

    Numbered_pieces found;
    for (const std::string& name : log.files())
        found.expect_whole_and_in_order(log.folder().content_of(name));
    EXPECT_EQ(found.bytes() + log.dropped(), written);
}

TEST(logging_source_disk, disk_that_is_full_in_the_middle_of_small_pieces_is_accounted_for_to_the_byte) {
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
