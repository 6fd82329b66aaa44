// Feeds files to a fuzz target in place of the fuzzer: the seeds as ordinary tests, under any compiler and machine.
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s FILE...\n", argv[0]);
        return 2;
    }
    for (int i = 1; i < argc; i++) {
        std::ifstream file(argv[i], std::ios::binary);
        if (!file) {
            std::fprintf(stderr, "cannot read %s\n", argv[i]);
            return 2;
        }
        const std::vector<char> input((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
        // An exact block: a vector's own may be larger than its contents.
        uint8_t *block = new uint8_t[input.size()];
        std::copy(input.begin(), input.end(), block);
        LLVMFuzzerTestOneInput(block, input.size());
        delete[] block;
    }
    return 0;
}
