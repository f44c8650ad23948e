// Any command line, its arguments separated by NUL bytes, parses to what a
// plain reading of the accepted forms gives: "-x"; "-f name" or "-fname";
// options sharing one word ("-xf name"); "-h", "-?", any other option letter
// and a missing file name stop with the usage text; words that are not
// options are passed over, and "--" ends the options.
#include "app/ParseArgs.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace {

struct Parsed {
    bool ok = true;
    bool withoutImage = false;
    std::string file;
};

Parsed readPlainly(std::vector<std::string> const& words) {
    Parsed parsed;
    for (size_t i = 1; i < words.size() && words[i] != "--"; ++i) {
        std::string const& word = words[i];
        for (size_t k = 1; word.size() > 1 && word[0] == '-' && k < word.size(); ++k) {
            if (word[k] == 'x') {
                parsed.withoutImage = true;
            } else if (word[k] == 'f' && (k + 1 < word.size() || i + 1 < words.size())) {
                parsed.file = k + 1 < word.size() ? word.substr(k + 1) : words[++i];
                break;
            } else {
                parsed.ok = false;
                return parsed;
            }
        }
    }
    return parsed;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    std::vector<std::string> words{"front_panel_test"};
    std::string const input(reinterpret_cast<char const*>(data), size);
    for (size_t start = 0; start <= size && words.size() < 64;) {
        size_t const end = std::min(input.find('\0', start), size);
        words.push_back(input.substr(start, end - start));
        start = end + 1;
    }
    Parsed const expected = readPlainly(words);
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(word.data());
    }
    argv.push_back(nullptr);
    parseArgs args;
    bool const ok = args.run(static_cast<int>(words.size()), argv.data());
    if (ok != expected.ok || args.runWithoutSelfTestImage != expected.withoutImage ||
        args.outputFileName != QString::fromStdString(expected.file)) {
        __builtin_trap();
    }
    return 0;
}
