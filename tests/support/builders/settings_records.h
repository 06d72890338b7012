#pragma once

#include <support/builders/Record_builder.h>
#include <support/settings/Settings_bytes.h>

#include <glue/NV_store/NV_item.h>

#include <gtest/gtest.h>
#include <initializer_list>
#include <string>

/// Stored settings as strings that can be nested:
///
///     container(0, 7, value(9, 1, le(std::int32_t{5})) + container(1, 2, ""))      // an int and an empty struct
namespace settings_records {

constexpr int opening = 1;
constexpr int closing = 2;
constexpr int path = 12;

inline std::string header(int type_byte, int kind, int id) {
    return Record_builder().header(type_byte, kind, id);
}

inline std::string value(int type_byte, int id, const std::string& bytes) {
    return Record_builder().value(type_byte, id, bytes);
}

/// The ids of the path, the target's first.
inline std::string pointer(int id, std::initializer_list<int> target_up) {
    return Record_builder().path(id, target_up);
}

inline std::string container(int type_byte, int id, const std::string& children) {
    return Record_builder().open(type_byte, id).raw(children).close();
}

/// Nested containers, each with a checksum of 0.
inline std::string nested(std::size_t levels) {
    std::string begins;
    std::string ends;
    for (std::size_t i = 0; i < levels; ++i) {
        begins += header(1, opening, 1);
        ends += header(1, closing, 1) + low_bytes(0, 4);
    }
    return begins + ends;
}

/// The bytes that the library writes.
inline std::string saved(NV_store::NV_item& tree, NV_store::NV_iterator::modes_t mode) {
    Settings_bytes it(mode);
    EXPECT_TRUE(tree.serialise(&it));
    return it.bytes();
}

} // namespace settings_records
