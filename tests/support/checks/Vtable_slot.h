#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

/// The result of `vtable_slot` for an operation that is not virtual.
constexpr std::size_t not_virtual = static_cast<std::size_t>(-1);

/// The slot of a virtual operation in the vtable of its class, as the Itanium C++ ABI stores it in a pointer to member:
/// the slots count from 0, a virtual destructor takes two.
///
///     vtable_slot(&Data_stream::drop)                                  // 2: after the two destructors
///     vtable_slot<int (Data_stream::*)(int)>(&Data_stream::get_data)   // one of several operations of a name
template <typename Member>
std::size_t vtable_slot(Member operation) {
    static_assert(std::is_member_function_pointer_v<Member>);
    struct {
        std::uintptr_t function;
        std::ptrdiff_t adjustment;
    } parts{};
    static_assert(sizeof parts == sizeof operation, "this is not the Itanium C++ ABI");
    std::memcpy(&parts, &operation, sizeof parts);
#if defined(__arm__) || defined(__aarch64__)
    // Function addresses may be odd there: the mark is in the adjustment, and the function word is the byte offset.
    const bool is_virtual = (parts.adjustment & 1) != 0;
    const std::uintptr_t offset = parts.function;
#else
    // The function word of a virtual operation is odd: 1 plus the byte offset.
    const bool is_virtual = (parts.function & 1) != 0;
    const std::uintptr_t offset = parts.function - 1;
#endif
    return is_virtual ? offset / sizeof(void*) : not_virtual;
}
