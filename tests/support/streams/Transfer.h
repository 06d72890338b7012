#pragma once

#include <support/builders/Random.h>
#include <support/streams/Stream_end.h>

#include <QCryptographicHash>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <thread>

/// Transfers random bytes from one end of a channel to the other: one thread writes them in pieces of random sizes,
/// another one reads them. Several transfers may run at the same time, in both directions or through several channels.
///
///     Transfer there(near, far, 8 << 20, random);
///     Transfer back(far, near, 8 << 20, random);
///     EXPECT_TRUE(there.arrived());
///
/// Both sides compute a digest; the bytes themselves are not kept.
class Transfer {
  public:
    Transfer(Stream_end& from, Stream_end& to, std::size_t amount, Random& random);
    ~Transfer();
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    /// Waits for the end. \return whether the written bytes were read; a failure has the reason
    testing::AssertionResult arrived();

  private:
    void write();
    void read();
    bool write_piece(const unsigned char* bytes, std::size_t count);

    Stream_end& from_;
    Stream_end& to_;
    const std::size_t amount_;
    std::mt19937 random_;
    QCryptographicHash written_digest_{QCryptographicHash::Sha1};
    QCryptographicHash read_digest_{QCryptographicHash::Sha1};
    std::atomic<std::size_t> written_{0};
    std::atomic<std::size_t> read_{0};
    std::thread writer_;
    std::thread reader_;
};
