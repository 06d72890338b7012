#include <glue/NV_store/NV_container.h>

#include "NV_store/tree_mutex.h"
#include "detail/Lock_unless_held.h"
#include "detail/assertion.h"

#include <glue/NV_store/NV_record.h>

#include <platform/Debug.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace NV_store {

namespace {

constexpr int duplicate_id_status = -119;
constexpr int unlimited_depth = 255;

/// Skips blanks and one character. \return null when another character is there
const char* after(const char* text, char character) {
    text += std::strspn(text, " \t");
    return *text == character ? text + 1 : nullptr;
}

/// A checksum that is registered with an iterator from its construction until `remove` or until it is destroyed.
class Registered_checksum : public NV_iterator::NV_checksum {
  public:
    explicit Registered_checksum(NV_iterator* it) : it_(it) { it_->add_checksum_getter(this); }
    ~Registered_checksum() { remove(); }
    Registered_checksum(const Registered_checksum&) = delete;
    Registered_checksum& operator=(const Registered_checksum&) = delete;

    void remove() {
        if (it_)
            it_->remove_checksum_getter(this);
        it_ = nullptr;
    }

  private:
    NV_iterator* it_;
};

/// The children by id; those with the same id in the order of the list. Keeps loading fast for containers with many
/// children. Most containers list their children by id already.
class Children_by_id {
  public:
    explicit Children_by_id(const NV_container& container) {
        for (NV_item* child : container.children())
            children_.push_back(child);
        const auto by_id = [](const NV_item* a, const NV_item* b) { return a->get_id() < b->get_id(); };
        if (!std::is_sorted(children_.begin(), children_.end(), by_id))
            std::stable_sort(children_.begin(), children_.end(), by_id);
    }

    using Children = std::vector<NV_item*>;
    struct Range {
        Children::const_iterator first;
        Children::const_iterator last;
        Children::const_iterator begin() const { return first; }
        Children::const_iterator end() const { return last; }
        bool empty() const { return first == last; }
    };

    Range with_id(unsigned short id) const {
        const auto first = std::lower_bound(children_.begin(), children_.end(), id,
                                            [](const NV_item* child, unsigned short i) { return child->get_id() < i; });
        auto last = first;
        while (last != children_.end() && (*last)->get_id() == id)
            ++last;
        return {first, last};
    }

  private:
    Children children_;
};

/// Writes a container's text into a buffer of fixed size.
class Text_writer {
  public:
    Text_writer(char* buf, int len) : buf_(buf), len_(len) {}

    int count() const { return count_; }
    int free_space() const { return len_ - count_; }
    char* position() const { return buf_ + count_; }

    /// Writes a character and a NUL after it, if both fit.
    void put(char character) {
        if (free_space() < 2)
            return;
        buf_[count_++] = character;
        buf_[count_] = '\0';
    }
    /// Counts the characters that a child has written at `position`.
    void add(int written) {
        if (written > 0)
            count_ += written;
    }

  private:
    char* buf_;
    int len_;
    int count_ = 0;
};

} // namespace

NV_container::NV_container(NV_container* parent, NV_root* root, unsigned short id, const char* name)
    : NV_item(parent, id, name, Node_kind::container), root_(root) {}

NV_container::NV_container(unsigned short id, const char* name) : NV_container(nullptr, nullptr, id, name) {}

// ---- Children ----

bool NV_container::add_child(NV_item* child) {
    if (!child)
        return true;
    if (get_type() != DTS::Defs::type_list)
        exit_if_duplicate(child);
    return children_.push_back(child);
}

/// On purpose the application cannot recover from it: its settings tree is wrong.
void NV_container::exit_if_duplicate(const NV_item* child) const {
    for (const NV_item* present : children()) {
        if (present->get_id() != child->get_id())
            continue;
        Debug::Print::dprint("Duplicate NV_store ID %s:%d %s:%d in %s\n", child->get_name(), child->get_id(),
                             present->get_name(), present->get_id(), get_name());
        std::exit(duplicate_id_status);
    }
}

bool NV_container::remove_child(NV_item* child) {
    return children_.remove(child);
}

NV_item* NV_container::get_first_child() const {
    return static_cast<NV_item*>(children_.first());
}

NV_item* NV_container::get_next_child(const NV_item* child) const {
    return static_cast<NV_item*>(children_.next(child));
}

NV_item* NV_container::child_at(int position) const {
    for (NV_item* child : children())
        if (position-- == 0)
            return child;
    return nullptr;
}

NV_item* NV_container::operator[](int i) {
    NV_item* const ret = child_at(i);
    GLUE_ASSERT(ret != NULL); // NOLINT(modernize-use-nullptr): these very words are printed
    return ret;
}

int NV_container::get_my_index(const NV_item* child) const {
    int index = 0;
    for (const NV_item* present : children()) {
        if (present == child)
            return index;
        ++index;
    }
    return -1;
}

void NV_container::_set_root(NV_root* root) {
    root_ = root;
    for (NV_item* child : children())
        child->_set_root(root);
}

bool NV_container::children_named() const {
    return true;
}

// ---- Paths of ids ----

int NV_container::build_path(NV_path* path, const NV_item* target) const {
    if (target == this)
        return path->push(this) ? 0 : -1;
    for (const NV_item* child : children())
        if (child->build_path(path, target) == 0)
            return path->push(this) ? 0 : -1;
    return -1;
}

NV_item* NV_container::__follow_path(NV_path* path) {
    unsigned short id = 0;
    if (!path->last(id) || id != get_id())
        return nullptr;
    path->pop(id);
    if (path->fill() == 0)
        return this;
    for (NV_item* child : children())
        if (NV_item* const found = child->__follow_path(path))
            return found;
    path->push(id);
    return nullptr;
}

// ---- Data numbers and names ----

void NV_container::set_minmax(unsigned short& lo, unsigned short& hi) {
    min_id_ = max_id_ = data_number();
    for (NV_item* child : children())
        child->set_minmax(min_id_, max_id_);
    lo = std::min(lo, min_id_);
    hi = std::max(hi, max_id_);
}

void NV_container::get_minmax(unsigned short& lo, unsigned short& hi) {
    lo = min_id_;
    hi = max_id_;
}

Data_item* NV_container::find_data_item(unsigned short number) {
    if (number == data_number())
        return this;
    if (number < min_id_ || number > max_id_)
        return nullptr;
    for (NV_item* child : children())
        if (Data_item* const found = child->find_data_item(number))
            return found;
    return nullptr;
}

Data_item* NV_container::find_data_item(const char* path) {
    if (*path == '\0')
        return this;
    const std::size_t length = std::strcspn(path, ".");
    for (NV_item* child : children()) {
        const char* const name = child->get_name();
        if (std::strncmp(name, path, length) == 0 && name[length] == '\0')
            return path[length] == '\0' ? child : child->find_data_item(path + length + 1);
    }
    return nullptr;
}

// ---- Searching by a path of names and positions ----

NV_item* NV_container::_search(const char* spec, char separator) {
    constexpr std::size_t longest_component = 255;
    const char* end = separator != '\0' ? std::strchr(spec, separator) : nullptr;
    const char* const rest = end ? end + 1 : nullptr;
    if (!end)
        end = std::strchr(spec, ','); // ends a component, too; on purpose the text after it is ignored
    const std::size_t length =
        end ? std::min(static_cast<std::size_t>(end - spec), longest_component) : std::strlen(spec);
    const std::string component(spec, length);
    return children_named() ? search_by_name(component.c_str(), rest, separator)
                            : search_by_position(component.c_str(), rest, separator);
}

NV_item* NV_container::search_by_position(const char* component, const char* rest, char separator) {
    char* end = nullptr;
    const unsigned long long position = std::strtoull(component, &end, 10);
    if (end == component || position > INT_MAX || !child_at(static_cast<int>(position)))
        return nullptr;
    NV_item* const child = (*this)[static_cast<int>(position)];
    if (!rest)
        return child;
    const glue_detail::Lock_unless_held guard(tree_mutex(*child)); // the search below may lock, too
    return child->_search(rest, separator);
}

NV_item* NV_container::search_by_name(const char* component, const char* rest, char separator) {
    for (NV_item* child : children())
        if (std::strcmp(component, child->get_name()) == 0)
            return rest ? child->_search(rest, separator) : child;
    return nullptr;
}

NV_item* NV_container::get_next_in_tree(NV_item* stop) {
    NV_item* const child = get_first_child();
    return child ? child : NV_item::get_next_in_tree(stop);
}

// ---- Text ----

int NV_container::_to_string(char* buf, int len) const {
    Text_writer text(buf, len);
    text.put('{');
    const NV_item* const first = get_first_child();
    for (const NV_item* child : children()) {
        if (child != first)
            text.put(',');
        text.add(child->_to_string(text.position(), text.free_space()));
    }
    text.put('}');
    return text.count();
}

const char* NV_container::_from_string(const char* text) {
    text = after(text, '{');
    const NV_item* const first = get_first_child();
    for (NV_item* child : children()) {
        if (text && child != first)
            text = after(text, ',');
        if (text)
            text = child->_from_string(text);
        if (!text)
            return nullptr;
    }
    return text ? after(text, '}') : nullptr;
}

void NV_container::_print(Debug::Dumper& dumper, const char* name) const {
    dumper.begin_group(name);
    int index = 0;
    for (const NV_item* child : children())
        child->_print(dumper, children_named() ? child->get_name() : std::to_string(index++).c_str());
    dumper.end_group();
}

// ---- Defaults and notification ----

bool NV_container::set_default(bool all) {
    if (!all)
        return true;
    for (NV_item* child : children())
        if (!child->set_default(true))
            return false;
    return true;
}

void NV_container::signal_all(NV_root* root) {
    for (NV_item* child : children())
        child->signal_all(root);
    NV_item::signal_all(root);
}

// ---- Saving and loading ----

bool NV_container::serialise(NV_iterator* it) {
    bool ok = false;
    if (!include_in_serialise(it, ok, false))
        return ok;
    Registered_checksum checksum(it);
    Record_header header{own_type_byte(), Record_header::opening, get_id()};
    header.push(it);
    for (NV_item* child : children()) {
        if (!child->serialise(it)) {
            Debug::Print::dprint("Serialise failed for %d:%s\n", get_type(), get_name());
            return false;
        }
    }
    header.kind = Record_header::closing;
    const bool closed = header.push(it);
    if (!closed) {
        Debug::Print::dprint("Serialise failed2 for %d:%s\n", get_type(), get_name());
        return false;
    }
    checksum.remove();
    // On purpose only the header counts: a missing checksum is found when the container is loaded.
    it->push_uint32(checksum.value(), record_options);
    clear_dirty();
    return closed;
}

bool NV_container::deserialise(NV_iterator* it) {
    Registered_checksum checksum(it);
    Record_header header;
    if (!header.pop(it)) {
        Debug::Print::dprint("No NV settings for %d:%s\n", get_type(), get_name());
        return false;
    }
    const Record_header expected{own_type_byte(), Record_header::opening, get_id()};
    if (!(header == expected)) {
        Debug::Print::dprint("Bad NV settings %d!=%d %d!=%d %d!=%d for %d:%s\n", header.id, expected.id,
                             header.type_byte, expected.type_byte, header.kind, expected.kind, get_type(), get_name());
        return false;
    }
    if (!load_children(it))
        return false;
    clear_pristine();
    header.pop(it);
    checksum.remove();
    return is_intact(it, checksum.value());
}

/// Loads all records up to the closing header, which it leaves in the iterator.
bool NV_container::load_children(NV_iterator* it) {
    const Children_by_id children(*this);
    for (;;) {
        Record_header header;
        if (!header.peek(it)) {
            Debug::Print::dprint("NV bad for %d:%s\n", get_type(), get_name());
            return false;
        }
        if (header.kind == Record_header::closing)
            return true;
        const auto known = children.with_id(header.id);
        // On purpose every child with that id reads a record; only a list may have several.
        for (NV_item* child : known) {
            if (!child->deserialise(it)) {
                Debug::Print::dprint("NV child was bad for %d:%s->%s\n", get_type(), get_name(), child->get_name());
                return false;
            }
        }
        if (known.empty() && !deserialise_unknown_handoff(it)) {
            Debug::Print::dprint("NV unknown child was bad for %d:%s\n", get_type(), get_name());
            return false;
        }
    }
}

/// Compares the stored checksum with the computed one. If they differ, sets all children to their defaults.
bool NV_container::is_intact(NV_iterator* it, std::uint32_t computed) {
    std::uint32_t stored = 0;
    if (it->pop_uint32(stored, record_options) && stored == computed)
        return true;
    Debug::Print::dprint("NV_store CRC32 Check %u!=%u for %d:%s\n", computed, stored, get_type(), get_name());
    for (NV_item* child : children())
        child->set_default(true);
    return false;
}

/// Skips the containers within it in the same loop: a damaged file may claim any number of levels.
bool NV_container::deserialise_unknown(NV_iterator* it) {
    std::vector<Record_header> open;
    do {
        Record_header header;
        int dimension = 0;
        int type = 0;
        if (!header.peek(it, dimension, type))
            return false;
        if (!open.empty() && header.kind == Record_header::closing) {
            std::uint32_t crc = 0; // not compared
            Record_header expected = open.back();
            expected.kind = Record_header::closing;
            if (!(header == expected) || !header.pop(it) || !it->pop_uint32(crc, record_options))
                return false;
            open.pop_back();
        } else if (dimension == DTS::Defs::single && is_container_type(type)) {
            if (header.kind != Record_header::opening || !header.pop(it))
                return false;
            open.push_back(header);
        } else if (open.empty() || !deserialise_unknown_handoff(it)) {
            return false;
        }
    } while (!open.empty());
    return true;
}

// ---- Values for a peer ----

template <typename Buffer, typename Operation>
Data_item::Serial_ret NV_container::for_each_child(Buffer& buffer, unsigned short& counter, Operation operation) {
    serial_action_started(counter);
    for (NV_item* child : children()) {
        Serial_ret result = operation(*child, buffer, counter);
        if (result.fail()) {
            result.sync_next(get_next_child(child));
            return result;
        }
    }
    return serial_ok();
}

Data_item::Serial_ret NV_container::serialise(CDS::Remote::Send_buffer& buffer, unsigned short& counter) {
    return for_each_child(buffer, counter, [](NV_item& child, CDS::Remote::Send_buffer& b, unsigned short& c) {
        return child.serialise(b, c);
    });
}

Data_item::Serial_ret NV_container::deserialise(CDS::Remote::Receive_buffer& buffer, unsigned short& counter) {
    return for_each_child(buffer, counter, [](NV_item& child, CDS::Remote::Receive_buffer& b, unsigned short& c) {
        return child.deserialise(b, c);
    });
}

bool NV_container::serialise_structure(CDS::Remote::Send_buffer& buffer, int depth) {
    if (!NV_item::serialise_structure(buffer, depth))
        return false;
    if (depth == 0)
        return true;
    const int below = depth < unlimited_depth ? depth - 1 : depth;
    if (buffer.append_TEXT("{") == 0)
        return false;
    for (NV_item* child : children()) {
        const bool is_first = child == get_first_child();
        if ((!is_first && buffer.append_TEXT(",") == 0) || !child->serialise_structure(buffer, below))
            return false;
    }
    return buffer.append_TEXT("}") != 0;
}

int NV_struct::get_type() const {
    return DTS::Defs::type_struct;
}

} // namespace NV_store
