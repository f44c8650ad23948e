#include "platform/descriptor/PlatformDescriptor.h"

#include <iterator>
#include <utility>

PlatformDescriptor::PlatformDescriptor(Calvento::Vy::Device kind) : device(kind) {}

bool PlatformDescriptor::addBoard(std::shared_ptr<BoardDescriptor const> board) {
    if (!board) {
        return false;
    }
    BoardDescriptor::BoardId const id = board->getBoardId();
    return boards.emplace(id, std::move(board)).second;
}

bool PlatformDescriptor::hasBoard(BoardDescriptor::BoardId id) const {
    return boards.count(id) != 0;
}

std::shared_ptr<BoardDescriptor const>
PlatformDescriptor::getBoardDescriptor(BoardDescriptor::BoardId id) const {
    auto const found = boards.find(id);
    return found == boards.end() ? nullptr : found->second;
}

BoardDescriptor::BoardId PlatformDescriptor::getBoardIdByIdx(unsigned int idx) const {
    if (idx >= boards.size()) {
        return BoardDescriptor::BoardId(0);
    }
    return std::next(boards.begin(), static_cast<long>(idx))->first;
}

unsigned int PlatformDescriptor::getNumBoards() const {
    return static_cast<unsigned int>(boards.size());
}

void PlatformDescriptor::serialize(std::deque<unsigned int>& out) const {
    out.push_back(static_cast<unsigned int>(device));
    out.push_back(static_cast<unsigned int>(boards.size()));
    for (auto const& entry : boards) {
        entry.second->serialize(out);
    }
}

bool PlatformDescriptor::deserialize(std::deque<unsigned int> const& in, unsigned int& position) {
    if (position > in.size() || in.size() - position < 2) {
        return false;
    }
    unsigned int cursor = position;
    auto const kind = static_cast<Calvento::Vy::Device>(static_cast<int>(in[cursor++]));
    unsigned int const count = in[cursor++];
    std::map<BoardDescriptor::BoardId, std::shared_ptr<BoardDescriptor const>> read;
    for (unsigned int i = 0; i < count; ++i) {
        auto board = std::make_shared<BoardDescriptor>();
        if (!board->deserialize(in, cursor)) {
            return false;
        }
        // Each id may appear once; a repeat means the words are corrupt.
        if (!read.emplace(board->getBoardId(), std::move(board)).second) {
            return false;
        }
    }
    device = kind;
    boards = std::move(read);
    position = cursor;
    return true;
}
