/*
 * langmon: the language monitor as a spooler or a port monitor sees it.
 *
 * This is the one public header. A spooler loads liblangmon.so, calls
 * InitializeMonitorEx once and from then on the entries of the MONITOR table it
 * filled. The port monitor below the language monitor hands over its own MONITOR
 * table in OpenPortEx. Both sides read and set the calling thread's last error
 * through GetLastError and SetLastError, as Win32 code does.
 *
 * The records are the published Win32 layouts: BOOL is a 32-bit int, DWORD a
 * 32-bit unsigned, HANDLE a pointer and texts are char*.
 */
#ifndef LANGMON_MONITOR_H
#define LANGMON_MONITOR_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define LANGMON_API __attribute__((visibility("default")))

typedef int32_t BOOL;
typedef uint32_t DWORD;
typedef uint16_t WORD;
typedef uint8_t BYTE;
typedef int32_t LONG;
typedef uint32_t UINT;
typedef void* HANDLE;
typedef void* HWND;
typedef char* LPSTR;
typedef const char* LPCSTR;
typedef BYTE* LPBYTE;
typedef DWORD* LPDWORD;
typedef HANDLE* PHANDLE;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

/* Last-error codes that cross the edge. */
#define ERROR_SUCCESS 0u
#define ERROR_FILE_NOT_FOUND 2u
#define ERROR_ACCESS_DENIED 5u
#define ERROR_INVALID_HANDLE 6u
#define ERROR_NOT_ENOUGH_MEMORY 8u
#define ERROR_NOT_SUPPORTED 50u
#define ERROR_INVALID_PARAMETER 87u
#define ERROR_BUFFER_OVERFLOW 111u
#define ERROR_INSUFFICIENT_BUFFER 122u
#define ERROR_BUSY 170u
#define ERROR_ALREADY_EXISTS 183u
#define ERROR_MORE_DATA 234u
#define ERROR_NO_MORE_ITEMS 259u
#define ERROR_NOT_OWNER 288u
#define ERROR_TOO_MANY_POSTS 298u
#define ERROR_DEVICE_NOT_CONNECTED 1167u
#define ERROR_CONNECTION_UNAVAIL 1201u
#define ERROR_CANCELLED 1223u
#define ERROR_TIMEOUT 1460u
#define ERROR_INVALID_PRINTER_STATE 1906u
#define ERROR_NOT_CONNECTED 2250u

typedef struct _DOC_INFO_1A {
    LPSTR pDocName;
    LPSTR pOutputFile;
    LPSTR pDatatype;
} DOC_INFO_1A, DOC_INFO_1;

typedef struct _DOC_INFO_2A {
    LPSTR pDocName;
    LPSTR pOutputFile;
    LPSTR pDatatype;
    DWORD dwMode;
    DWORD JobId;
} DOC_INFO_2A, DOC_INFO_2;

typedef struct _COMMTIMEOUTS {
    DWORD ReadIntervalTimeout;
    DWORD ReadTotalTimeoutMultiplier;
    DWORD ReadTotalTimeoutConstant;
    DWORD WriteTotalTimeoutMultiplier;
    DWORD WriteTotalTimeoutConstant;
} COMMTIMEOUTS, *LPCOMMTIMEOUTS;

typedef struct _PORT_INFO_1A {
    LPSTR pName;
} PORT_INFO_1A, PORT_INFO_1;

typedef struct _PORT_INFO_2A {
    LPSTR pPortName;
    LPSTR pMonitorName;
    LPSTR pDescription;
    DWORD fPortType;
    DWORD Reserved;
} PORT_INFO_2A, PORT_INFO_2;

typedef struct _SYSTEMTIME {
    WORD wYear;
    WORD wMonth;
    WORD wDayOfWeek;
    WORD wDay;
    WORD wHour;
    WORD wMinute;
    WORD wSecond;
    WORD wMilliseconds;
} SYSTEMTIME;

struct _devicemodeA; /* never looked into */

typedef struct _PRINTER_INFO_2A {
    LPSTR pServerName;
    LPSTR pPrinterName;
    LPSTR pShareName;
    LPSTR pPortName;
    LPSTR pDriverName;
    LPSTR pComment;
    LPSTR pLocation;
    struct _devicemodeA* pDevMode;
    LPSTR pSepFile;
    LPSTR pPrintProcessor;
    LPSTR pDatatype;
    LPSTR pParameters;
    void* pSecurityDescriptor;
    DWORD Attributes;
    DWORD Priority;
    DWORD DefaultPriority;
    DWORD StartTime;
    DWORD UntilTime;
    DWORD Status;
    DWORD cJobs;
    DWORD AveragePPM;
} PRINTER_INFO_2A, PRINTER_INFO_2;

typedef struct _PRINTER_INFO_5A {
    LPSTR pPrinterName;
    LPSTR pPortName;
    DWORD Attributes;
    DWORD DeviceNotSelectedTimeout;
    DWORD TransmissionRetryTimeout;
} PRINTER_INFO_5A, PRINTER_INFO_5;

typedef struct _DRIVER_INFO_3A {
    DWORD cVersion;
    LPSTR pName;
    LPSTR pEnvironment;
    LPSTR pDriverPath;
    LPSTR pDataFile;
    LPSTR pConfigFile;
    LPSTR pHelpFile;
    LPSTR pDependentFiles;
    LPSTR pMonitorName;
    LPSTR pDefaultDataType;
} DRIVER_INFO_3A, DRIVER_INFO_3;

typedef struct _JOB_INFO_1A {
    DWORD JobId;
    LPSTR pPrinterName;
    LPSTR pMachineName;
    LPSTR pUserName;
    LPSTR pDocument;
    LPSTR pDatatype;
    LPSTR pStatus;
    DWORD Status;
    DWORD Priority;
    DWORD Position;
    DWORD TotalPages;
    DWORD PagesPrinted;
    SYSTEMTIME Submitted;
} JOB_INFO_1A, JOB_INFO_1;

/*
 * The MONITOR table in its published order: thirteen entries. The language
 * monitor fills one for the spooler; the port monitor below hands its own to
 * OpenPortEx. An entry that a monitor does not have is null.
 */
typedef struct _MONITOR {
    BOOL (*EnumPorts)(LPSTR pName, DWORD Level, LPBYTE pPorts, DWORD cbBuf, LPDWORD pcbNeeded,
                      LPDWORD pcReturned);
    BOOL (*OpenPort)(LPSTR pName, PHANDLE pHandle);
    BOOL (*OpenPortEx)(LPSTR pPortName, LPSTR pPrinterName, PHANDLE pHandle,
                       struct _MONITOR* pMonitor);
    BOOL (*StartDocPort)(HANDLE hPort, LPSTR pPrinterName, DWORD JobId, DWORD Level,
                         LPBYTE pDocInfo);
    BOOL (*WritePort)(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuf, LPDWORD pcbWritten);
    BOOL (*ReadPort)(HANDLE hPort, LPBYTE pBuffer, DWORD cbBuffer, LPDWORD pcbRead);
    BOOL (*EndDocPort)(HANDLE hPort);
    BOOL (*ClosePort)(HANDLE hPort);
    BOOL (*AddPort)(LPSTR pName, HWND hWnd, LPSTR pMonitorName);
    BOOL (*ConfigurePort)(LPSTR pName, HWND hWnd, LPSTR pPortName);
    BOOL (*DeletePort)(LPSTR pName, HWND hWnd, LPSTR pPortName);
    BOOL (*GetPrinterDataFromPort)(HANDLE hPort, DWORD ControlID, LPSTR pValueName,
                                   LPSTR lpInBuffer, DWORD cbInBuffer, LPSTR lpOutBuffer,
                                   DWORD cbOutBuffer, LPDWORD lpcbReturned);
    BOOL (*SetPortTimeOuts)(HANDLE hPort, LPCOMMTIMEOUTS lpCTO, DWORD reserved);
} MONITOR, *LPMONITOR;

/* The library's one entry: fills *pMonitor and returns 1. */
LANGMON_API BOOL InitializeMonitorEx(LPSTR pRegistryRoot, LPMONITOR pMonitor);

/* The calling thread's last error. */
LANGMON_API DWORD GetLastError(void);
LANGMON_API void SetLastError(DWORD dwErrCode);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* LANGMON_MONITOR_H */
