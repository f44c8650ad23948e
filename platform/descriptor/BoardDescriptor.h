#pragma once

// One board fitted to the instrument: its id and three attribute words, kept
// as four 32-bit words so that descriptors can be passed around as a flat
// list of words.

#include <deque>
#include <memory>

#include <QString>

class BoardDescriptor {
public:
    enum BoardId : int {
        CV069_VY_BASEBOARD = 1,
        CV079_VYL_VYP_BASEBOARD = 2,
        CV070_MEZZANINE = 3,
        CV072_VY_VYL_FRONT_PANEL = 4,
        CV084_VYP_FRONT_PANEL = 5,
        CV098_VYP_POWER_SHARE = 6,
        CV087_40KM_CPU_CARRIER = 7,
        CV088_40KM_FPGA = 8,
        CV089_40KM_SDI_IO = 9,
        CV090_40KM_FRONT_PANEL = 10,
        CV091_40KM_BACKPLANE = 11,
        CV094_40KM_MISC_IO = 12,
    };

    // variant: the product variant the board's straps select (see
    // get_baseboard_variant / get_front_panel_variant), 0 when the board has
    // none; strapId: the raw id read from the board's straps; revision: the
    // board revision, 0 when the straps do not encode one.
    explicit BoardDescriptor(BoardId id = BoardId(0), unsigned int variant = 0,
                             unsigned int strapId = 0, unsigned int revision = 0);

    BoardId getBoardId() const { return BoardId(static_cast<int>(boardId)); }
    unsigned int getVariant() const { return variant; }
    unsigned int getStrapId() const { return strapId; }
    unsigned int getRevision() const { return revision; }

    // The board's catalogue name; "Undefined/Unknown Board" for ids outside 1..12.
    QString getBoardName() const;
    static QString getBoardName(int id);

    // Appends the four words in field order.
    void serialize(std::deque<unsigned int>& out) const;
    // Reads four words from position on and advances it; false (nothing
    // changed) when fewer than four words remain.
    bool deserialize(std::deque<unsigned int> const& in, unsigned int& position);

    static constexpr unsigned int kSerializedWords = 4;

private:
    unsigned int boardId;
    unsigned int variant;
    unsigned int strapId;
    unsigned int revision;
};
