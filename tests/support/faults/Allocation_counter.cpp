#include <support/faults/Allocation_counter.h>

#include <cerrno>
#include <cstddef>

namespace {

thread_local bool counting = false;
thread_local unsigned allocations = 0;

void count_one() {
    if (counting)
        ++allocations;
}

} // namespace

Allocation_counter::Allocation_counter() {
    allocations = 0;
    counting = true;
}

Allocation_counter::~Allocation_counter() {
    counting = false;
}

unsigned Allocation_counter::count() const {
    return allocations;
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

// The sanitizers have their own allocator, and call a hook for each allocation.

extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*allocated)(const volatile void*, std::size_t),
                                                         void (*freed)(const volatile void*));

[[maybe_unused]] static const int installed = __sanitizer_install_malloc_and_free_hooks(
    [](const volatile void*, std::size_t) { count_one(); }, [](const volatile void*) {});

#else

// The dynamic linker prefers these definitions of the program to those of the shared libraries. They call the C
// library.

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);

void* malloc(std::size_t size) noexcept {
    count_one();
    return __libc_malloc(size);
}

void* calloc(std::size_t count, std::size_t size) noexcept {
    count_one();
    return __libc_calloc(count, size);
}

void* realloc(void* old, std::size_t size) noexcept {
    count_one();
    return __libc_realloc(old, size);
}

void* memalign(std::size_t alignment, std::size_t size) noexcept {
    count_one();
    return __libc_memalign(alignment, size);
}

void* aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    return memalign(alignment, size);
}

int posix_memalign(void** result, std::size_t alignment, std::size_t size) noexcept {
    void* const memory = memalign(alignment, size);
    if (!memory)
        return ENOMEM;
    *result = memory;
    return 0;
}
}

#endif
