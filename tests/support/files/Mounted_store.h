#pragma once

#include <platform/pcf.h>

#include <support/files/Temporary_folder.h>

#include <gtest/gtest.h>
#include <string>

/// A file store in a folder of its own, mounted as long as the object lives.
class Mounted_store {
  public:
    explicit Mounted_store(std::uint32_t total = 16384) : total_(total) { EXPECT_TRUE(mount()); }
    ~Mounted_store() { pcfUnmount(); }
    Mounted_store(const Mounted_store&) = delete;
    Mounted_store& operator=(const Mounted_store&) = delete;

    bool mount() const { return pcfMount(folder.path().c_str(), total_); }

    /// Creates a file with this content.
    void make_file(const std::string& name, const std::string& content) const {
        EXPECT_TRUE(pcfCreateWrite(name.c_str(), nullptr)) << name;
        EXPECT_EQ(pcfWrite(content.data(), static_cast<int>(content.size()), -1), static_cast<int>(content.size()));
        EXPECT_TRUE(pcfCloseWrite(-1));
    }

    /// The whole content of a file.
    std::string content_of(const std::string& name) const { return folder.content_of(name); }

    /// The free bytes of the store.
    std::uint32_t free() const {
        PcfInfo info{};
        EXPECT_TRUE(pcfInfo(info));
        return info.free;
    }

    Temporary_folder folder;

  private:
    std::uint32_t total_;
};
