#pragma once

#include <glue/NV_store/NV_item.h>

#include <string>

/// A setting that is a short text: in a file an array of characters, one byte each, which readers that do not know the
/// setting pass over and `settings_tool` shows as a text. A peer is sent the number of bytes, then the bytes.
///
/// Takes no lock: for a tree that one thread uses.
class Text_setting : public NV_store::NV_item {
  public:
    /// Bytes of the longest text: the length of a stored array is one byte.
    static constexpr std::size_t longest = 255;

    /// Begins, and defaults, with no text.
    Text_setting(NV_store::NV_container* parent, unsigned short id, const char* name);

    const std::string& text() const { return text_; }
    /// Tells of the change, if it is one. \return false, with nothing changed, for a text that is too long
    bool set(const std::string& text);

    int get_type() const override;
    int get_dimension() const override;
    bool serialise(NV_store::NV_iterator* it) override;
    bool deserialise(NV_store::NV_iterator* it) override;
    Serial_ret serialise(CDS::Remote::Send_buffer& buffer, unsigned short& counter) override;
    Serial_ret deserialise(CDS::Remote::Receive_buffer& buffer, unsigned short& counter) override;
    bool set_default(bool all) override;
    void _print(Debug::Dumper& dumper, const char* name) const override;

  private:
    std::string text_;
};
