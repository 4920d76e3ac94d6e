/*
 * A status application in plain C, written against the public header alone,
 * that loads libkvtrm.so at run time and reads printers that langmond serves
 * from another process (the daemon answers on LANGMON_SOCKET).
 *
 *   status_client_test LIBRARY watch JAMMED OTHER DAEMON_PID
 *     reads both printers, sees JAMMED's jam appear and clear through a
 *     callback, then stops the daemon (SIGSTOP: it answers nothing) and kills
 *     it (SIGKILL): every call fails within the library's time-out. Once the
 *     daemon is started again, the printer opened anew is read from it.
 *   status_client_test LIBRARY write PRINTER RESULT
 *     asks for a refresh, as a client does, and expects RESULT.
 *
 * The exit status is the number of failed checks; each failure is on stderr.
 */
#include <langmon/status_manager.h>

#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

static int failed;

#define CHECK(condition)                                                             \
    do {                                                                             \
        if (!(condition)) {                                                          \
            ++failed;                                                                \
            fprintf(stderr, "%s:%d: failed: %s\n", __FILE__, __LINE__, #condition); \
        }                                                                            \
    } while (0)

static struct {
    __typeof__(OpenManagerExA)* open;
    __typeof__(CloseManager)* close;
    __typeof__(GetPrinterStatusA)* get;
    __typeof__(UpdatePrinterStatusA)* update;
    __typeof__(SetNotificationCallbackExA)* watch;
    __typeof__(KillNotificationCallback)* killCallback;
    __typeof__(KillNotificationEvent)* killEvent;
} sm;

/* What the callback saw, for the main thread to wait on. */
static pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
static pthread_cond_t told = PTHREAD_COND_INITIALIZER;
static int calls;
static int wrongCalls;
static uint32_t watchedHandle;

static void Changed(uint32_t handle, const char* name, void* context) {
    pthread_mutex_lock(&lock);
    if (handle != watchedHandle || strcmp(name, "PrinterStatus") != 0 || context != &calls) ++wrongCalls;
    ++calls;
    pthread_cond_broadcast(&told);
    pthread_mutex_unlock(&lock);
}

static double Now(void) {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec + now.tv_nsec / 1e9;
}

/* Waits up to `seconds` for the callback's next call after `seen`. */
static int WaitForCall(int seen, double seconds) {
    struct timespec until;
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += (time_t)seconds;
    pthread_mutex_lock(&lock);
    while (calls == seen && pthread_cond_timedwait(&told, &lock, &until) == 0) {
    }
    const int now = calls;
    pthread_mutex_unlock(&lock);
    return now;
}

/* Whether PrinterStatus tells of a jam: its three 32-bit words, in the
   host's order, have a jam bit in the second or the third. */
static int Jammed(uint32_t handle) {
    uint32_t words[3];
    DWORD needed = 0;
    if (sm.get(handle, "PrinterStatus", words, sizeof words, &needed) != STATUS_MANAGER_OK) return -1;
    return (words[1] & 0x8) != 0 || (words[2] & 0x10000) != 0;
}

/* A printer's store, checked to be the daemon's: it holds what the daemon's
   monitor read of the printer, where a store of this process's own would
   hold nothing yet. */
static uint32_t OpenServed(const char* printer) {
    uint32_t handle = 0;
    DWORD needed = 0;
    CHECK(sm.open(printer, STATUS_MANAGER_DEVICE, 1, &handle) == STATUS_MANAGER_OK && handle != 0);
    CHECK(sm.get(handle, "PrinterStatus", NULL, 0, &needed) == STATUS_MANAGER_BUFFER_TOO_SMALL && needed >= 12);
    return handle;
}

static void Watch(const char* jammed, const char* other, pid_t daemon) {
    const uint32_t handle = OpenServed(jammed);
    const uint32_t second = OpenServed(other);

    /* A printer the daemon does not serve is one of this process's own. */
    uint32_t own = 0;
    DWORD needed = 0;
    CHECK(sm.open("not served", "", 0, &own) == STATUS_MANAGER_OK);
    CHECK(sm.get(own, "PrinterStatus", NULL, 0, &needed) == STATUS_MANAGER_NO_VARIABLE);
    CHECK(sm.close(own) == STATUS_MANAGER_OK);

    /* The two-call read: asked with too small a buffer, the buffer is left
       untouched and the size needed told. */
    unsigned char status[64];
    memset(status, 0xAA, sizeof status);
    needed = 0;
    CHECK(sm.get(second, "PrinterStatus", status, 1, &needed) == STATUS_MANAGER_BUFFER_TOO_SMALL);
    CHECK(needed > 1 && needed <= sizeof status && status[0] == 0xAA);
    CHECK(sm.get(second, "PrinterStatus", status, needed, &needed) == STATUS_MANAGER_OK);
    CHECK(sm.get(handle, "PrinterStatus", status, sizeof status, &needed) == STATUS_MANAGER_OK);
    CHECK(sm.get(handle, "NoSuchVariable", status, sizeof status, &needed) == STATUS_MANAGER_NO_VARIABLE);

    /* The jam appears and clears: the callback tells each change. */
    uint32_t watch = 0;
    watchedHandle = handle;
    CHECK(sm.watch(handle, 1, "PrinterStatus", Changed, &calls, &watch) == STATUS_MANAGER_OK);
    int seen = 0;
    int sawJam = 0, sawClear = 0;
    const double start = Now();
    while (!sawClear && Now() - start < 15) {
        const int now = WaitForCall(seen, 15 - (Now() - start));
        if (now == seen) break;
        seen = now;
        const int jam = Jammed(handle);
        if (jam == 1) sawJam = 1;
        if (jam == 0 && sawJam) sawClear = 1;
        printf("%.2f s: jammed %d\n", Now() - start, jam);
    }
    printf("callbacks %d, jam seen %d, cleared %d\n", seen, sawJam, sawClear);
    CHECK(sawJam && sawClear && wrongCalls == 0);
    CHECK(sm.killEvent(handle, watch) == STATUS_MANAGER_BAD_ARGUMENT);
    CHECK(sm.killCallback(handle, watch) == STATUS_MANAGER_OK);

    /* A daemon that answers nothing: the call gives up after the time-out,
       and the handle is dead from then on. */
    kill(daemon, SIGSTOP);
    double before = Now();
    CHECK(sm.get(handle, "PrinterStatus", status, sizeof status, &needed) == STATUS_MANAGER_BAD_HANDLE);
    const double silent = Now() - before;
    before = Now();
    CHECK(sm.get(handle, "PrinterStatus", status, sizeof status, &needed) == STATUS_MANAGER_BAD_HANDLE);
    const double after = Now() - before;
    /* A daemon that is gone: the other handle fails at once. */
    kill(daemon, SIGKILL);
    before = Now();
    CHECK(sm.get(second, "PrinterStatus", status, sizeof status, &needed) == STATUS_MANAGER_BAD_HANDLE);
    const double gone = Now() - before;
    printf("silent daemon %.2f s, then %.2f s; killed daemon %.2f s\n", silent, after, gone);
    fflush(stdout);
    CHECK(silent >= 1.5 && silent < 3.5);
    CHECK(after < 0.5 && gone < 1.0);
    CHECK(sm.close(handle) == STATUS_MANAGER_OK);
    CHECK(sm.close(second) == STATUS_MANAGER_OK);
    CHECK(sm.close(second) == STATUS_MANAGER_BAD_HANDLE);

    /* The daemon is started again: the printer opened anew is the
       daemon's once more. Until it serves it, the name opens a store of
       this process's own, which has no status. */
    before = Now();
    int reached = 0;
    while (!reached && Now() - before < 10) {
        uint32_t again = 0;
        if (sm.open(jammed, "", 0, &again) != STATUS_MANAGER_OK) break;
        reached = sm.get(again, "PrinterStatus", status, sizeof status, &needed) == STATUS_MANAGER_OK;
        CHECK(sm.close(again) == STATUS_MANAGER_OK);
        if (!reached) nanosleep(&(struct timespec){0, 100 * 1000 * 1000}, NULL);
    }
    printf("restarted daemon reached %d\n", reached);
    CHECK(reached);
}

int main(int argc, char** argv) {
    if (argc < 5) {
        fprintf(stderr, "usage: status_client_test LIBRARY (watch JAMMED OTHER PID | write PRINTER RESULT)\n");
        return 100;
    }
    void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
    if (library == NULL) {
        fprintf(stderr, "%s\n", dlerror());
        return 100;
    }
    *(void**)&sm.open = dlsym(library, "OpenManagerExA");
    *(void**)&sm.close = dlsym(library, "CloseManager");
    *(void**)&sm.get = dlsym(library, "GetPrinterStatusA");
    *(void**)&sm.update = dlsym(library, "UpdatePrinterStatusA");
    *(void**)&sm.watch = dlsym(library, "SetNotificationCallbackExA");
    *(void**)&sm.killCallback = dlsym(library, "KillNotificationCallback");
    *(void**)&sm.killEvent = dlsym(library, "KillNotificationEvent");
    if (!sm.open || !sm.close || !sm.get || !sm.update || !sm.watch || !sm.killCallback || !sm.killEvent) {
        fprintf(stderr, "the library lacks a function of the header\n");
        return 100;
    }
    if (strcmp(argv[2], "watch") == 0 && argc == 6) {
        Watch(argv[3], argv[4], (pid_t)atoi(argv[5]));
    } else if (strcmp(argv[2], "write") == 0) {
        const uint32_t handle = OpenServed(argv[3]);
        static const char names[] = "PrinterDisplay";
        const int32_t result = sm.update(handle, "RefreshStatus", names, sizeof names);
        printf("write: %d\n", result);
        CHECK(result == atoi(argv[4]));
        CHECK(sm.close(handle) == STATUS_MANAGER_OK);
    }
    /* Unloading ends every reader thread the handles had. */
    CHECK(dlclose(library) == 0);
    return failed;
}
