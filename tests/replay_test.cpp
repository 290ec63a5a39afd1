// Runs the fuzz target without a fuzzer, on the checked-in corpus.

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

TEST(Replay, EveryInputOfTheCorpusPasses) {
    EXPECT_FALSE(std::filesystem::is_empty(QV_CORPUS));
    for (const auto& entry : std::filesystem::directory_iterator(QV_CORPUS)) {
        SCOPED_TRACE(entry.path());
        std::ifstream in(entry.path(), std::ios::binary);
        const std::string bytes(std::istreambuf_iterator<char>(in), {});
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
}
