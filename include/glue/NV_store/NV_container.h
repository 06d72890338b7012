#pragma once

#include <glue/NV_store/NV_item.h>

namespace NV_store {

/// A node that holds other nodes, in the order in which they were added.
///
/// See `NV_item` for ownership, the lock and a sample. Not copyable: its children can have one parent only.
class GLUE_EXPORT NV_container : public NV_item {
  public:
    NV_container(NV_container* parent, NV_root* root, unsigned short id, const char* name);
    NV_container(unsigned short id, const char* name);
    NV_container(const NV_container&) = delete;
    NV_container& operator=(const NV_container&) = delete;

    using NV_item::deserialise;
    using NV_item::find_data_item;
    using NV_item::serialise;

    // Virtual operations: their order is part of the binary interface.

    /// Writes an opening header, the children, a closing header, and a checksum over all of that.
    bool serialise(NV_iterator* it) override;
    /// Reads the same, in whatever order the children come; passes over what the tree has no node for. Children
    /// that are not there keep their values. When the checksum is wrong every child goes back to its default.
    bool deserialise(NV_iterator* it) override;
    int build_path(NV_path* path, const NV_item* target) const override;
    NV_item* __follow_path(NV_path* path) override;
    /// With `all` every child, until one refuses; without it nothing.
    bool set_default(bool all) override;
    void _set_root(NV_root* root) override;
    Data_item* find_data_item(const char* path) override;
    Data_item* find_data_item(unsigned short number) override;
    Serial_ret serialise(CDS::Remote::Send_buffer& buffer, unsigned short& counter) override;
    Serial_ret deserialise(CDS::Remote::Receive_buffer& buffer, unsigned short& counter) override;
    /// Describes the node, and, unless `depth` is 0, its children: "name:type:number{child,child}".
    bool serialise_structure(CDS::Remote::Send_buffer& buffer, int depth) override;
    /// To be called by the application once its tree stands, so that looking up by number can leave branches out.
    void set_minmax(unsigned short& lo, unsigned short& hi) override;
    /// The children's texts between braces, with commas: "{1,{2,3}}". What has no room is left out.
    /// \return characters written, without the NUL
    int _to_string(char* buf, int len) const override;
    const char* _from_string(const char* text) override;
    /// Takes the lock itself where a child is addressed by position and something is looked up below it, unless the
    /// calling thread holds it already.
    NV_item* _search(const char* spec, char separator) override;
    void signal_all(NV_root* root) override;
    NV_item* get_next_in_tree(NV_item* stop) override;
    void _print(Debug::Dumper& dumper, const char* name) const override;

    /// The child at a position, counted from 0. There has to be one: an assertion stops the process otherwise.
    virtual NV_item* operator[](int i);
    /// The range of data numbers found by the last `set_minmax`; 0xFFFF for both before that.
    virtual void get_minmax(unsigned short& lo, unsigned short& hi);
    /// Whether children are addressed by name; false: by position.
    virtual bool children_named() const;

    // ---- Children ----

    /// Puts a child behind the others. An id that a child has already ends the process with status -119, after a
    /// message: two settings would share one record. Only a container of type 13 takes every child.
    /// The child's own parent stays what it is; see `_set_parent`.
    /// \return false when the child sits in another container; true, too, for a null child, which changes nothing
    bool add_child(NV_item* child);
    /// \return whether it was a child of this container
    bool remove_child(NV_item* child);
    /// The position of a child; -1 for null and for what is no child.
    int get_my_index(const NV_item* child) const;
    NV_item* get_first_child() const;
    /// The child behind another; null at the end, for null and for what is no child.
    NV_item* get_next_child(const NV_item* child) const;

    NV_root* get_root() const { return root_; }

    /// Passes over the record of a container that no node is there for. \return false when it is damaged
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

/// A container whose children are members with names: what applications derive their settings structures from.
class GLUE_EXPORT NV_struct : public NV_container {
  public:
    using NV_container::NV_container;

    int get_type() const override;
};

} // namespace NV_store
