#pragma once

// A disk that a power cut can strike: what the instrument's eMMC keeps when
// the power goes, as far as a program may rely on it. Written data and
// folder changes live in the page cache until they are synced: a file's
// data by fsync/fdatasync of the file, its names (create, link, rename,
// unlink) by fsync of the folder. A cut loses everything unsynced, or keeps part of
// it: a random prefix of each file's unsynced writes, as writeback gets to
// some pages first. A failed sync loses the data it was writing, yet the
// file's new size reaches the disk (it is journaled with the blocks taken
// for it), so the lost bytes read back as zeros; Linux reports that once:
// the next sync of the file succeeds without them.
//
// Every change is one line of a trace, so that a run recorded once can be
// replayed up to any moment and cut there.

#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace powercut {

using Ino = std::uint64_t;

class PowerCutDisk {
public:
    // What a cut leaves: each name on the disk with its content, and every
    // promised line the cut (or the programs) took back, said in a line each.
    struct AfterCut {
        std::map<std::string, std::string> files;
        std::vector<std::string> lost;
    };

    // A file already on the disk, synced with its name.
    void load(std::string const& name, std::string const& content);

    Ino lookup(std::string const& name) const; // 0: no such name
    bool exists(Ino ino) const { return m_inodes.count(ino) != 0; }
    std::string const& content(Ino ino) const { return m_inodes.at(ino).live; }
    std::vector<std::string> names() const;
    int linkCount(Ino ino) const;

    // The changes, each applied to what programs read at once and written
    // to the trace.
    Ino create(std::string const& name);
    void write(Ino ino, std::uint64_t offset, std::string const& data);
    void truncate(Ino ino, std::uint64_t size);
    // A second name for the file.
    void link(Ino ino, std::string const& name);
    void rename(std::string const& from, std::string const& to);
    void unlink(std::string const& name);
    // A failed sync drops the file's unsynced writes: the disk gets only
    // the size they gave it, zeros in their place.
    void sync(Ino ino, bool failed);
    void syncFolder();
    // The operator acts on what the programs showed: everything written so
    // far is promised, as the instrument may be switched off from now on.
    void promise();

    // Trace lines go to this file from now on (empty: none).
    bool traceTo(std::string const& path);
    // Applies one trace line; false if it is not one.
    bool replay(std::string const& line);

    // What a cut now would leave: nothing unsynced, or, given a generator,
    // a random prefix of each file's unsynced writes; or everything written,
    // as a program killed now leaves it.
    AfterCut cut(std::mt19937_64* partial, bool keepAll = false) const;

private:
    // One unsynced change of a file's data: a write, or a truncate (no data).
    struct Change {
        std::uint64_t offset;
        std::string data;
        bool truncate;
    };
    struct Inode {
        std::string live;    // what programs read
        std::string durable; // what the disk holds
        std::vector<Change> unsynced;
        std::string promised; // whole lines a sync, or the operator, was promised
    };

    static void apply(std::string& content, Change const& change);
    static std::string wholeLines(std::string const& content);
    std::string nameOf(Ino ino, std::map<std::string, Ino> const& folder) const;
    void traceLine(std::string const& line);

    std::map<std::string, Ino> m_live;    // the folder as programs see it
    std::map<std::string, Ino> m_durable; // the folder as the disk holds it
    std::map<Ino, Inode> m_inodes;
    Ino m_next = 2;                       // 1 is the folder
    std::vector<std::string> m_takenBack; // promised lines truncated by a program
    int m_trace = -1;
};

} // namespace powercut
