// Runs a fuzz target's entry point over files and directories of inputs, without libFuzzer.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
// Optional, as with libFuzzer: run once before the inputs.
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

int runFile(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "cannot read %s\n", file.c_str());
        return 1;
    }
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
    // libFuzzer never hands a target a null pointer, even for an empty input.
    static const uint8_t kNothing = 0;
    LLVMFuzzerTestOneInput(bytes.empty() ? &kNothing : bytes.data(), bytes.size());
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    if (LLVMFuzzerInitialize)
        LLVMFuzzerInitialize(&argc, &argv);
    int failures = 0;
    size_t runs = 0;
    for (int i = 1; i < argc; ++i) {
        const std::filesystem::path arg(argv[i]);
        if (std::filesystem::is_directory(arg)) {
            for (const auto& entry : std::filesystem::recursive_directory_iterator(arg)) {
                if (entry.is_regular_file()) {
                    failures += runFile(entry.path());
                    ++runs;
                }
            }
        } else {
            failures += runFile(arg);
            ++runs;
        }
    }
    std::printf("replayed %zu inputs\n", runs);
    return failures == 0 ? 0 : 1;
}
