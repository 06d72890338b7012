#include <platform/pcf.h>

#include "File_store.h"

namespace {

/// Never destroyed: streams with static storage may still close their files while the process ends.
platform_detail::File_store& store() {
    static auto* const instance = new platform_detail::File_store;
    return *instance;
}

} // namespace

bool pcfMount(const char* directory, std::uint32_t total) {
    return store().mount(directory, total);
}

void pcfUnmount() {
    store().unmount();
}

int pcfIsMounted(const char*) {
    return store().is_mounted();
}

int pcfInfo(PcfInfo& info) {
    return store().info(info);
}

const char* pcfDirectory() {
    return store().path();
}

int pcfGetNumFiles() {
    return store().count();
}

int pcfGetFileName(int index, char* name) {
    return store().name_at(index, name);
}

int pcfExists(const char* name) {
    return store().exists(name);
}

int pcfRemove(const char* name) {
    return store().remove(name);
}

int pcfOpenRead(const char* name, unsigned long offset, int*) {
    return store().open_read(name, offset);
}

int pcfRead(void* buffer, int size, PcfResult& result, int) {
    return store().read(buffer, size, result);
}

int pcfCloseRead(int) {
    return store().close_read();
}

int pcfOpenWrite(const char* name, int*) {
    return store().open_write(name);
}

int pcfCreateWrite(const char* name, int*) {
    return store().create_write(name);
}

int pcfWrite(const void* data, int size, int) {
    return store().write(data, size);
}

int pcfCloseWrite(int) {
    return store().close_write();
}
