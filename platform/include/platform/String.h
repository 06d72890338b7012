#pragma once

#include <string_view>

/// A text in storage of a fixed size, always terminated; longer texts are cut. Allocates nothing.
class String_base {
  public:
    const char* c_str() const { return storage_; }
    unsigned length() const { return length_; }
    /// Characters that the storage can hold, without the NUL.
    unsigned capacity() const { return capacity_; }
    std::string_view view() const { return {storage_, length_}; }

    /// Copies as much of a text as fits; it may be a part of this one. \return whether all of it fitted
    bool assign(std::string_view text) {
        length_ = text.size() < capacity_ ? static_cast<unsigned>(text.size()) : capacity_;
        std::char_traits<char>::move(storage_, text.data(), length_);
        storage_[length_] = '\0';
        return length_ == text.size();
    }

    String_base(const String_base&) = delete;
    String_base& operator=(const String_base&) = delete;

  protected:
    /// \param storage  `capacity` + 1 characters
    String_base(char* storage, unsigned capacity) : storage_(storage), capacity_(capacity), length_(0) {
        storage_[0] = '\0';
    }
    ~String_base() = default;

  private:
    char* storage_;
    unsigned capacity_;
    unsigned length_;
};

/// The same with its own storage for `characters`.
template <unsigned characters>
class String : public String_base {
  public:
    String() : String_base(own_storage_, characters) {}
    explicit String(std::string_view text) : String() { assign(text); }
    String(const String& other) : String(other.view()) {}
    String& operator=(const String& other) {
        if (this != &other)
            assign(other.view());
        return *this;
    }

  private:
    char own_storage_[characters + 1];
};
