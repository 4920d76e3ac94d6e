/*
 * A spooler and a port monitor written in plain C, driving liblangmon.so
 * through its public header alone: the entry table, a job through a port, and
 * the last error that both sides share with the library.
 */
#include <langmon/monitor.h>

#include <stdio.h>
#include <string.h>

static int passed;
static int failed;

#define CHECK(condition)                                                  \
    do {                                                                  \
        if (condition) {                                                  \
            ++passed;                                                     \
        } else {                                                          \
            ++failed;                                                     \
            fprintf(stderr, "%s:%d: failed: %s\n", __FILE__, __LINE__, #condition); \
        }                                                                 \
    } while (0)

/* The port monitor below: it keeps what it is given. */
static char received[256];
static DWORD receivedLength;
static int documentOpen;
static int refuseOpen;
static int portHandle;

static BOOL LowerOpenPort(LPSTR name, PHANDLE handle) {
    (void)name;
    if (refuseOpen) {
        SetLastError(ERROR_ACCESS_DENIED);
        return FALSE;
    }
    *handle = &portHandle;
    return TRUE;
}

static BOOL LowerStartDocPort(HANDLE h, LPSTR printer, DWORD jobId, DWORD level, LPBYTE info) {
    (void)h; (void)printer; (void)jobId; (void)level; (void)info;
    documentOpen = 1;
    return TRUE;
}

static BOOL LowerWritePort(HANDLE h, LPBYTE data, DWORD length, LPDWORD written) {
    (void)h;
    *written = 0;
    if (!documentOpen || receivedLength + length > sizeof received) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    memcpy(received + receivedLength, data, length);
    receivedLength += length;
    *written = length;
    return TRUE;
}

static BOOL LowerEndDocPort(HANDLE h) {
    (void)h;
    documentOpen = 0;
    return TRUE;
}

static BOOL LowerClosePort(HANDLE h) {
    (void)h;
    return TRUE;
}

int main(void) {
    MONITOR monitor;
    MONITOR lower;
    HANDLE port = NULL;
    HANDLE other = NULL;
    DWORD written = 0;
    DOC_INFO_1 doc = {"letter", NULL, "RAW"};
    static char job[] = "Hello, printer.\f";

    memset(&monitor, 0xFF, sizeof monitor);
    memset(&lower, 0, sizeof lower);
    lower.OpenPort = LowerOpenPort;
    lower.StartDocPort = LowerStartDocPort;
    lower.WritePort = LowerWritePort;
    lower.EndDocPort = LowerEndDocPort;
    lower.ClosePort = LowerClosePort;

    /* The table: the entries of a language monitor, nulls elsewhere. */
    CHECK(InitializeMonitorEx("System\\CurrentControlSet\\control\\Print\\Monitors\\langmon", &monitor) == 1);
    CHECK(monitor.EnumPorts == NULL && monitor.OpenPort == NULL);
    CHECK(monitor.OpenPortEx != NULL && monitor.StartDocPort != NULL && monitor.WritePort != NULL);
    CHECK(monitor.ReadPort != NULL && monitor.EndDocPort != NULL && monitor.ClosePort != NULL);
    CHECK(monitor.AddPort == NULL && monitor.ConfigurePort == NULL && monitor.DeletePort == NULL);
    CHECK(monitor.GetPrinterDataFromPort != NULL && monitor.SetPortTimeOuts == NULL);

    /* The last error is one per thread, shared with the library. */
    SetLastError(0xdeadbeef);
    CHECK(GetLastError() == 0xdeadbeef);
    CHECK(monitor.ClosePort(NULL) == 0);
    CHECK(GetLastError() == ERROR_INVALID_PARAMETER);

    /* The port monitor's own error comes back through OpenPortEx. */
    refuseOpen = 1;
    SetLastError(0);
    CHECK(monitor.OpenPortEx("COM1", "Laser", &port, &lower) == 0);
    CHECK(GetLastError() == ERROR_ACCESS_DENIED);
    refuseOpen = 0;

    /* A serial port passes a job straight through. */
    CHECK(monitor.OpenPortEx("COM1", "Laser", &port, &lower) == 1);
    SetLastError(0);
    CHECK(monitor.OpenPortEx("com1", "Laser", &other, &lower) == 0);
    CHECK(GetLastError() == ERROR_BUSY);
    CHECK(monitor.StartDocPort(port, "Laser", 7, 1, (LPBYTE)&doc) == 1);
    CHECK(monitor.WritePort(port, (LPBYTE)job, (DWORD)strlen(job), &written) == 1);
    CHECK(written == strlen(job));
    CHECK(monitor.EndDocPort(port) == 1);
    CHECK(monitor.ClosePort(port) == 1);
    CHECK(receivedLength == strlen(job) && memcmp(received, job, receivedLength) == 0);

    printf("c edge: %d passed, %d failed\n", passed, failed);
    return failed == 0 ? 0 : 1;
}
