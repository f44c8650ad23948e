#define FUSE_USE_VERSION 35
#include "InputDevices.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <fuse_lowlevel.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace emu {

namespace {

constexpr size_t kQueueLimit = 4096; // evdev drops old events past its buffer too

InputDevices* self(fuse_req_t req) {
    return static_cast<InputDevices*>(fuse_req_userdata(req));
}

// Little-endian, `width` bytes.
char* putLittleEndian(char* out, uint64_t value, size_t width) {
    for (size_t i = 0; i < width; ++i) {
        *out++ = char((value >> (8 * i)) & 0xff);
    }
    return out;
}

InputDevices::Client* clientOf(fuse_file_info* fi) {
    return reinterpret_cast<InputDevices::Client*>(uintptr_t(fi->fh));
}

void fillAttr(InputDevices::Node const* node, struct stat* st) {
    std::memset(st, 0, sizeof *st);
    if (node == nullptr) {
        st->st_ino = FUSE_ROOT_ID;
        st->st_mode = S_IFDIR | 0755;
        st->st_nlink = 2;
    } else {
        st->st_ino = node->inode;
        st->st_mode = S_IFREG | 0660;
        st->st_nlink = 1;
    }
}

void opLookup(fuse_req_t req, fuse_ino_t parent, char const* name) {
    InputDevices::Node* node = parent == FUSE_ROOT_ID ? self(req)->nodeForName(name) : nullptr;
    if (node == nullptr) {
        fuse_reply_err(req, ENOENT);
        return;
    }
    fuse_entry_param e{};
    e.ino = node->inode;
    e.attr_timeout = 1.0;
    e.entry_timeout = 1.0;
    fillAttr(node, &e.attr);
    fuse_reply_entry(req, &e);
}

void opGetattr(fuse_req_t req, fuse_ino_t ino, fuse_file_info*) {
    struct stat st;
    if (ino == FUSE_ROOT_ID) {
        fillAttr(nullptr, &st);
    } else {
        InputDevices::Node* node = self(req)->nodeForInode(ino);
        if (node == nullptr) {
            fuse_reply_err(req, ENOENT);
            return;
        }
        fillAttr(node, &st);
    }
    fuse_reply_attr(req, &st, 1.0);
}

void opReaddir(fuse_req_t req, fuse_ino_t ino, size_t size, off_t off, fuse_file_info*) {
    if (ino != FUSE_ROOT_ID) {
        fuse_reply_err(req, ENOTDIR);
        return;
    }
    std::vector<char> buf(size);
    size_t used = 0;
    char const* names[] = {".", "..", "cv084_fp_keyboard", "cv084_fp_mouse"};
    for (off_t i = off; i < 4; ++i) {
        struct stat st;
        InputDevices::Node* node = i >= 2 ? self(req)->nodeForName(names[i]) : nullptr;
        fillAttr(node, &st);
        size_t want = fuse_add_direntry(req, buf.data() + used, size - used, names[i], &st, i + 1);
        if (want > size - used) {
            break;
        }
        used += want;
    }
    fuse_reply_buf(req, buf.data(), used);
}

void opOpen(fuse_req_t req, fuse_ino_t ino, fuse_file_info* fi) {
    InputDevices::Node* node = self(req)->nodeForInode(ino);
    if (node == nullptr) {
        fuse_reply_err(req, ENOENT);
        return;
    }
    // Input devices are streams: no page cache, no read-ahead, no seeking.
    fi->direct_io = 1;
    fi->nonseekable = 1;
    fi->keep_cache = 0;
    fi->fh = uint64_t(reinterpret_cast<uintptr_t>(self(req)->openClient(node)));
    if (fuse_reply_open(req, fi) != 0) {
        self(req)->closeClient(clientOf(fi));
    }
}

void opRelease(fuse_req_t req, fuse_ino_t, fuse_file_info* fi) {
    self(req)->closeClient(clientOf(fi));
    fuse_reply_err(req, 0);
}

void opRead(fuse_req_t req, fuse_ino_t, size_t size, off_t, fuse_file_info* fi) {
    // fi->flags carries the file's current status flags, so an O_NONBLOCK
    // set later with fcntl() is seen here.
    self(req)->read(req, clientOf(fi), size, (fi->flags & O_NONBLOCK) != 0);
}

void opWrite(fuse_req_t req, fuse_ino_t, char const*, size_t, off_t, fuse_file_info*) {
    fuse_reply_err(req, EINVAL);
}

void opPoll(fuse_req_t req, fuse_ino_t, fuse_file_info* fi, fuse_pollhandle* ph) {
    self(req)->poll(req, clientOf(fi), ph);
}

void replyGrab(fuse_req_t req, InputDevices::Client* client, int value) {
    int err = self(req)->grab(client, value);
    if (err != 0) {
        fuse_reply_err(req, err);
    } else {
        fuse_reply_ioctl(req, 0, nullptr, 0);
    }
}

void opIoctl(fuse_req_t req, fuse_ino_t, unsigned int cmd, void*, fuse_file_info* fi,
             unsigned flags, void const* inBuf, size_t inSize, size_t outSize) {
    if ((flags & FUSE_IOCTL_COMPAT) != 0) {
        fuse_reply_err(req, ENOSYS);
        return;
    }
    InputDevices::Client* client = clientOf(fi);
    if (cmd == TIOCEXCL || cmd == TIOCNXCL) {
        // EVIOCGRAB as the device bridge sends it from under qemu-user,
        // which refuses evdev requests but passes these on.
        replyGrab(req, client, cmd == TIOCEXCL ? 1 : 0);
        return;
    }
    if (cmd == EVIOCGRAB) {
        // Arrives in pointer form: FUSE copies in the int that the request
        // number declares. The value-form call that a real evdev node takes
        // is turned into this form by the device bridge preloaded in the
        // emulated instrument.
        if (inSize < sizeof(int)) {
            fuse_reply_err(req, EFAULT);
            return;
        }
        int value;
        std::memcpy(&value, inBuf, sizeof value);
        replyGrab(req, client, value);
        return;
    }
    if (cmd == EVIOCSCLOCKID) {
        // As evdev: the realtime, monotonic and boot-time clocks are taken,
        // any other is refused.
        int clock = -1;
        if (inSize >= sizeof clock) {
            std::memcpy(&clock, inBuf, sizeof clock);
        }
        if (clock != CLOCK_REALTIME && clock != CLOCK_MONOTONIC && clock != CLOCK_BOOTTIME) {
            fuse_reply_err(req, EINVAL);
            return;
        }
        client->clock = clock;
        fuse_reply_ioctl(req, 0, nullptr, 0);
        return;
    }
    if (cmd == EVIOCGVERSION && outSize >= sizeof(int)) {
        int version = EV_VERSION;
        fuse_reply_ioctl(req, 0, &version, sizeof version);
        return;
    }
    if (cmd == EVIOCGID && outSize >= sizeof(input_id)) {
        input_id id{};
        id.bustype = BUS_HOST;
        id.vendor = 0x0c4a; // the panel's own ids
        id.product = client->node->device == InputDevices::Keyboard ? 0x0084 : 0x0085;
        id.version = 1;
        fuse_reply_ioctl(req, 0, &id, sizeof id);
        return;
    }
    if (_IOC_TYPE(cmd) == 'E' && _IOC_NR(cmd) == _IOC_NR(EVIOCGNAME(0)) &&
        _IOC_DIR(cmd) == _IOC_READ) {
        std::string const& name = client->node->description;
        size_t n = std::min(outSize, name.size() + 1);
        fuse_reply_ioctl(req, int(n), name.c_str(), n);
        return;
    }
    fuse_reply_err(req, EINVAL);
}

void onReadInterrupted(fuse_req_t req, void* data) {
    static_cast<InputDevices*>(data)->interruptRead(req);
}

} // namespace

InputDevices::InputDevices(EventLoop& loop, size_t recordSize)
    : loop_(loop), recordSize_(recordSize) {
    nodes_.push_back(std::unique_ptr<Node>(
        new Node{2, "cv084_fp_keyboard", "CV084 Front Panel Keyboard", Keyboard}));
    nodes_.push_back(std::unique_ptr<Node>(
        new Node{3, "cv084_fp_mouse", "CV084 Front Panel Shaft Encoder", Mouse}));
}

InputDevices::~InputDevices() {
    unmount();
}

bool InputDevices::mount(std::string const& dir) {
    static fuse_lowlevel_ops ops = [] {
        fuse_lowlevel_ops o{};
        o.lookup = opLookup;
        o.getattr = opGetattr;
        o.readdir = opReaddir;
        o.open = opOpen;
        o.release = opRelease;
        o.read = opRead;
        o.write = opWrite;
        o.poll = opPoll;
        o.ioctl = opIoctl;
        return o;
    }();
    char arg0[] = "cv084-emulator";
    char arg1[] = "-o";
    char arg2[] = "allow_other,fsname=cv084_input,subtype=cv084_input";
    char* argv[] = {arg0, arg1, arg2, nullptr};
    fuse_args args = FUSE_ARGS_INIT(3, argv);
    session_ = fuse_session_new(&args, &ops, sizeof ops, this);
    if (session_ == nullptr) {
        return false;
    }
    mkdir(dir.c_str(), 0755);
    if (fuse_session_mount(session_, dir.c_str()) != 0) {
        fuse_session_destroy(session_);
        session_ = nullptr;
        return false;
    }
    mountPoint_ = dir;
    fuseFd_ = fuse_session_fd(session_);
    loop_.watch(fuseFd_, EPOLLIN, [this](uint32_t) { onFuseReadable(); });
    return true;
}

void InputDevices::unmount() {
    if (session_ == nullptr) {
        return;
    }
    loop_.unwatch(fuseFd_);
    fuse_session_unmount(session_);
    fuse_session_destroy(session_);
    session_ = nullptr;
}

void InputDevices::onFuseReadable() {
    fuse_buf buf{};
    int res = fuse_session_receive_buf(session_, &buf);
    if (res > 0) {
        fuse_session_process_buf(session_, &buf);
    } else if (res != -EINTR && res != -EAGAIN) {
        // Unmounted underneath us: nothing more will come.
        loop_.unwatch(fuseFd_);
    }
    free(buf.mem);
}

InputDevices::Node* InputDevices::nodeForInode(uint64_t ino) {
    for (auto& n : nodes_) {
        if (n->inode == ino) {
            return n.get();
        }
    }
    return nullptr;
}

InputDevices::Node* InputDevices::nodeForName(char const* name) {
    for (auto& n : nodes_) {
        if (n->name == name) {
            return n.get();
        }
    }
    return nullptr;
}

InputDevices::Client* InputDevices::openClient(Node* node) {
    clients_.push_back(std::unique_ptr<Client>(new Client{node, {}, {}, nullptr}));
    return clients_.back().get();
}

void InputDevices::closeClient(Client* client) {
    if (client == nullptr) {
        return;
    }
    // Closing the descriptor ends its grab, as evdev_release() does.
    if (client->node->grabber == client) {
        client->node->grabber = nullptr;
    }
    for (auto& p : client->pending) {
        fuse_reply_err(p.req, EINTR);
    }
    if (client->pollHandle != nullptr) {
        fuse_pollhandle_destroy(client->pollHandle);
    }
    clients_.remove_if([client](std::unique_ptr<Client> const& c) { return c.get() == client; });
}

void InputDevices::read(fuse_req* req, Client* client, size_t size, bool nonBlocking) {
    if (size < recordSize_) {
        fuse_reply_err(req, EINVAL);
        return;
    }
    if (!client->queue.empty()) {
        client->pending.push_back(PendingRead{req, size});
        deliver(client);
        return;
    }
    if (nonBlocking) {
        fuse_reply_err(req, EAGAIN);
        return;
    }
    client->pending.push_back(PendingRead{req, size});
    fuse_req_interrupt_func(req, onReadInterrupted, this);
}

void InputDevices::interruptRead(fuse_req* req) {
    for (auto& c : clients_) {
        for (auto it = c->pending.begin(); it != c->pending.end(); ++it) {
            if (it->req == req) {
                c->pending.erase(it);
                fuse_reply_err(req, EINTR);
                return;
            }
        }
    }
}

void InputDevices::deliver(Client* client) {
    while (!client->pending.empty() && !client->queue.empty()) {
        PendingRead p = client->pending.front();
        client->pending.pop_front();
        size_t count = std::min(p.size / recordSize_, client->queue.size());
        std::vector<char> out(count * recordSize_);
        for (size_t i = 0; i < count; ++i) {
            encodeRecord(client->queue[i], out.data() + i * recordSize_);
        }
        client->queue.erase(client->queue.begin(), client->queue.begin() + std::ptrdiff_t(count));
        fuse_req_interrupt_func(p.req, nullptr, nullptr);
        fuse_reply_buf(p.req, out.data(), out.size());
    }
}

void InputDevices::encodeRecord(input_event const& ev, char* out) const {
    // The two time fields are the reader's `long`: 4 bytes each on a 32-bit
    // controller, 8 on a 64-bit one; type, code and value never change size.
    size_t timeWidth = (recordSize_ - 8) / 2;
    out = putLittleEndian(out, uint64_t(ev.input_event_sec), timeWidth);
    out = putLittleEndian(out, uint64_t(ev.input_event_usec), timeWidth);
    out = putLittleEndian(out, ev.type, 2);
    out = putLittleEndian(out, ev.code, 2);
    putLittleEndian(out, uint32_t(ev.value), 4);
}

void InputDevices::poll(fuse_req* req, Client* client, fuse_pollhandle* ph) {
    if (ph != nullptr) {
        if (client->pollHandle != nullptr) {
            fuse_pollhandle_destroy(client->pollHandle);
        }
        client->pollHandle = ph;
    }
    fuse_reply_poll(req, client->queue.empty() ? 0 : (POLLIN | POLLRDNORM));
}

int InputDevices::grab(Client* client, int value) {
    Node* node = client->node;
    if (value != 0) {
        if (node->grabber != nullptr) {
            ++node->refusals;
            return EBUSY;
        }
        node->grabber = client;
        return 0;
    }
    if (node->grabber != client) {
        return EINVAL;
    }
    node->grabber = nullptr;
    return 0;
}

void InputDevices::emit(Device dev, uint16_t type, uint16_t code, int32_t value, bool withScan) {
    Node* node = nodes_[size_t(dev)].get();
    std::vector<input_event> frame;
    auto add = [&](uint16_t t, uint16_t c, int32_t v) {
        input_event ev{};
        ev.type = t;
        ev.code = c;
        ev.value = v;
        frame.push_back(ev);
    };
    if (withScan) {
        add(EV_MSC, MSC_SCAN, code);
    }
    add(type, code, value);
    add(EV_SYN, SYN_REPORT, 0);
    for (auto& c : clients_) {
        if (c->node != node || (node->grabber != nullptr && node->grabber != c.get())) {
            continue;
        }
        // One moment for the whole frame, on the clock this reader chose.
        timespec now{};
        clock_gettime(c->clock, &now);
        for (input_event ev : frame) {
            ev.input_event_sec = now.tv_sec;
            ev.input_event_usec = now.tv_nsec / 1000;
            c->queue.push_back(ev);
        }
        while (c->queue.size() > kQueueLimit) {
            c->queue.pop_front();
        }
        ++node->delivered;
        deliver(c.get());
        if (c->pollHandle != nullptr && !c->queue.empty()) {
            fuse_lowlevel_notify_poll(c->pollHandle);
            fuse_pollhandle_destroy(c->pollHandle);
            c->pollHandle = nullptr;
        }
    }
}

bool InputDevices::grabbed(Device dev) const {
    return nodes_[size_t(dev)]->grabber != nullptr;
}

int InputDevices::grabberClock(Device dev) const {
    Client const* grabber = nodes_[size_t(dev)]->grabber;
    return grabber != nullptr ? int(grabber->clock) : -1;
}

int InputDevices::openCount(Device dev) const {
    int n = 0;
    for (auto const& c : clients_) {
        n += c->node == nodes_[size_t(dev)].get() ? 1 : 0;
    }
    return n;
}

uint64_t InputDevices::eventsDelivered(Device dev) const {
    return nodes_[size_t(dev)]->delivered;
}

size_t InputDevices::queued(Device dev) const {
    size_t n = 0;
    for (auto const& c : clients_) {
        n += c->node == nodes_[size_t(dev)].get() ? c->queue.size() : 0;
    }
    return n;
}

uint64_t InputDevices::grabRefusals(Device dev) const {
    return nodes_[size_t(dev)]->refusals;
}

} // namespace emu
