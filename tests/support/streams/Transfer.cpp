#include <support/streams/Transfer.h>

#include <support/checks/Patience.h>

#include <algorithm>
#include <array>

namespace {

using Piece = std::array<unsigned char, 8192>;

const char* chars(const unsigned char* bytes) {
    return reinterpret_cast<const char*>(bytes);
}

} // namespace

Transfer::Transfer(Stream_end& from, Stream_end& to, std::size_t amount, Random& random)
    : from_(from), to_(to), amount_(amount), random_(random.engine()()), writer_([this] { write(); }), reader_([this] {
          read();
      }) {}

Transfer::~Transfer() {
    arrived();
}

testing::AssertionResult Transfer::arrived() {
    if (writer_.joinable())
        writer_.join();
    if (reader_.joinable())
        reader_.join();
    if (written_ != amount_ || read_ != amount_)
        return testing::AssertionFailure() << written_ << " bytes of " << amount_ << " written, " << read_ << " read";
    if (written_digest_.result() != read_digest_.result())
        return testing::AssertionFailure() << "not the bytes that were written";
    return testing::AssertionSuccess();
}

void Transfer::write() {
    Piece piece;
    const std::size_t longest = std::min<std::size_t>(piece.size(), from_.manners().longest_piece);
    while (written_ < amount_) {
        const std::size_t count = std::min<std::size_t>(amount_ - written_, 1 + random_() % longest);
        std::generate_n(piece.begin(), count, [this] { return static_cast<unsigned char>(random_()); });
        written_digest_.addData(chars(piece.data()), static_cast<int>(count));
        if (!write_piece(piece.data(), count))
            return;
    }
}

bool Transfer::write_piece(const unsigned char* bytes, std::size_t count) {
    Patience patience;
    while (count > 0 && patience.lasts()) {
        const std::size_t accepted = from_.write(bytes, count);
        if (accepted == 0) {
            from_.wait_for_free_space();
            continue;
        }
        bytes += accepted;
        count -= accepted;
        written_ += accepted;
        patience.renew();
    }
    while (from_.manners().piece_by_piece && read_ < written_ && patience.lasts())
        std::this_thread::yield();
    return patience.lasts();
}

void Transfer::read() {
    Piece piece;
    Patience patience;
    while (read_ < amount_ && patience.lasts()) {
        const std::size_t count = to_.read(piece.data(), piece.size());
        if (count == 0) {
            to_.wait_for_bytes();
            continue;
        }
        read_digest_.addData(chars(piece.data()), static_cast<int>(count));
        read_ += count;
        patience.renew();
    }
}
