#pragma once

#include <support/builders/Random.h>
#include <support/streams/Stream_end.h>

#include <QCryptographicHash>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <gtest/gtest.h>
#include <thread>

/// Random bytes on their way from one end of a channel to the other, written in pieces of random sizes by one thread
/// and read by another. Several at a time run both ways at once, or through several channels.
///
///     Transfer there(near, far, 8 << 20, random);
///     Transfer back(far, near, 8 << 20, random);
///     EXPECT_TRUE(there.arrived());
///
/// Both sides take a digest of what passes; the bytes themselves are kept by nobody.
class Transfer {
  public:
    Transfer(Stream_end& from, Stream_end& to, std::size_t amount, Random& random);
    ~Transfer();
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    /// Waits for the end. \return whether what was read is what was written; says what is wrong otherwise
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
