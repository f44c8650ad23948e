// cv084-powercut-fs: the instrument's results folder on a disk that a power
// cut can strike (see PowerCutDisk.h), for the power-cut sweep.
//
//   cv084-powercut-fs [--from DIR] [--trace FILE] [--ready FILE] MOUNTPOINT
//       serves the folder (FUSE, one flat folder) until SIGTERM; starts with
//       DIR's files, synced; writes every change to FILE; creates the ready
//       file once mounted. SIGUSR1: the next sync of a file fails with EIO,
//       once, and what it was writing is lost.
//   cv084-powercut-fs --replay FILE --cuts LIST
//       replays a trace and cuts it: LIST has one cut a line, "OPS SEED DIR"
//       (after OPS changes; SEED a number for a random prefix of the unsynced
//       writes, "-" for none, "+" for all, as a killed program leaves them),
//       in increasing OPS. DIR gets disk/ (every file
//       the cut leaves) and lost (a line per synced line lost).
#define FUSE_USE_VERSION 35

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <fuse_lowlevel.h>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "PowerCutDisk.h"

namespace {

using powercut::Ino;
using powercut::PowerCutDisk;

PowerCutDisk g_disk;
volatile std::sig_atomic_t g_failNextSync = 0;
volatile std::sig_atomic_t g_promise = 0;

constexpr mode_t kFileMode = S_IFREG | 0644;

void fillAttr(Ino ino, struct stat* st) {
    std::memset(st, 0, sizeof *st);
    st->st_ino = ino;
    if (ino == FUSE_ROOT_ID) {
        st->st_mode = S_IFDIR | 0755;
        st->st_nlink = 2;
        return;
    }
    st->st_mode = kFileMode;
    st->st_nlink = static_cast<nlink_t>(g_disk.linkCount(ino));
    st->st_size = static_cast<off_t>(g_disk.content(ino).size());
    st->st_blocks = (st->st_size + 511) / 512;
}

// Nothing is cached in the kernel: every size and name comes from the disk model.
void replyEntry(fuse_req_t req, Ino ino) {
    fuse_entry_param e{};
    e.ino = ino;
    fillAttr(ino, &e.attr);
    fuse_reply_entry(req, &e);
}

void opLookup(fuse_req_t req, fuse_ino_t parent, char const* name) {
    Ino const ino = parent == FUSE_ROOT_ID ? g_disk.lookup(name) : 0;
    if (ino == 0) {
        fuse_reply_err(req, ENOENT);
        return;
    }
    replyEntry(req, ino);
}

void opGetattr(fuse_req_t req, fuse_ino_t ino, fuse_file_info*) {
    if (ino != FUSE_ROOT_ID && !g_disk.exists(ino)) {
        fuse_reply_err(req, ENOENT);
        return;
    }
    struct stat st;
    fillAttr(ino, &st);
    fuse_reply_attr(req, &st, 0);
}

void opSetattr(fuse_req_t req, fuse_ino_t ino, struct stat* attr, int toSet, fuse_file_info*) {
    if (ino == FUSE_ROOT_ID || !g_disk.exists(ino)) {
        fuse_reply_err(req, ino == FUSE_ROOT_ID ? EISDIR : ENOENT);
        return;
    }
    // Modes, owners and times are not what a cut is about: taken and dropped.
    if (toSet & FUSE_SET_ATTR_SIZE)
        g_disk.truncate(ino, static_cast<std::uint64_t>(attr->st_size));
    struct stat st;
    fillAttr(ino, &st);
    fuse_reply_attr(req, &st, 0);
}

void opReaddir(fuse_req_t req, fuse_ino_t ino, size_t size, off_t off, fuse_file_info*) {
    if (ino != FUSE_ROOT_ID) {
        fuse_reply_err(req, ENOTDIR);
        return;
    }
    std::vector<std::string> names{".", ".."};
    for (auto const& name : g_disk.names())
        names.push_back(name);
    std::vector<char> buf(size);
    size_t used = 0;
    for (size_t i = static_cast<size_t>(off); i < names.size(); ++i) {
        struct stat st {};
        st.st_ino = i < 2 ? FUSE_ROOT_ID : g_disk.lookup(names[i]);
        st.st_mode = i < 2 ? S_IFDIR : kFileMode;
        size_t const want = fuse_add_direntry(req, buf.data() + used, size - used, names[i].c_str(),
                                              &st, static_cast<off_t>(i + 1));
        if (want > size - used)
            break;
        used += want;
    }
    fuse_reply_buf(req, buf.data(), used);
}

// The open flags ride in the handle: O_APPEND writes go to the end the
// model knows, whatever offset the kernel guessed.
void opOpen(fuse_req_t req, fuse_ino_t ino, fuse_file_info* fi) {
    if (ino == FUSE_ROOT_ID || !g_disk.exists(ino)) {
        fuse_reply_err(req, ino == FUSE_ROOT_ID ? EISDIR : ENOENT);
        return;
    }
    if ((fi->flags & O_TRUNC) && (fi->flags & O_ACCMODE) != O_RDONLY &&
        !g_disk.content(ino).empty())
        g_disk.truncate(ino, 0);
    fi->fh = static_cast<uint64_t>(fi->flags);
    fi->direct_io = 1;
    fuse_reply_open(req, fi);
}

void opCreate(fuse_req_t req, fuse_ino_t parent, char const* name, mode_t mode,
              fuse_file_info* fi) {
    if (parent != FUSE_ROOT_ID || !S_ISREG(mode)) {
        fuse_reply_err(req, EPERM);
        return;
    }
    Ino ino = g_disk.lookup(name);
    if (ino != 0 && (fi->flags & O_EXCL)) {
        fuse_reply_err(req, EEXIST);
        return;
    }
    if (ino == 0)
        ino = g_disk.create(name);
    else if ((fi->flags & O_TRUNC) && !g_disk.content(ino).empty())
        g_disk.truncate(ino, 0);
    fi->fh = static_cast<uint64_t>(fi->flags);
    fi->direct_io = 1;
    fuse_entry_param e{};
    e.ino = ino;
    fillAttr(ino, &e.attr);
    fuse_reply_create(req, &e, fi);
}

void opRead(fuse_req_t req, fuse_ino_t ino, size_t size, off_t off, fuse_file_info*) {
    std::string const& content = g_disk.content(ino);
    auto const from = static_cast<size_t>(off);
    if (from >= content.size()) {
        fuse_reply_buf(req, nullptr, 0);
        return;
    }
    fuse_reply_buf(req, content.data() + from, std::min(size, content.size() - from));
}

void opWrite(fuse_req_t req, fuse_ino_t ino, char const* buf, size_t size, off_t off,
             fuse_file_info* fi) {
    auto const offset = (static_cast<int>(fi->fh) & O_APPEND) ? g_disk.content(ino).size()
                                                              : static_cast<size_t>(off);
    g_disk.write(ino, offset, std::string(buf, size));
    fuse_reply_write(req, size);
}

void opFsync(fuse_req_t req, fuse_ino_t ino, int, fuse_file_info*) {
    bool const failed = g_failNextSync != 0;
    g_failNextSync = 0;
    g_disk.sync(ino, failed);
    fuse_reply_err(req, failed ? EIO : 0);
}

void opFsyncdir(fuse_req_t req, fuse_ino_t, int, fuse_file_info*) {
    g_disk.syncFolder();
    fuse_reply_err(req, 0);
}

void opRename(fuse_req_t req, fuse_ino_t parent, char const* name, fuse_ino_t newparent,
              char const* newname, unsigned int flags) {
    if (parent != FUSE_ROOT_ID || newparent != FUSE_ROOT_ID || g_disk.lookup(name) == 0) {
        fuse_reply_err(req, ENOENT);
        return;
    }
    if (flags & RENAME_EXCHANGE) {
        fuse_reply_err(req, EINVAL);
        return;
    }
    if ((flags & RENAME_NOREPLACE) && g_disk.lookup(newname) != 0) {
        fuse_reply_err(req, EEXIST);
        return;
    }
    g_disk.rename(name, newname);
    fuse_reply_err(req, 0);
}

void opLink(fuse_req_t req, fuse_ino_t ino, fuse_ino_t newparent, char const* newname) {
    if (newparent != FUSE_ROOT_ID || !g_disk.exists(ino)) {
        fuse_reply_err(req, ENOENT);
        return;
    }
    if (g_disk.lookup(newname) != 0) {
        fuse_reply_err(req, EEXIST);
        return;
    }
    g_disk.link(ino, newname);
    replyEntry(req, ino);
}

void opUnlink(fuse_req_t req, fuse_ino_t parent, char const* name) {
    if (parent != FUSE_ROOT_ID || g_disk.lookup(name) == 0) {
        fuse_reply_err(req, ENOENT);
        return;
    }
    g_disk.unlink(name);
    fuse_reply_err(req, 0);
}

void armFailure(int) {
    g_failNextSync = 1;
}

void askPromise(int) {
    g_promise = 1;
}

// Serves requests; a promise asked for (SIGUSR2) is kept before the next
// request, or at once when idle: the signal ends the wait for one.
int serveRequests(fuse_session* session) {
    fuse_buf buf{};
    int res = 0;
    while (!fuse_session_exited(session)) {
        res = fuse_session_receive_buf(session, &buf);
        if (g_promise != 0) {
            g_promise = 0;
            g_disk.promise();
        }
        if (res == -EINTR)
            continue;
        if (res <= 0)
            break;
        fuse_session_process_buf(session, &buf);
    }
    std::free(buf.mem);
    return res < 0 && res != -EINTR ? res : 0;
}

bool loadFolder(std::string const& dir) {
    DIR* folder = ::opendir(dir.c_str());
    if (folder == nullptr)
        return false;
    while (dirent* entry = ::readdir(folder)) {
        std::string const path = dir + '/' + entry->d_name;
        struct stat st {};
        if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
            continue;
        std::ifstream in(path, std::ios::binary);
        std::ostringstream content;
        content << in.rdbuf();
        g_disk.load(entry->d_name, content.str());
    }
    ::closedir(folder);
    return true;
}

int serve(std::string const& mountPoint, std::string const& ready) {
    static fuse_lowlevel_ops ops = [] {
        fuse_lowlevel_ops o{};
        o.lookup = opLookup;
        o.getattr = opGetattr;
        o.setattr = opSetattr;
        o.readdir = opReaddir;
        o.open = opOpen;
        o.create = opCreate;
        o.read = opRead;
        o.write = opWrite;
        o.fsync = opFsync;
        o.fsyncdir = opFsyncdir;
        o.rename = opRename;
        o.link = opLink;
        o.unlink = opUnlink;
        return o;
    }();
    char arg0[] = "cv084-powercut-fs";
    char arg1[] = "-o";
    char arg2[] = "allow_other,fsname=cv084_results,subtype=cv084_results";
    char* argv[] = {arg0, arg1, arg2, nullptr};
    fuse_args args = FUSE_ARGS_INIT(3, argv);
    fuse_session* session = fuse_session_new(&args, &ops, sizeof ops, nullptr);
    if (session == nullptr || fuse_set_signal_handlers(session) != 0 ||
        fuse_session_mount(session, mountPoint.c_str()) != 0) {
        std::fprintf(stderr, "cv084-powercut-fs: cannot mount %s\n", mountPoint.c_str());
        return 1;
    }
    std::signal(SIGUSR1, armFailure);
    struct sigaction promise {};
    promise.sa_handler = askPromise; // no SA_RESTART: the idle wait must end
    sigaction(SIGUSR2, &promise, nullptr);
    if (!ready.empty())
        std::ofstream(ready) << "mounted\n";
    int const status = serveRequests(session);
    fuse_session_unmount(session);
    fuse_remove_signal_handlers(session);
    fuse_session_destroy(session);
    return status < 0 ? 1 : 0;
}

void writeFile(std::string const& path, std::string const& content) {
    std::ofstream(path, std::ios::binary) << content;
}

int replay(std::string const& tracePath, std::string const& cutsPath) {
    std::ifstream trace(tracePath);
    std::ifstream cuts(cutsPath);
    if (!trace || !cuts) {
        std::fprintf(stderr, "cv084-powercut-fs: cannot read %s or %s\n", tracePath.c_str(),
                     cutsPath.c_str());
        return 1;
    }
    std::string line;
    long applied = 0;
    long ops = 0;
    std::string seed;
    std::string dir;
    while (cuts >> ops >> seed >> dir) {
        while (applied < ops && std::getline(trace, line)) {
            if (!g_disk.replay(line)) {
                std::fprintf(stderr, "cv084-powercut-fs: trace line %ld: %s\n", applied + 1,
                             line.c_str());
                return 1;
            }
            ++applied;
        }
        bool const drawn = seed != "-" && seed != "+";
        std::mt19937_64 partial(drawn ? std::stoull(seed) : 0);
        PowerCutDisk::AfterCut const after = g_disk.cut(drawn ? &partial : nullptr, seed == "+");
        ::mkdir(dir.c_str(), 0755);
        ::mkdir((dir + "/disk").c_str(), 0755);
        for (auto const& file : after.files)
            writeFile(dir + "/disk/" + file.first, file.second);
        std::string lost;
        for (auto const& what : after.lost)
            lost += what + '\n';
        writeFile(dir + "/lost", lost);
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    std::string from;
    std::string trace;
    std::string ready;
    std::string replayTrace;
    std::string cuts;
    std::string mountPoint;
    for (int i = 1; i < argc; ++i) {
        std::string const arg = argv[i];
        std::string* value = arg == "--from"     ? &from
                             : arg == "--trace"  ? &trace
                             : arg == "--ready"  ? &ready
                             : arg == "--replay" ? &replayTrace
                             : arg == "--cuts"   ? &cuts
                                                 : nullptr;
        if (value != nullptr && i + 1 < argc)
            *value = argv[++i];
        else if (value == nullptr && arg[0] != '-' && mountPoint.empty())
            mountPoint = arg;
        else {
            std::fprintf(stderr, "usage: cv084-powercut-fs [--from DIR] [--trace FILE] [--ready "
                                 "FILE] MOUNTPOINT | --replay FILE --cuts LIST\n");
            return 2;
        }
    }
    if (!replayTrace.empty())
        return replay(replayTrace, cuts);
    if (mountPoint.empty() || (!from.empty() && !loadFolder(from)) || !g_disk.traceTo(trace)) {
        std::fprintf(stderr, "cv084-powercut-fs: nothing to mount, or %s or %s unusable\n",
                     from.c_str(), trace.c_str());
        return 2;
    }
    return serve(mountPoint, ready);
}
