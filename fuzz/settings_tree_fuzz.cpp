// Bytes of every sort, loaded into a settings tree with a container in a container, a list, a pointer and an
// enumeration. With an odd first byte the other bytes get correct checksums first, so that the code after the check of
// the checksums is reached.
//
// With any bytes: nothing is read beyond them, a value that loading reports as intact is saved and loaded again
// unchanged, and the pointer points into the tree.

#include "fuzz_target.h"
#include <support/builders/mended_checksums.h>

#include <glue/NV_store/NV_buffer_iterator.h>
#include <glue/NV_store/NV_enum.h>
#include <glue/NV_store/NV_number.h>
#include <glue/NV_store/NV_root.h>

#include <platform/Debug.h>

#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace {

using NV_store::NV_buffer_iterator;
using NV_store::NV_iterator;

/// A list, whose items may share their ids.
class List : public NV_store::NV_container {
  public:
    using NV_container::NV_container;
    int get_type() const override { return DTS::Defs::type_list; }
    bool children_named() const override { return false; }
};

struct Tree : NV_store::NV_root {
    enum class Mode : unsigned {};

    Tree() : NV_root(nullptr, 0, "settings") { _set_root(this); }

    NV_store::NV_number<int, 9> first{this, 1, 5, "first"};
    struct Outer : NV_store::NV_struct {
        using NV_struct::NV_struct;
        NV_store::NV_number<float, 10> gain{this, 1, 1.5F, "gain"};
        struct Inner : NV_store::NV_struct {
            using NV_struct::NV_struct;
            NV_store::NV_number<bool, 2> flag{this, 1, false, "flag"};
            NV_store::NV_number<unsigned long long, 15> wide{this, 2, 6, "wide"};
            NV_store::NV_enum<Mode> mode{this, 3, Mode{}, "mode"};
        } inner{this, nullptr, 3, "inner"};
        NV_store::NV_number<double, 11> offset{this, 4, -2.5, "offset"};
    } outer{this, nullptr, 2, "outer"};
    struct Entries : List {
        using List::List;
        NV_store::NV_number<short, 8> one{this, 7, 70, "one"};
        NV_store::NV_number<short, 8> two{this, 7, 80, "two"};
    } entries{this, nullptr, 5, "entries"};
    NV_store::NV_pointer chosen{this, this, 6, "chosen"};
    NV_store::NV_number<unsigned char, 17> last{this, 7, 9, "last"};

    /// Loads from a copy of the bytes in memory of exactly their size, so that reading beyond them is found.
    NV_store::NV_load_result load(const std::string& bytes) {
        const std::unique_ptr<unsigned char[]> exact(new unsigned char[bytes.size()]);
        std::memcpy(exact.get(), bytes.data(), bytes.size());
        const int size = static_cast<int>(bytes.size());
        NV_buffer_iterator it(exact.get(), size, size);
        it.set_mode(NV_iterator::reading);
        return load_all(*this, it);
    }
    std::string record() {
        unsigned char buffer[1000];
        NV_buffer_iterator it(buffer, sizeof buffer, 0);
        it.set_mode(NV_iterator::writing_all);
        FUZZ_CHECK(serialise(&it));
        return std::string(buffer, buffer + it.length());
    }
    bool has(const NV_item* item) {
        for (NV_item* own = this; own; own = own->get_next_in_tree(this))
            if (own == item)
                return true;
        return false;
    }
};

void check(const std::string& bytes) {
    Tree tree;
    const NV_store::NV_load_result result = tree.load(bytes);
    FUZZ_CHECK(tree.chosen.get() == nullptr || tree.has(tree.chosen.get()));
    FUZZ_CHECK(!result.intact || result.loaded > 0);

    const std::string record = tree.record();
    FUZZ_CHECK(mended_checksums(record) == record);
    Tree again;
    FUZZ_CHECK(again.load(record).intact);
    FUZZ_CHECK(again.record() == record);
    tree.signal_all();
}

/// Printing the reports of damage would take most of the time.
void be_silent() {
    static const bool silent = [] {
        Debug::Print::set_sink([](std::string_view) {});
        return true;
    }();
    (void)silent;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    be_silent();
    if (size == 0)
        return 0;
    const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    check(data[0] % 2 != 0 ? mended_checksums(bytes) : bytes);
    return 0;
}
