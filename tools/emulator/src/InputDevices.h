#pragma once

// The panel's two Linux input-event devices, served by FUSE from a mount
// over /dev/input: "cv084_fp_keyboard" (the 17 buttons as EV_KEY) and
// "cv084_fp_mouse" (the shaft encoder as EV_REL/REL_WHEEL). Each open file
// is one evdev client with its own queue of whole `struct input_event`
// records; EVIOCGRAB gives one client the device exclusively, as the
// kernel's evdev does. Records are laid out for the reader's word size:
// 16 bytes for a 32-bit program (the instrument's controller, or an armhf
// build under qemu-user), 24 for a 64-bit one.

#include "EventLoop.h"

#include <cstdint>
#include <ctime>
#include <deque>
#include <linux/input.h>
#include <list>
#include <memory>
#include <string>
#include <vector>

struct fuse_session;
struct fuse_req;
struct fuse_pollhandle;

namespace emu {

class InputDevices {
public:
    enum Device { Keyboard = 0, Mouse = 1 };

    static constexpr size_t kRecord32 = 16;
    static constexpr size_t kRecord64 = 24;

    InputDevices(EventLoop& loop, size_t recordSize);
    ~InputDevices();
    InputDevices(InputDevices const&) = delete;
    InputDevices& operator=(InputDevices const&) = delete;

    bool mount(std::string const& dir);
    void unmount();

    // Queues one event followed by a SYN_REPORT for every client that may
    // see it (only the grabbing client while the device is grabbed).
    void emit(Device dev, uint16_t type, uint16_t code, int32_t value, bool withScan = false);

    bool grabbed(Device dev) const;
    // The clock the grabbing reader's records are stamped with; -1 if none.
    int grabberClock(Device dev) const;
    int openCount(Device dev) const;
    uint64_t eventsDelivered(Device dev) const;
    uint64_t grabRefusals(Device dev) const;
    // Records waiting in the clients' queues: not yet read.
    size_t queued(Device dev) const;

    // FUSE entry points (called from the C callbacks).
    struct Client;
    struct Node;
    struct PendingRead {
        fuse_req* req;
        size_t size;
    };
    Node* nodeForInode(uint64_t ino);
    Node* nodeForName(char const* name);
    Client* openClient(Node* node);
    void closeClient(Client* client);
    void read(fuse_req* req, Client* client, size_t size, bool nonBlocking);
    void poll(fuse_req* req, Client* client, fuse_pollhandle* ph);
    int grab(Client* client, int value);
    void interruptRead(fuse_req* req);

private:
    void onFuseReadable();
    void deliver(Client* client);
    void encodeRecord(input_event const& ev, char* out) const;

    EventLoop& loop_;
    size_t recordSize_;
    fuse_session* session_ = nullptr;
    int fuseFd_ = -1;
    std::vector<std::unique_ptr<Node>> nodes_;
    std::list<std::unique_ptr<Client>> clients_;
    std::string mountPoint_;
};

struct InputDevices::Node {
    uint64_t inode;
    std::string name;
    std::string description;
    Device device;
    Client* grabber = nullptr;
    uint64_t delivered = 0;
    uint64_t refusals = 0;
};

struct InputDevices::Client {
    Node* node;
    std::deque<input_event> queue;
    std::list<PendingRead> pending;
    fuse_pollhandle* pollHandle = nullptr;
    // The clock its records are stamped with, as EVIOCSCLOCKID set it; a
    // kernel's evdev starts every reader on the realtime clock.
    clockid_t clock = CLOCK_REALTIME;
};

} // namespace emu
