// Runs the fuzz target without a fuzzer: on the checked-in corpus and on random bytes.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

TEST(ReplayTest, RandomOperationsMatchTheModel) {
    const char* const given = std::getenv("QV_TEST_SEED");
    const auto seed = given != nullptr ? std::strtoul(given, nullptr, 10) : 1;
    SCOPED_TRACE("QV_TEST_SEED=" + std::to_string(seed));
    std::mt19937 random(static_cast<std::mt19937::result_type>(seed));
    std::vector<uint8_t> bytes(60000);
    for (size_t i = 0; i < bytes.size(); ++i) {
        // In turn mostly insertions, to build larger maps, and any operation.
        const bool inserting = i / 9000 % 2 == 0 && i % 3 == 0;
        bytes[i] = static_cast<uint8_t>(random() % (inserting ? 128 : 256));
    }
    EXPECT_EQ(LLVMFuzzerTestOneInput(bytes.data(), bytes.size()), 0);
}

TEST(ReplayTest, CorpusPasses) {
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(QV_CORPUS)) {
        SCOPED_TRACE(entry.path());
        std::ifstream in(entry.path(), std::ios::binary);
        const std::vector<char> bytes(std::istreambuf_iterator<char>(in), {});
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
        ++files;
    }
    EXPECT_GT(files, 0);
}
