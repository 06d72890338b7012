#pragma once

#include <glue/vesk/GNSS_message.h>

#include <cstdint>

// Messages that consist of blocks. They have no identifier: the application knows already what such a frame is.

namespace GNSS_messages {

/// The part that these messages have in common: the number of blocks at offset 5, then the blocks.
class GLUE_EXPORT GNSS_block_message : public GNSS_message {
  public:
    using GNSS_message::GNSS_message;
    ~GNSS_block_message() override;

    /// The number of blocks that the message claims to have.
    std::uint8_t get_num_blocks() const { return get(num_blocks); }
    bool set_num_blocks(std::uint8_t count) { return set(num_blocks, count); }

  private:
    static constexpr Field<std::uint8_t> num_blocks{5};
};

/// Position with a main and a fallback solution: up to two blocks. Every operation ends the process when the message
/// claims more.
class GLUE_EXPORT Msg_PA : public GNSS_block_message {
  public:
    /// One solution, field by field as on the wire, where it takes 53 bytes. The library does not interpret it.
    struct block_t {
        double position[3];
        float values[5];
        std::uint8_t type;
        float extra[2];
    };

    using GNSS_block_message::GNSS_block_message;
    ~Msg_PA() override;

    // ---- Blocks: 1 is the main solution, 2 the fallback ----

    /// \return false, with `block` unchanged, when the message has no such block
    bool get_main(block_t& block) const;
    bool get_fallback(block_t& block) const;
    /// \return false when the message has no such block, with nothing written, or is too short for it, with the fields
    ///         written that fit
    bool set_main(const block_t& block);
    bool set_fallback(const block_t& block);

  private:
    bool get_block(int number, block_t& block) const;
    bool set_block(int number, const block_t& block);
};

/// Finds block `block` (1 main, 2 fallback) of a message. Ends the process when the message claims more than two.
/// \return its offset; -1 when the message has no such block
GLUE_EXPORT int get_PA_block_offset(const Msg_PA& message, int block);

/// A chain of up to three blocks: kind, length n, n bytes of content. Every operation ends the process when the message
/// claims more.
class GLUE_EXPORT Msg_S1 : public GNSS_block_message {
  public:
    /// The content of a block. The library does not interpret it.
    struct block_t {
        std::uint32_t number;
        std::uint16_t values[4];
    };

    using GNSS_block_message::GNSS_block_message;
    ~Msg_S1() override;

    /// Reads the first block of kind 1. \return false, with `block` unchanged, when there is none
    bool get_hp(block_t& block) const;
    /// The same for kind 2.
    bool get_ts(block_t& block) const;
    /// The same for kind 3.
    bool get_vbs(block_t& block) const;

  private:
    bool get_block(int kind, block_t& block) const;
};

/// The same chain with two texts in each block.
class GLUE_EXPORT Msg_S2 : public GNSS_block_message {
  public:
    /// The content of a block. The library does not interpret it.
    struct block_t {
        std::uint16_t code;
        std::uint32_t number;
        std::uint8_t length_a; ///< as on the wire; it may exceed the length of `text_a`
        char text_a[32];       ///< at most 31 characters, then NUL
        std::uint8_t length_b; ///< as on the wire; it may exceed the length of `text_b`
        char text_b[32];       ///< at most 31 characters, then NUL
    };

    using GNSS_block_message::GNSS_block_message;
    ~Msg_S2() override;

    /// Reads the first block of kind 1. \return false, with `block` unchanged, when there is none
    bool get_hp(block_t& block) const;
    /// The same for kind 2.
    bool get_ts(block_t& block) const;
    /// The same for kind 3.
    bool get_vbs(block_t& block) const;

  private:
    bool get_block(int kind, block_t& block) const;
};

/// Where the first block of a kind (1 hp, 2 ts, 3 vbs) begins, for `Msg_S1` and `Msg_S2`. Ends the process when the
/// message claims more than 3 blocks.
/// \return the offset of its kind byte; -1 when there is none among the blocks that the message claims to have
template <typename Message>
GLUE_EXPORT int get_S1S2_block_offset(const Message& message, int kind);

extern template int get_S1S2_block_offset(const Msg_S1& message, int kind);
extern template int get_S1S2_block_offset(const Msg_S2& message, int kind);

} // namespace GNSS_messages
