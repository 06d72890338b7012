#pragma once

#include <platform/Remote_buffers.h>
#include <platform/sl_list.h>

#include <cstdint>

namespace DTS {

/// What kinds of data there are.
struct Defs {
    /// What a node of a tree is.
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
        type_special_number = 17 ///< a number of any width that only those who know it can read
    };
    /// How many values of the type there are.
    enum Storage_class : unsigned char { single = 0, array = 1, matrix = 2 };
};

} // namespace DTS

/// A piece of data that has a number, a place in a list, and ways to be found, written as text, and sent to a peer.
class Data_item : public __slnode {
  public:
    /// How sending or receiving a subtree went, and where it stopped.
    class Serial_ret {
      public:
        Serial_ret() = default;
        explicit Serial_ret(Data_item* failed) : failed_(failed) {}

        bool fail() const { return failed_ != nullptr; }
        /// The item that could not be sent or received; null when all went well.
        Data_item* failed_item() const { return failed_; }
        /// The item to go on with, beyond the one that failed; null when nothing follows it.
        Data_item* next_item() const { return next_; }
        /// Told on the way up from the item that failed: what follows it (null: nothing) among its siblings, then among
        /// its parent's, and so on. The nearest is kept.
        void sync_next(Data_item* next) {
            if (!next_)
                next_ = next;
        }

      private:
        Data_item* failed_ = nullptr;
        Data_item* next_ = nullptr;
    };

    /// Whoever is to know when a value changes.
    class Change_hook {
      public:
        virtual void changed(bool changed) = 0;
        virtual ~Change_hook() = default;
    };

    /// Numbers count up from 0 in the order in which a program makes its items; 65535 is left out.
    Data_item();
    virtual ~Data_item() = default;

    // ---- Looking up: by the path of names below this item, by number ----

    virtual Data_item* find_data_item(const char* path) = 0;
    virtual Data_item* find_data_item(unsigned short number) = 0;

    // Values for a peer
    //
    // `counter` says how many items are to be passed over, at most 32767: each counts it down by one, and acts only
    // when it has come to 0 already; it then goes on down, so that the difference tells how many items were reached,
    // and stays at -32768 (0x8000) when there are more.

    virtual Serial_ret serialise(CDS::Remote::Send_buffer& buffer, unsigned short& counter) = 0;
    virtual Serial_ret deserialise(CDS::Remote::Receive_buffer& buffer, unsigned short& counter) = 0;
    /// Sends what there is rather than its values.
    /// \param depth  levels below this one; 255 or more: all
    /// \return whether all of it had room
    virtual bool serialise_structure(CDS::Remote::Send_buffer& buffer, int depth) = 0;

    /// \return characters written, without the NUL
    virtual int _to_string(char* buf, int len) const = 0;

    // ---- What an item knows of itself ----

    unsigned short data_number() const { return number_; }
    void set_data_number(unsigned short number) { number_ = number; }
    Change_hook* change_hook() const { return hook_; }
    /// The hook is not owned; null: nobody is to know.
    void set_change_hook(Change_hook* hook) { hook_ = hook; }

    // The byte that tells dimension and type: the dimension in the two top bits, the type in the others

    static unsigned char get_type_byte(int dimension, int type);
    static void decode_type_byte(unsigned char byte, int& dimension, int& type);

  protected:
    Data_item(const Data_item&) = default;
    Data_item& operator=(const Data_item&) = default;

    /// Whether an item is to act; counts it.
    static bool serial_action_started(unsigned short& counter);
    static Serial_ret serial_ok() { return {}; }
    /// The result of an action of this item.
    Serial_ret serial_check(bool success) { return success ? Serial_ret() : Serial_ret(this); }

    /// Describes an item: "name:type byte:number", the numbers in decimal.
    /// \return whether there was room
    bool append_description(CDS::Remote::Send_buffer& buffer, const char* name, unsigned char type_byte) const;

  private:
    unsigned short number_;
    Change_hook* hook_ = nullptr;
};
