/*
 * cv084-machine-operator: the operator and the CV084 panel around the
 * unchanged front_panel_test, inside the armhf virtual machine of the kernel
 * test leg (scripts/armhf-kernel.sh). Runs as root on an ARM kernel with
 * nothing but the machine's own devices:
 *
 *   - the buttons and the knob are uinput devices of that kernel, linked at
 *     /dev/input/cv084_fp_keyboard and /dev/input/cv084_fp_mouse, so the
 *     program reads input records made by a 32-bit kernel's input core;
 *   - the panel's serial line is a pty linked at /dev/cv084_app, answered
 *     here as the panel's micro-controller answers;
 *   - the program's terminal is a pty of its own (80x24, xterm).
 *
 * The FPGA window, the board-id straps and the results folder are laid out
 * by the machine's init before this runs.
 *
 *   cv084-machine-operator flow PROGRAM    a detent moves the LED colour,
 *                                          a button lights its own LED
 *   cv084-machine-operator crash SIG PROGRAM  the program crashes by SIG
 *                                          (ABRT, SEGV, ...)
 *                                          with its screen up: the terminal
 *                                          comes back, then what it held
 *
 * Prints "PASS <case>" or "FAIL <case>: <why>" and what it saw on a failure;
 * exits 0 only on a pass.
 */
#define _GNU_SOURCE
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <linux/input.h>
#include <linux/uinput.h>
#include <poll.h>
#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#define PANEL_PATH "/dev/cv084_app"
#define KEYBOARD_PATH "/dev/input/cv084_fp_keyboard"
#define MOUSE_PATH "/dev/input/cv084_fp_mouse"
#define SCREEN_LIMIT (1u << 20)
#define PANEL_LINES 4096
#define WAIT_MS 20000

/* The panel's keyboard: its buttons' key codes, Calvento (the logo) first. */
static int const kButtonKeys[] = {KEY_LEFTMETA, KEY_F1, KEY_F2,    KEY_F3,    KEY_F4,  KEY_F5,
                                  KEY_F6,       KEY_F7, KEY_F8,    KEY_F9,    KEY_F10, KEY_DOWN,
                                  KEY_LEFT,     KEY_UP, KEY_RIGHT, KEY_FRONT, KEY_MUTE};
/* The knob's colours in detent order, as the panel's "L" command carries them. */
static char const* const kColours[] = {"ffffff", "ffff00", "00ffff", "00ff00",
                                       "ff00ff", "ff0000", "0000ff", "000000"};

static char const* g_case = "";

struct bench {
    int panel;    /* master of the panel's serial line */
    int panelEnd; /* its slave, held so the line stays up between opens */
    int keyboard;
    int mouse;
    int terminal;    /* master of the program's terminal */
    int terminalEnd; /* its slave, kept to read the modes the program left */
    pid_t program;
    int status;
    char* screen; /* everything the program wrote to its terminal */
    size_t screenLength;
    char partial[256];
    size_t partialLength;
    char* lines[PANEL_LINES]; /* every line the program sent to the panel */
    size_t lineCount;
};

static void report(struct bench const* b) {
    fprintf(stdout, "--- panel line, from the program:\n");
    for (size_t i = 0; i < b->lineCount; ++i)
        fprintf(stdout, "%s\n", b->lines[i]);
    fprintf(stdout, "--- terminal, last 1500 bytes (escapes shown as ^[):\n");
    size_t const from = b->screenLength > 1500 ? b->screenLength - 1500 : 0;
    for (size_t i = from; i < b->screenLength; ++i) {
        unsigned char const c = (unsigned char)b->screen[i];
        if (c == 033)
            fputs("^[", stdout);
        else if (c == '\n' || (c >= ' ' && c < 0x7f))
            fputc(c, stdout);
    }
    fputs("\n---\n", stdout);
}

static struct bench* g_bench;

__attribute__((format(printf, 1, 2), noreturn)) static void fail(char const* format, ...) {
    va_list args;
    va_start(args, format);
    printf("FAIL %s: ", g_case);
    vprintf(format, args);
    va_end(args);
    putchar('\n');
    if (g_bench != NULL)
        report(g_bench);
    fflush(stdout);
    if (g_bench != NULL && g_bench->program > 0)
        kill(g_bench->program, SIGKILL);
    exit(1);
}

static long long nowMs(void) {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return (long long)t.tv_sec * 1000 + t.tv_nsec / 1000000;
}

static void writeAll(int fd, char const* bytes, size_t length) {
    while (length > 0) {
        ssize_t const n = write(fd, bytes, length);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            fail("write: %s", strerror(errno));
        bytes += n;
        length -= (size_t)n;
    }
}

static void writeText(int fd, char const* text) {
    writeAll(fd, text, strlen(text));
}

/* ---- the panel's micro-controller ----------------------------------------- */

static int isHex(char const* s, size_t n) {
    for (size_t i = 0; i < n; ++i)
        if (!((s[i] >= '0' && s[i] <= '9') || (s[i] >= 'a' && s[i] <= 'f') ||
              (s[i] >= 'A' && s[i] <= 'F')))
            return 0;
    return 1;
}

/* Answers as the panel does: its versions to "V", the jack (out) to "H",
 * "OK" to a well-formed LED, brightness or routing command, and nothing to
 * anything else. */
static void panelLine(struct bench* b, char const* line) {
    size_t const n = strlen(line);
    if (b->lineCount < PANEL_LINES)
        b->lines[b->lineCount++] = strdup(line);
    if (strcmp(line, "V") == 0)
        writeText(b->panel, "V1.4.0\nF0.9.2\n");
    else if (strcmp(line, "H") == 0)
        writeText(b->panel, "H0\n");
    else if ((n == 9 && line[0] == 'L' && isHex(line + 1, 8)) ||
             (n == 3 && line[0] == 'B' && isHex(line + 1, 2)) ||
             (n == 2 && line[0] == 'A' && line[1] >= '0' && line[1] <= '3'))
        writeText(b->panel, "OK\n");
}

static void openPanel(struct bench* b) {
    b->panel = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (b->panel < 0 || grantpt(b->panel) != 0 || unlockpt(b->panel) != 0)
        fail("panel pty: %s", strerror(errno));
    char const* name = ptsname(b->panel);
    b->panelEnd = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (b->panelEnd < 0)
        fail("%s: %s", name, strerror(errno));
    /* A serial line comes up with echo off here, and its input flags
     * (XON/XOFF, CR to LF) as a tty has them: the program must clear those. */
    struct termios tio;
    tcgetattr(b->panelEnd, &tio);
    tcflag_t const input = tio.c_iflag;
    cfmakeraw(&tio);
    tio.c_iflag = input;
    tcsetattr(b->panelEnd, TCSANOW, &tio);
    unlink(PANEL_PATH);
    if (symlink(name, PANEL_PATH) != 0)
        fail("%s: %s", PANEL_PATH, strerror(errno));
}

/* ---- the buttons and the knob: uinput devices of this kernel --------------- */

static void linkEventNode(int fd, char const* path) {
    char sysname[64];
    if (ioctl(fd, UI_GET_SYSNAME(sizeof sysname), sysname) < 0)
        fail("UI_GET_SYSNAME: %s", strerror(errno));
    char dir[160];
    snprintf(dir, sizeof dir, "/sys/devices/virtual/input/%s", sysname);
    char node[300] = "";
    long long const deadline = nowMs() + 5000;
    /* devtmpfs makes /dev/input/eventN as the kernel registers the handler. */
    while (node[0] == '\0' || access(node, F_OK) != 0) {
        DIR* d = opendir(dir);
        struct dirent* e;
        while (d != NULL && (e = readdir(d)) != NULL)
            if (strncmp(e->d_name, "event", 5) == 0)
                snprintf(node, sizeof node, "/dev/input/%s", e->d_name);
        if (d != NULL)
            closedir(d);
        if (nowMs() > deadline)
            fail("no event node for %s (%s): is evdev loaded?", path, dir);
        usleep(10000);
    }
    unlink(path);
    if (symlink(node, path) != 0)
        fail("%s: %s", path, strerror(errno));
}

static int createDevice(char const* name, char const* path, int eventType, int const* codes,
                        size_t count) {
    int const fd = open("/dev/uinput", O_WRONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        fail("/dev/uinput: %s", strerror(errno));
    unsigned long const bit = eventType == EV_KEY ? UI_SET_KEYBIT : UI_SET_RELBIT;
    if (ioctl(fd, UI_SET_EVBIT, eventType) < 0)
        fail("UI_SET_EVBIT: %s", strerror(errno));
    for (size_t i = 0; i < count; ++i)
        if (ioctl(fd, bit, codes[i]) < 0)
            fail("uinput code %d: %s", codes[i], strerror(errno));
    struct uinput_setup setup;
    memset(&setup, 0, sizeof setup);
    setup.id.bustype = BUS_USB;
    setup.id.vendor = 0x0cf0;
    setup.id.product = 0x0084;
    snprintf(setup.name, sizeof setup.name, "%s", name);
    if (ioctl(fd, UI_DEV_SETUP, &setup) < 0 || ioctl(fd, UI_DEV_CREATE) < 0)
        fail("uinput %s: %s", name, strerror(errno));
    linkEventNode(fd, path);
    return fd;
}

static void emit(int fd, int type, int code, int value) {
    struct input_event event;
    memset(&event, 0, sizeof event);
    event.type = (unsigned short)type;
    event.code = (unsigned short)code;
    event.value = value;
    writeAll(fd, (char const*)&event, sizeof event);
    memset(&event, 0, sizeof event);
    event.type = EV_SYN;
    event.code = SYN_REPORT;
    writeAll(fd, (char const*)&event, sizeof event);
}

/* ---- the program on its terminal ----------------------------------------- */

static void start(struct bench* b, char* const* argv) {
    b->terminal = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (b->terminal < 0 || grantpt(b->terminal) != 0 || unlockpt(b->terminal) != 0)
        fail("terminal pty: %s", strerror(errno));
    char const* name = ptsname(b->terminal);
    struct winsize size = {.ws_row = 24, .ws_col = 80};
    ioctl(b->terminal, TIOCSWINSZ, &size);
    b->terminalEnd = open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (b->terminalEnd < 0)
        fail("%s: %s", name, strerror(errno));
    b->program = fork();
    if (b->program < 0)
        fail("fork: %s", strerror(errno));
    if (b->program == 0) {
        setsid();
        int const tty = open(name, O_RDWR);
        if (tty < 0 || ioctl(tty, TIOCSCTTY, 0) < 0)
            _exit(126);
        dup2(tty, 0);
        dup2(tty, 1);
        dup2(tty, 2);
        if (tty > 2)
            close(tty);
        setenv("TERM", "xterm", 1);
        execv(argv[0], argv);
        _exit(127);
    }
}

/* Reads what is there, waiting at most timeoutMs; false once the program
 * has ended and its terminal is drained. */
static int pump(struct bench* b, int timeoutMs) {
    struct pollfd fds[2] = {{.fd = b->terminal, .events = POLLIN},
                            {.fd = b->panel, .events = POLLIN}};
    if (poll(fds, 2, timeoutMs) < 0 && errno != EINTR)
        fail("poll: %s", strerror(errno));
    char buffer[4096];
    ssize_t n;
    while ((n = read(b->terminal, buffer, sizeof buffer)) > 0) {
        if (b->screenLength + (size_t)n < SCREEN_LIMIT) {
            memcpy(b->screen + b->screenLength, buffer, (size_t)n);
            b->screenLength += (size_t)n;
            b->screen[b->screenLength] = '\0';
        }
    }
    while ((n = read(b->panel, buffer, sizeof buffer)) > 0) {
        for (ssize_t i = 0; i < n; ++i) {
            if (buffer[i] == '\n') {
                b->partial[b->partialLength] = '\0';
                panelLine(b, b->partial);
                b->partialLength = 0;
            } else if (b->partialLength + 1 < sizeof b->partial) {
                b->partial[b->partialLength++] = buffer[i];
            }
        }
    }
    if (b->program > 0 && waitpid(b->program, &b->status, WNOHANG) == b->program)
        b->program = 0;
    return b->program > 0;
}

static size_t screenMark(struct bench const* b) {
    return b->screenLength;
}

static void waitScreen(struct bench* b, size_t from, char const* text) {
    long long const deadline = nowMs() + WAIT_MS;
    while (strstr(b->screen + from, text) == NULL) {
        if (!pump(b, 50))
            fail("the program ended before showing \"%s\"", text);
        if (nowMs() > deadline)
            fail("\"%s\" never came on the screen", text);
    }
}

/* Waits for `line` on the panel's line among those sent from `from` on;
 * returns its position. */
static size_t waitPanel(struct bench* b, size_t from, char const* line) {
    long long const deadline = nowMs() + WAIT_MS;
    for (;;) {
        for (size_t i = from; i < b->lineCount; ++i)
            if (strcmp(b->lines[i], line) == 0)
                return i;
        if (!pump(b, 50))
            fail("the program ended before sending \"%s\" to the panel", line);
        if (nowMs() > deadline)
            fail("the program never sent \"%s\" to the panel", line);
    }
}

static void type(struct bench* b, char const* keys) {
    writeText(b->terminal, keys);
}

static void setUp(struct bench* b) {
    memset(b, 0, sizeof *b);
    b->screen = calloc(SCREEN_LIMIT + 1, 1);
    if (b->screen == NULL)
        fail("out of memory");
    g_bench = b;
    openPanel(b);
    int const mouseCodes[] = {REL_X, REL_Y, REL_WHEEL};
    b->keyboard = createDevice("cv084_fp_keyboard", KEYBOARD_PATH, EV_KEY, kButtonKeys,
                               sizeof kButtonKeys / sizeof kButtonKeys[0]);
    b->mouse = createDevice("cv084_fp_mouse", MOUSE_PATH, EV_REL, mouseCodes,
                            sizeof mouseCodes / sizeof mouseCodes[0]);
}

/* From start to the first test of the plan: the serial number asked and
 * confirmed, then every LED white as the knob's colour walk begins. */
static void startPlan(struct bench* b, char* const* argv) {
    start(b, argv);
    waitScreen(b, 0, "Enter CV084 PCB Serial No:");
    size_t const mark = screenMark(b);
    type(b, "C1\r");
    waitScreen(b, mark, "Is that correct?");
    type(b, "y");
    waitPanel(b, 0, "Lffffffff");
}

static void press(struct bench* b, int button) {
    emit(b->keyboard, EV_KEY, kButtonKeys[button], 1);
    long long const released = nowMs() + 100;
    while (nowMs() < released)
        pump(b, 20);
    emit(b->keyboard, EV_KEY, kButtonKeys[button], 0);
}

static int flow(char* const* argv) {
    struct bench b;
    setUp(&b);
    startPlan(&b, argv);
    /* The colour walk: seven detents clockwise, seven back. The encoder
     * reports a clockwise detent as a negative wheel movement. */
    for (int step = 0; step < 14; ++step) {
        int const clockwise = step < 7;
        int const target = clockwise ? step + 1 : 13 - step;
        char expected[16];
        snprintf(expected, sizeof expected, "Lff%s", kColours[target]);
        size_t const mark = b.lineCount;
        emit(b.mouse, EV_REL, REL_WHEEL, clockwise ? -1 : 1);
        waitPanel(&b, mark, expected);
    }
    size_t screen = screenMark(&b);
    waitScreen(&b, 0, "Do all of the LEDs light up");
    type(&b, "y");
    waitScreen(&b, screen, "Press Any Key to continue");
    screen = screenMark(&b);
    type(&b, "x");
    /* Calvento lights its own LED, then F1 moves the light on to its own. */
    /* The screen is drawn by differences: only what changed is written. */
    waitScreen(&b, screen, "Calvento");
    size_t mark = b.lineCount;
    screen = screenMark(&b);
    press(&b, 0);
    waitPanel(&b, mark, "L00ffffff");
    waitScreen(&b, screen, "F1");
    mark = b.lineCount;
    press(&b, 1);
    size_t const lit = waitPanel(&b, mark, "L01ffffff");
    int calventoOff = 0;
    for (size_t i = mark; i < lit; ++i)
        calventoOff |= strcmp(b.lines[i], "L00000000") == 0 || strcmp(b.lines[i], "Lff000000") == 0;
    if (!calventoOff)
        fail("F1's LED lit while Calvento's stayed on");
    kill(b.program, SIGTERM);
    while (pump(&b, 100))
        ;
    printf("PASS %s\n", g_case);
    return 0;
}

static char const* lastOf(char const* haystack, char const* needle) {
    char const* last = NULL;
    for (char const* p = haystack; (p = strstr(p, needle)) != NULL; ++p)
        last = p;
    return last;
}

static int crash(int signalNumber, char* const* argv) {
    struct bench b;
    setUp(&b);
    startPlan(&b, argv);
    pid_t const pid = b.program;
    /* Stopped, so that a diagnostic written now is still held when it crashes. */
    kill(pid, SIGSTOP);
    char path[64];
    snprintf(path, sizeof path, "/proc/%d/fd/2", (int)pid);
    int const err = open(path, O_WRONLY | O_APPEND);
    if (err < 0)
        fail("%s: %s", path, strerror(errno));
    writeText(err, "last words\n");
    close(err);
    kill(pid, signalNumber);
    kill(pid, SIGCONT);
    long long const deadline = nowMs() + WAIT_MS;
    while (pump(&b, 50))
        if (nowMs() > deadline)
            fail("the program did not end");
    /* What it wrote last is still in the pty: the slave stays open here. */
    for (int i = 0; i < 5; ++i)
        pump(&b, 20);
    int const ended = WIFSIGNALED(b.status) ? WTERMSIG(b.status)
                      : WIFEXITED(b.status) ? WEXITSTATUS(b.status) - 128
                                            : 0;
    if (ended != signalNumber)
        fail("ended with status 0x%x, not by signal %d", b.status, signalNumber);
    struct termios modes;
    if (tcgetattr(b.terminalEnd, &modes) != 0)
        fail("tcgetattr: %s", strerror(errno));
    if ((modes.c_lflag & (ICANON | ECHO)) != (ICANON | ECHO))
        fail("the terminal was left without canonical input and echo");
    char const* entered = lastOf(b.screen, "\033[?1049h");
    char const* left = lastOf(b.screen, "\033[?1049l");
    if (entered == NULL || left == NULL || left < entered)
        fail("the terminal was left on the program's screen");
    char const* keypadOn = lastOf(b.screen, "\033[?1h");
    char const* keypadOff = lastOf(b.screen, "\033[?1l");
    if (keypadOn != NULL && (keypadOff == NULL || keypadOff < keypadOn))
        fail("the terminal was left in keypad mode");
    char const* words = lastOf(b.screen, "last words");
    if (words == NULL || words < left)
        fail("what was held for the terminal did not follow its return");
    printf("PASS %s\n", g_case);
    return 0;
}

int main(int argc, char** argv) {
    setvbuf(stdout, NULL, _IOLBF, 0);
    signal(SIGPIPE, SIG_IGN);
    if (argc == 3 && strcmp(argv[1], "flow") == 0) {
        g_case = "flow";
        return flow(argv + 2);
    }
    if (argc == 4 && strcmp(argv[1], "crash") == 0) {
        static char name[32];
        snprintf(name, sizeof name, "crash-SIG%s", argv[2]);
        g_case = name;
        for (int signalNumber = 1; signalNumber < NSIG; ++signalNumber) {
            char const* abbreviation = sigabbrev_np(signalNumber);
            if (abbreviation != NULL && strcmp(abbreviation, argv[2]) == 0)
                return crash(signalNumber, argv + 3);
        }
        fail("no signal named %s", argv[2]);
    }
    fprintf(stderr, "usage: cv084-machine-operator flow PROGRAM\n"
                    "       cv084-machine-operator crash ABRT|SEGV|BUS|FPE PROGRAM\n");
    return 2;
}
