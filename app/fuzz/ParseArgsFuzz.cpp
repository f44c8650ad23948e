// Any command line, its arguments separated by NUL bytes.
#include "app/ParseArgs.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    std::vector<std::string> words{"front_panel_test"};
    std::string const input(reinterpret_cast<char const*>(data), size);
    for (size_t start = 0; start <= size && words.size() < 64;) {
        size_t const end = std::min(input.find('\0', start), size);
        words.push_back(input.substr(start, end - start));
        start = end + 1;
    }
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    parseArgs args;
    args.run(static_cast<int>(words.size()), argv.data());
    return 0;
}
