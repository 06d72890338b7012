#pragma once

#include <platform/Remote_buffers.h>
#include <platform/sl_list.h>

#include <cstdint>

namespace DTS {

/// The kinds of data.
struct Defs {
    /// The type of a node of a tree.
    enum Type : unsigned char {
        type_root = 0,
        type_struct = 1,
        type_bool = 2,
        type_char = 3, ///< a character as a number, 0 to 255
        type_uint8 = 4,
        type_uint16 = 5,
        type_uint32 = 6,
        type_int8 = 7,
        type_int16 = 8,
        type_int32 = 9,
        type_float = 10,
        type_double = 11,
        type_list = 13, ///< a container whose children may share their ids
        type_pointer = 14,
        type_uint64 = 15,
        type_int64 = 16,
        type_special_number = 17 ///< a number of any width, whose format only its own class knows
    };
    /// How many values of the type a node has.
    enum Storage_class : unsigned char { single = 0, array = 1, matrix = 2 };
};

} // namespace DTS

/// A piece of data that can be in a list, be found by path or number, be written as text, and be sent to a peer.
class Data_item : public __slnode {
  public:
    /// The result of sending or receiving a subtree, and where it stopped.
    class Serial_ret {
      public:
        Serial_ret() = default;
        explicit Serial_ret(Data_item* failed) : failed_(failed) {}

        bool fail() const { return failed_ != nullptr; }
        /// The item that could not be sent or received; null after success.
        Data_item* failed_item() const { return failed_; }
        /// The item to continue with after the one that failed; null when nothing follows it.
        Data_item* next_item() const { return next_; }
        /// Each container on the path from the failed item to the root calls this with the sibling that follows (null
        /// for none). The first one that is not null is kept: it is the nearest.
        void sync_next(Data_item* next) {
            if (!next_)
                next_ = next;
        }

      private:
        Data_item* failed_ = nullptr;
        Data_item* next_ = nullptr;
    };

    /// Is notified when a value changes.
    class Change_hook {
      public:
        virtual void changed(bool changed) = 0;
        virtual ~Change_hook() = default;
    };

    /// Assigns the item the next number of the program: 0 to 65534, then 0 again.
    Data_item();
    virtual ~Data_item() = default;

    // ---- Lookup: by the path of names below this item, by number ----

    virtual Data_item* find_data_item(const char* path) = 0;
    virtual Data_item* find_data_item(unsigned short number) = 0;

    // ---- Values for a peer ----
    //
    // `counter` is the number of items to skip, at most 32767. Each item decrements it, and acts only if it was 0 or
    // negative before. Afterwards the difference is the number of items reached; it stops at -32768 (0x8000).

    virtual Serial_ret serialise(CDS::Remote::Send_buffer& buffer, unsigned short& counter) = 0;
    virtual Serial_ret deserialise(CDS::Remote::Receive_buffer& buffer, unsigned short& counter) = 0;
    /// Sends the structure (names, types and numbers of the items) instead of the values.
    /// \param depth  levels below this one; 255 or more: all
    /// \return whether all of it fitted
    virtual bool serialise_structure(CDS::Remote::Send_buffer& buffer, int depth) = 0;

    /// \return characters written, without the NUL
    virtual int _to_string(char* buf, int len) const = 0;

    // ---- Attributes ----

    unsigned short data_number() const { return number_; }
    void set_data_number(unsigned short number) { number_ = number; }
    Change_hook* change_hook() const { return hook_; }
    /// The hook is not owned; null for none.
    void set_change_hook(Change_hook* hook) { hook_ = hook; }

    // ---- The type byte: the dimension in the two top bits, the type in the others ----

    static unsigned char get_type_byte(int dimension, int type);
    static void decode_type_byte(unsigned char byte, int& dimension, int& type);

  protected:
    Data_item(const Data_item&) = default;
    Data_item& operator=(const Data_item&) = default;

    /// Counts an item. \return whether it is to act, rather than to be skipped
    static bool serial_action_started(unsigned short& counter);
    static Serial_ret serial_ok() { return {}; }
    /// The result of an action of this item.
    Serial_ret serial_check(bool success) { return success ? Serial_ret() : Serial_ret(this); }

    /// Appends the description of an item: "name:type byte:number", the numbers in decimal.
    /// \return whether it fitted
    bool append_description(CDS::Remote::Send_buffer& buffer, const char* name, unsigned char type_byte) const;

  private:
    unsigned short number_;
    Change_hook* hook_ = nullptr;
};
