#include "platform/descriptor/BoardDescriptor.h"

BoardDescriptor::BoardDescriptor(BoardId id, unsigned int variantWord, unsigned int strapWord,
                                 unsigned int revisionWord)
    : boardId(static_cast<unsigned int>(id)), variant(variantWord), strapId(strapWord),
      revision(revisionWord) {}

QString BoardDescriptor::getBoardName() const {
    return getBoardName(static_cast<int>(boardId));
}

QString BoardDescriptor::getBoardName(int id) {
    switch (id) {
    case CV069_VY_BASEBOARD:
        return QStringLiteral("CV069 Vy Baseboard");
    case CV079_VYL_VYP_BASEBOARD:
        return QStringLiteral("CV079 VyL/VyP Baseboard");
    case CV070_MEZZANINE:
        return QStringLiteral("CV070 Vy/VyL/VyP Mezzanine Board");
    case CV072_VY_VYL_FRONT_PANEL:
        return QStringLiteral("CV072 Vy/VyL Front Panel Board");
    case CV084_VYP_FRONT_PANEL:
        return QStringLiteral("CV084 VyP Front Panel Board");
    case CV098_VYP_POWER_SHARE:
        return QStringLiteral("CV098 VyP Power Share Board");
    case CV087_40KM_CPU_CARRIER:
        return QStringLiteral("CV087 40KM CPU Carrier Board");
    case CV088_40KM_FPGA:
        return QStringLiteral("CV088 40KM FPGA Board");
    case CV089_40KM_SDI_IO:
        return QStringLiteral("CV089 40KM SDI I/O Board");
    case CV090_40KM_FRONT_PANEL:
        return QStringLiteral("CV090 40KM Front Panel Board");
    case CV091_40KM_BACKPLANE:
        return QStringLiteral("CV091 40KM Backplane");
    case CV094_40KM_MISC_IO:
        return QStringLiteral("CV094 40KM Miscellaneous I/O Board");
    default:
        return QStringLiteral("Undefined/Unknown Board");
    }
}

void BoardDescriptor::serialize(std::deque<unsigned int>& out) const {
    out.push_back(boardId);
    out.push_back(variant);
    out.push_back(strapId);
    out.push_back(revision);
}

bool BoardDescriptor::deserialize(std::deque<unsigned int> const& in, unsigned int& position) {
    if (position > in.size() || in.size() - position < kSerializedWords) {
        return false;
    }
    boardId = in[position];
    variant = in[position + 1];
    strapId = in[position + 2];
    revision = in[position + 3];
    position += kSerializedWords;
    return true;
}
