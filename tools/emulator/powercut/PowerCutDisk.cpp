#include "PowerCutDisk.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <fcntl.h>
#include <sstream>
#include <unistd.h>

namespace powercut {

namespace {

std::string toHex(std::string const& bytes) {
    static char const digits[] = "0123456789abcdef";
    std::string out;
    out.reserve(bytes.size() * 2 + 1);
    for (unsigned char c : bytes) {
        out += digits[c >> 4];
        out += digits[c & 0xf];
    }
    // Never an empty field: an empty name or write still reads back.
    return out.empty() ? "-" : out;
}

bool fromHex(std::string const& hex, std::string& out) {
    out.clear();
    if (hex == "-")
        return true;
    if (hex.size() % 2 != 0)
        return false;
    auto const nibble = [](char c) {
        return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
    };
    for (std::size_t i = 0; i < hex.size(); i += 2) {
        int const high = nibble(hex[i]);
        int const low = nibble(hex[i + 1]);
        if (high < 0 || low < 0)
            return false;
        out += static_cast<char>(high << 4 | low);
    }
    return true;
}

} // namespace

void PowerCutDisk::load(std::string const& name, std::string const& content) {
    Ino const ino = m_next++;
    Inode& inode = m_inodes[ino];
    inode.live = inode.durable = content;
    inode.promised = wholeLines(content);
    m_live[name] = m_durable[name] = ino;
}

Ino PowerCutDisk::lookup(std::string const& name) const {
    auto const it = m_live.find(name);
    return it == m_live.end() ? 0 : it->second;
}

std::vector<std::string> PowerCutDisk::names() const {
    std::vector<std::string> out;
    for (auto const& entry : m_live)
        out.push_back(entry.first);
    return out;
}

int PowerCutDisk::linkCount(Ino ino) const {
    return static_cast<int>(std::count_if(
        m_live.begin(), m_live.end(), [ino](auto const& entry) { return entry.second == ino; }));
}

Ino PowerCutDisk::create(std::string const& name) {
    Ino const ino = m_next++;
    m_inodes[ino];
    m_live[name] = ino;
    traceLine("C " + std::to_string(ino) + ' ' + toHex(name));
    return ino;
}

void PowerCutDisk::write(Ino ino, std::uint64_t offset, std::string const& data) {
    Inode& inode = m_inodes.at(ino);
    Change change{offset, data, false};
    apply(inode.live, change);
    inode.unsynced.push_back(std::move(change));
    traceLine("W " + std::to_string(ino) + ' ' + std::to_string(offset) + ' ' + toHex(data));
}

void PowerCutDisk::truncate(Ino ino, std::uint64_t size) {
    Inode& inode = m_inodes.at(ino);
    Change change{size, {}, true};
    apply(inode.live, change);
    inode.unsynced.push_back(change);
    // Promised lines taken back by a program: lost whatever comes next.
    if (size < inode.promised.size())
        m_takenBack.push_back(nameOf(ino, m_live) + ": truncated to " + std::to_string(size) +
                              " bytes, under the " + std::to_string(inode.promised.size()) +
                              " promised");
    traceLine("T " + std::to_string(ino) + ' ' + std::to_string(size));
}

void PowerCutDisk::link(Ino ino, std::string const& name) {
    m_live[name] = ino;
    traceLine("L " + std::to_string(ino) + ' ' + toHex(name));
}

void PowerCutDisk::rename(std::string const& from, std::string const& to) {
    auto const it = m_live.find(from);
    if (it == m_live.end())
        return;
    Ino const ino = it->second;
    m_live.erase(it);
    m_live[to] = ino;
    traceLine("R " + toHex(from) + ' ' + toHex(to));
}

void PowerCutDisk::unlink(std::string const& name) {
    m_live.erase(name);
    traceLine("U " + toHex(name));
}

void PowerCutDisk::sync(Ino ino, bool failed) {
    Inode& inode = m_inodes.at(ino);
    if (!failed) {
        for (Change const& change : inode.unsynced)
            apply(inode.durable, change);
        inode.promised = wholeLines(inode.durable);
    } else if (inode.durable.size() < inode.live.size()) {
        inode.durable.resize(inode.live.size(), '\0');
    }
    inode.unsynced.clear();
    traceLine("S " + std::to_string(ino) + (failed ? " failed" : " ok"));
}

void PowerCutDisk::syncFolder() {
    m_durable = m_live;
    traceLine("D");
}

void PowerCutDisk::promise() {
    for (auto const& entry : m_live) {
        Inode& inode = m_inodes.at(entry.second);
        std::string const seen = wholeLines(inode.live);
        if (seen.size() > inode.promised.size())
            inode.promised = seen;
    }
    traceLine("M");
}

PowerCutDisk::AfterCut PowerCutDisk::cut(std::mt19937_64* partial, bool keepAll) const {
    AfterCut after;
    after.lost = m_takenBack;
    std::map<Ino, std::string> kept;
    for (auto const& entry : m_inodes) {
        Inode const& inode = entry.second;
        std::string content = keepAll ? inode.live : inode.durable;
        if (partial != nullptr && !keepAll && !inode.unsynced.empty()) {
            // Writeback got this far: a point drawn over every byte (and
            // truncate) not yet synced, in the order they came.
            std::uint64_t points = 0;
            for (Change const& change : inode.unsynced)
                points += change.truncate ? 1 : change.data.size() + 1;
            std::uint64_t left = (*partial)() % (points + 1);
            for (Change const& change : inode.unsynced) {
                if (!change.truncate && left <= change.data.size()) {
                    if (left > 0)
                        apply(content, Change{change.offset, change.data.substr(0, left), false});
                    break;
                }
                if (change.truncate && left == 0)
                    break;
                apply(content, change);
                left -= change.truncate ? 1 : change.data.size() + 1;
            }
        }
        kept[entry.first] = content;
    }
    for (auto const& entry : keepAll ? m_live : m_durable)
        after.files[entry.first] = kept[entry.second];
    // A promised line is lost when the file programs still use is gone from
    // the disk, or no longer starts with it.
    for (auto const& entry : m_live) {
        Inode const& inode = m_inodes.at(entry.second);
        if (inode.promised.empty())
            continue;
        std::string const onDisk = nameOf(entry.second, keepAll ? m_live : m_durable);
        if (onDisk.empty())
            after.lost.push_back(entry.first + ": its name is not on the disk");
        else if (kept[entry.second].compare(0, inode.promised.size(), inode.promised) != 0)
            after.lost.push_back(entry.first + ": promised lines missing");
    }
    return after;
}

bool PowerCutDisk::traceTo(std::string const& path) {
    if (m_trace >= 0)
        ::close(m_trace);
    m_trace =
        path.empty() ? -1 : ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    return path.empty() || m_trace >= 0;
}

bool PowerCutDisk::replay(std::string const& line) {
    std::istringstream in(line);
    std::string time;
    std::string op;
    in >> time >> op;
    Ino ino = 0;
    std::string a;
    std::string b;
    if (op == "C" && in >> ino >> a && fromHex(a, b)) {
        m_next = ino;
        create(b);
    } else if (op == "W") {
        std::uint64_t offset = 0;
        if (!(in >> ino >> offset >> a) || !fromHex(a, b) || !exists(ino))
            return false;
        write(ino, offset, b);
    } else if (op == "T") {
        std::uint64_t size = 0;
        if (!(in >> ino >> size) || !exists(ino))
            return false;
        truncate(ino, size);
    } else if (op == "L" && in >> ino >> a && fromHex(a, b) && exists(ino)) {
        link(ino, b);
    } else if (op == "R" && in >> a >> b) {
        std::string from;
        std::string to;
        if (!fromHex(a, from) || !fromHex(b, to))
            return false;
        rename(from, to);
    } else if (op == "U" && in >> a && fromHex(a, b)) {
        unlink(b);
    } else if (op == "S" && in >> ino >> a && exists(ino)) {
        sync(ino, a == "failed");
    } else if (op == "D") {
        syncFolder();
    } else if (op == "M") {
        promise();
    } else {
        return false;
    }
    return true;
}

void PowerCutDisk::apply(std::string& content, Change const& change) {
    if (change.truncate) {
        content.resize(change.offset);
        return;
    }
    // A write past the end leaves a hole that reads as zeros.
    if (content.size() < change.offset + change.data.size())
        content.resize(change.offset + change.data.size());
    content.replace(change.offset, change.data.size(), change.data);
}

std::string PowerCutDisk::wholeLines(std::string const& content) {
    auto const end = content.rfind('\n');
    return end == std::string::npos ? std::string() : content.substr(0, end + 1);
}

std::string PowerCutDisk::nameOf(Ino ino, std::map<std::string, Ino> const& folder) const {
    auto const it = std::find_if(folder.begin(), folder.end(),
                                 [ino](auto const& entry) { return entry.second == ino; });
    return it == folder.end() ? std::string() : it->first;
}

void PowerCutDisk::traceLine(std::string const& line) {
    if (m_trace < 0)
        return;
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    // Wall-clock nanoseconds: the moment is compared with the repository's.
    std::string const text =
        std::to_string(static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec) + ' ' +
        line + '\n';
    // One write per line, unbuffered: the trace survives the tracer's end.
    ssize_t const written = ::write(m_trace, text.data(), text.size());
    (void)written;
}

} // namespace powercut
