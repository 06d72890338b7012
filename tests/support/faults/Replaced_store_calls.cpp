#include <support/faults/Replaced_store_calls.h>

#include <platform/pcf.h>

#include <algorithm>
#include <cstring>
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <iterator>

namespace {

Replaced_store_calls* replaced = nullptr;

/// Records a call. Calls the platform's operation when the test returns no result.
template <typename... Arguments>
int call(const std::string& text, const char* symbol, Arguments... arguments) {
    if (replaced) {
        replaced->calls.push_back(text);
        const auto instead = replaced->answer ? replaced->answer(text) : std::nullopt;
        if (instead)
            return *instead;
    }
    return reinterpret_cast<int (*)(Arguments...)>(dlsym(RTLD_NEXT, symbol))(arguments...);
}

std::string text_of(const char* argument) {
    return argument ? argument : "null";
}

std::string text_of(long argument) {
    return std::to_string(argument);
}

template <typename... Arguments>
std::string described(std::string text, Arguments... arguments) {
    ((text += " " + text_of(arguments)), ...);
    return text;
}

} // namespace

Replaced_store_calls::Replaced_store_calls() {
    EXPECT_EQ(replaced, nullptr);
    replaced = this;
}

Replaced_store_calls::~Replaced_store_calls() {
    replaced = nullptr;
}

std::vector<std::string> Replaced_store_calls::calls_of(const std::string& beginning) const {
    std::vector<std::string> found;
    std::copy_if(calls.begin(), calls.end(), std::back_inserter(found),
                 [&beginning](const std::string& text) { return text.compare(0, beginning.size(), beginning) == 0; });
    return found;
}

// The dynamic linker prefers these definitions of the test program to those of the platform.

int pcfIsMounted(const char* name) {
    return call("IsMounted", "_Z12pcfIsMountedPKc", name);
}

int pcfInfo(PcfInfo& info) {
    return call("Info", "_Z7pcfInfoR7PcfInfo", &info);
}

int pcfExists(const char* name) {
    return call(described("Exists", name), "_Z9pcfExistsPKc", name);
}

int pcfRemove(const char* name) {
    return call(described("Remove", name), "_Z9pcfRemovePKc", name);
}

int pcfGetFileName(int index, char* name) {
    if (replaced && replaced->name_filler != 0) {
        std::memset(name, replaced->name_filler, pcf_longest_name + 1);
        return 1;
    }
    return call(described("GetFileName", long{index}), "_Z14pcfGetFileNameiPc", index, name);
}

int pcfOpenRead(const char* name, unsigned long offset, int* maker) {
    return call(described("OpenRead", name, static_cast<long>(offset)), "_Z11pcfOpenReadPKcmPi", name, offset, maker);
}

int pcfRead(void* buffer, int size, PcfResult& result, int maker) {
    return call(described("Read", long{size}, long{maker}), "_Z7pcfReadPviR9PcfResulti", buffer, size, &result, maker);
}

int pcfCloseRead(int maker) {
    return call(described("CloseRead", long{maker}), "_Z12pcfCloseReadi", maker);
}

int pcfOpenWrite(const char* name, int* maker) {
    return call(described("OpenWrite", name), "_Z12pcfOpenWritePKcPi", name, maker);
}

int pcfCreateWrite(const char* name, int* maker) {
    return call(described("CreateWrite", name), "_Z14pcfCreateWritePKcPi", name, maker);
}

int pcfWrite(const void* data, int size, int maker) {
    return call(described("Write", long{size}, long{maker}), "_Z8pcfWritePKvii", data, size, maker);
}

int pcfCloseWrite(int maker) {
    return call(described("CloseWrite", long{maker}), "_Z13pcfCloseWritei", maker);
}
