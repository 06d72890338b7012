#include <support/builders/Random.h>

#include <cstdlib>
#include <iostream>

namespace {

std::uint32_t seed_of_this_run() {
    if (const char* given = std::getenv("GLUE_TEST_SEED"))
        return static_cast<std::uint32_t>(std::strtoul(given, nullptr, 10));
    return std::random_device{}();
}

} // namespace

Random::Random() {
    const std::uint32_t seed = seed_of_this_run();
    std::cout << "random seed: GLUE_TEST_SEED=" << seed << std::endl;
    engine_.seed(seed);
}

std::string Random::bytes(std::size_t count) {
    std::string result(count, '\0');
    for (char& c : result)
        c = static_cast<char>(byte());
    return result;
}

std::string repeated(const std::string& bytes, std::size_t count) {
    std::string result;
    result.reserve(count + bytes.size());
    while (result.size() < count)
        result += bytes;
    result.resize(count);
    return result;
}
