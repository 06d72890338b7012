#pragma once

#include <glue/NV_store/NV_item.h>

namespace NV_store {

/// A node that holds other nodes, in the order in which they were added.
///
/// See `NV_item` for ownership, the lock and a sample. Not copyable: its children can have one parent only.
///
/// **Lists** (type 13) may have several children with one id. Only their order distinguishes their records: those
/// children must follow each other in the list, and a save that leaves out one of them (any incremental save, or
/// `writing_set`) is loaded into the wrong ones. Save such a tree with `NV_safe_file_iterator::save`, which writes
/// these lists whole, or with `writing_all`.
class GLUE_EXPORT NV_container : public NV_item {
  public:
    NV_container(NV_container* parent, NV_root* root, unsigned short id, const char* name);
    NV_container(unsigned short id, const char* name);
    NV_container(const NV_container&) = delete;
    NV_container& operator=(const NV_container&) = delete;

    using NV_item::deserialise;
    using NV_item::find_data_item;
    using NV_item::serialise;

    // ---- Virtual operations: their order is part of the binary interface ----

    /// Writes an opening header, the children, a closing header, and a checksum over all of these.
    [[nodiscard]] bool serialise(NV_iterator* it) override;
    /// Reads the same, with the children in any order; skips records that have no node in the tree. Children without a
    /// record keep their values. When the checksum is wrong, every child is set to its default.
    bool deserialise(NV_iterator* it) override;
    int build_path(NV_path* path, const NV_item* target) const override;
    NV_item* __follow_path(NV_path* path) override;
    /// With `all` every child, until one fails; without it nothing.
    bool set_default(bool all) override;
    void _set_root(NV_root* root) override;
    Data_item* find_data_item(const char* path) override;
    Data_item* find_data_item(unsigned short number) override;
    Serial_ret serialise(CDS::Remote::Send_buffer& buffer, unsigned short& counter) override;
    Serial_ret deserialise(CDS::Remote::Receive_buffer& buffer, unsigned short& counter) override;
    /// Describes the node, and, unless `depth` is 0, its children: "name:type:number{child,child}".
    bool serialise_structure(CDS::Remote::Send_buffer& buffer, int depth) override;
    /// The application calls it once its tree is complete, so that a lookup by number can skip branches.
    void set_minmax(unsigned short& lo, unsigned short& hi) override;
    /// The children's texts between braces, with commas: "{1,{2,3}}". Texts that do not fit are left out.
    /// \return characters written, without the NUL
    int _to_string(char* buf, int len) const override;
    const char* _from_string(const char* text) override;
    /// Acquires the lock for a lookup below a child that is addressed by position, unless the calling thread holds it
    /// already.
    NV_item* _search(const char* spec, char separator) override;
    void signal_all(NV_root* root) override;
    NV_item* get_next_in_tree(NV_item* stop) override;
    void _print(Debug::Dumper& dumper, const char* name) const override;

    /// The child at a position, counted from 0. Without such a child an assertion ends the process.
    virtual NV_item* operator[](int i);
    /// The range of data numbers that the last `set_minmax` found; 0xFFFF for both before the first.
    virtual void get_minmax(unsigned short& lo, unsigned short& hi);
    /// Whether children are addressed by name; false: by position.
    virtual bool children_named() const;

    // ---- Children ----

    /// Appends a child. When another child has the same id, the process ends with status -119, after a message: two
    /// settings would share one record. Only a container of type 13 accepts every child.
    /// The child's parent is left unchanged; see `_set_parent`.
    /// \return false when the child is in another container; true, with nothing changed, for a null child
    bool add_child(NV_item* child);
    /// \return whether it was a child of this container
    bool remove_child(NV_item* child);
    /// The position of a child; -1 for null and for a node that is not a child.
    int get_my_index(const NV_item* child) const;
    NV_item* get_first_child() const;
    /// The child after another; null at the end, for null and for a node that is not a child.
    NV_item* get_next_child(const NV_item* child) const;

    /// The children in their order, for a range-based `for`. An addition of ours.
    class Children {
      public:
        class Iterator {
          public:
            Iterator(const NV_container& container, NV_item* child) : container_(container), child_(child) {}
            NV_item* operator*() const { return child_; }
            Iterator& operator++() {
                child_ = container_.get_next_child(child_);
                return *this;
            }
            bool operator!=(const Iterator& other) const { return child_ != other.child_; }

          private:
            const NV_container& container_;
            NV_item* child_;
        };

        explicit Children(const NV_container& container) : container_(container) {}
        Iterator begin() const { return {container_, container_.get_first_child()}; }
        Iterator end() const { return {container_, nullptr}; }

      private:
        const NV_container& container_;
    };
    /// The loop may add children. It ends when its body removes the child that it has reached.
    Children children() const { return Children(*this); }

    NV_root* get_root() const { return root_; }

    /// Skips the record of a container that has no node in the tree. \return false when it is damaged
    static bool deserialise_unknown(NV_iterator* it);

  private:
    void exit_if_duplicate(const NV_item* child) const;
    NV_item* child_at(int position) const;
    NV_item* search_by_position(const char* component, const char* rest, char separator);
    NV_item* search_by_name(const char* component, const char* rest, char separator);
    bool load_children(NV_iterator* it);
    bool is_intact(NV_iterator* it, std::uint32_t computed);
    template <typename Buffer, typename Operation>
    Serial_ret for_each_child(Buffer& buffer, unsigned short& counter, Operation operation);

    NV_root* root_;
    unsigned short min_id_ = 0xFFFF;
    unsigned short max_id_ = 0xFFFF;
    sl_list children_;
    [[maybe_unused]] std::uint32_t reserved_ = 0; ///< keeps the layout
};

/// A container whose children are members with names: the base of an application's settings structures.
class GLUE_EXPORT NV_struct : public NV_container {
  public:
    using NV_container::NV_container;

    int get_type() const override;
};

} // namespace NV_store
