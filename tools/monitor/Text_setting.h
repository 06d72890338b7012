#pragma once

#include <glue/NV_store/NV_item.h>

#include <string>

/// A setting that is a short text. In a file it is an array of characters, one byte each: readers that do not know the
/// setting skip it, and `settings_tool` shows it as a text. A peer receives the number of bytes, then the bytes.
///
/// Acquires no lock: for a tree that one thread uses.
class Text_setting : public NV_store::NV_item {
  public:
    /// Bytes of the longest text: the length of a stored array is one byte.
    static constexpr std::size_t longest = 255;

    /// The first value and the default are "".
    Text_setting(NV_store::NV_container* parent, unsigned short id, const char* name);

    const std::string& text() const { return text_; }
    /// Notifies when the text differs. \return false, with nothing changed, for a text that is too long
    bool set(const std::string& text);

    int get_type() const override;
    int get_dimension() const override;
    [[nodiscard]] bool serialise(NV_store::NV_iterator* it) override;
    bool deserialise(NV_store::NV_iterator* it) override;
    Serial_ret serialise(CDS::Remote::Send_buffer& buffer, unsigned short& counter) override;
    Serial_ret deserialise(CDS::Remote::Receive_buffer& buffer, unsigned short& counter) override;
    bool set_default(bool all) override;
    void _print(Debug::Dumper& dumper, const char* name) const override;

  private:
    std::string text_;
};
