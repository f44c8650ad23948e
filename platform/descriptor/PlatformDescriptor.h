#pragma once

// The kind of instrument and the boards fitted to it, found once at start-up.

#include <deque>
#include <map>
#include <memory>

#include "platform/descriptor/BoardDescriptor.h"

namespace Calvento::Vy {
enum Device : int {
    DEVICE_VY = 0,      // Vy family
    DEVICE_VYL_VYP = 1, // VyL/VyP family
    DEVICE_KM40 = 2,    // KM40 family
};
} // namespace Calvento::Vy

class PlatformDescriptor {
public:
    explicit PlatformDescriptor(Calvento::Vy::Device device = Calvento::Vy::DEVICE_VY);

    Calvento::Vy::Device getDevice() const { return device; }

    // Files the board under its id; false when that id is already present or
    // the pointer is empty.
    bool addBoard(std::shared_ptr<BoardDescriptor const> board);
    bool hasBoard(BoardDescriptor::BoardId id) const;
    // Empty when the board is not fitted.
    std::shared_ptr<BoardDescriptor const> getBoardDescriptor(BoardDescriptor::BoardId id) const;
    // The id at position idx in ascending id order; BoardId(0) past the end.
    BoardDescriptor::BoardId getBoardIdByIdx(unsigned int idx) const;
    unsigned int getNumBoards() const;

    // Words: device kind, board count, then four words per board in id order.
    void serialize(std::deque<unsigned int>& out) const;
    // Replaces this descriptor's content from position on and advances it;
    // false (nothing changed) when the words are too few or inconsistent.
    bool deserialize(std::deque<unsigned int> const& in, unsigned int& position);

private:
    Calvento::Vy::Device device;
    std::map<BoardDescriptor::BoardId, std::shared_ptr<BoardDescriptor const>> boards;
};
