// Threads that use the file store at the same time.

#include <platform/pcf.h>

#include <support/files/Mounted_store.h>

#include <atomic>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int rounds = 30;
const std::string record = "one record of a writer\n";

/// Appends a record to the file. \return false when the store is busy
bool append_record(const std::string& name) {
    const bool exists = pcfExists(name.c_str()) != 0;
    if (exists ? pcfOpenWrite(name.c_str(), nullptr) == 0 : pcfCreateWrite(name.c_str(), nullptr) == 0)
        return false;
    EXPECT_EQ(pcfWrite(record.data(), static_cast<int>(record.size()), -1), static_cast<int>(record.size()));
    EXPECT_TRUE(pcfCloseWrite(-1));
    return true;
}

/// Reads a file to its end and expects whole records. \return false when the store is busy
bool read_records(const std::string& name) {
    if (pcfOpenRead(name.c_str(), 0, nullptr) != pcf_ok)
        return false;
    std::string content;
    char piece[50];
    PcfResult result = pcf_ok;
    for (int count = 0; (count = pcfRead(piece, sizeof piece, result, 0)) > 0;)
        content.append(piece, static_cast<std::size_t>(count));
    EXPECT_EQ(result, pcf_ok);
    EXPECT_EQ(pcfCloseRead(0), pcf_ok);
    EXPECT_EQ(content.size() % record.size(), 0U);
    for (std::size_t i = 0; i < content.size(); i += record.size())
        EXPECT_EQ(content.substr(i, record.size()), record);
    return true;
}

TEST(pcf_threads, take_turns_and_lose_nothing) {
    const Mounted_store store(1000000);
    const std::vector<std::string> names = {"a", "b", "c"};
    std::atomic<bool> done{false};
    std::vector<std::thread> writers;
    for (const std::string& name : names)
        writers.emplace_back([&name] {
            for (int written = 0; written < rounds;) {
                if (append_record(name))
                    ++written;
                else
                    std::this_thread::yield();
            }
        });
    std::vector<std::thread> others;
    for (int i = 0; i < 2; ++i)
        others.emplace_back([&] {
            while (!done)
                for (const std::string& name : names)
                    read_records(name);
        });
    others.emplace_back([&] {
        PcfInfo info{};
        char name[pcf_longest_name + 1];
        while (!done) {
            EXPECT_TRUE(pcfInfo(info));
            EXPECT_LE(info.free, info.total);
            for (int i = 0; i < pcfGetNumFiles(); ++i)
                pcfGetFileName(i, name);
            EXPECT_FALSE(pcfRemove("none"));
            EXPECT_TRUE(pcfIsMounted(nullptr));
        }
    });
    for (std::thread& writer : writers)
        writer.join();
    done = true;
    for (std::thread& other : others)
        other.join();
    EXPECT_EQ(store.free(), 1000000 - names.size() * rounds * record.size());
    for (const std::string& name : names)
        EXPECT_EQ(store.content_of(name).size(), rounds * record.size());
}

} // namespace
