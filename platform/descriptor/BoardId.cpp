#include "platform/descriptor/BoardId.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace Calvento {
namespace {

// Lines of each group, most significant bit first. The power share board's
// top strap sits on line 113, below its other three.
std::array<std::vector<unsigned int>, kBoardIdGroups> const kGroupLines = {{
    {127, 126, 125, 124, 123, 122, 121},
    {508, 507, 506, 505, 504},
    {502, 501, 500, 499, 498, 497, 496},
    {113, 116, 115, 114},
}};

// 1 or 0 for the line's level, -1 when its value file cannot be read.
int readGpioLine(std::string const& gpioRoot, unsigned int line) {
    char path[256];
    snprintf(path, sizeof path, "%s%u/value", gpioRoot.c_str(), line);
    int const fd = open(path, O_RDONLY);
    if (fd < 0) {
        perror(path);
        return -1;
    }
    char text[10] = {};
    ssize_t const got = read(fd, text, 9);
    if (got < 0) {
        perror(path);
        close(fd);
        return -1;
    }
    close(fd);
    return std::strtol(text, nullptr, 10) != 0 ? 1 : 0;
}

// Straps do not change while the instrument runs, so each group is read
// once; -1 marks a group not (successfully) read yet.
struct BoardIdCache {
    std::mutex mutex;
    std::map<std::string, std::array<std::int32_t, kBoardIdGroups>> cells;
};

BoardIdCache& cache() {
    static BoardIdCache instance;
    return instance;
}

} // namespace

int read_board_id(int group) {
    return read_board_id(group, PlatformPaths().gpioRoot);
}

int read_board_id(int group, std::string const& gpioRoot) {
    if (group < 0 || group >= kBoardIdGroups) {
        return -1;
    }
    BoardIdCache& ids = cache();
    std::lock_guard<std::mutex> lock(ids.mutex);
    auto found = ids.cells.find(gpioRoot);
    if (found == ids.cells.end()) {
        found =
            ids.cells.emplace(gpioRoot, std::array<std::int32_t, kBoardIdGroups>{-1, -1, -1, -1})
                .first;
    }
    std::int32_t& cell = found->second[static_cast<std::size_t>(group)];
    if (cell >= 0) {
        return cell;
    }
    cell = 0;
    for (unsigned int line : kGroupLines[static_cast<std::size_t>(group)]) {
        int const level = readGpioLine(gpioRoot, line);
        if (level < 0) {
            cell = -1;
            return -1;
        }
        cell = (cell << 1) + level;
    }
    return cell;
}

int get_baseboard_variant() {
    return get_baseboard_variant(PlatformPaths().gpioRoot);
}

int get_baseboard_variant(std::string const& gpioRoot) {
    int const id = read_board_id(0, gpioRoot);
    if (id > 63) {
        return 1;
    }
    return id < 0 ? 2 : 0;
}

int get_front_panel_variant(int id) {
    return id > 4 ? 2 : 1;
}

} // namespace Calvento
